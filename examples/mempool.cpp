// Memory pools: fixed-size units carved out of memory the caller owns, taken and given back
// without a lock. Each unit starts with a 56-byte header (magic, state, tick stamps) that the
// library checks on release, so a wrong or repeated release is refused instead of corrupting the pool.
#include <cstdio>
#include <cstring>

#include "krv.h"

namespace {

int Fail(const char *what, uint32_t rc)
{
    std::printf("FAILED: %s (0x%08X)\n", what, rc);  // pool codes are composed error codes
    return 1;
}

}  // namespace

int main()
{
    // The module (and the system tick it stamps units with) is counted: every init needs a fini.
    uint32_t rc = KRV_MemPoolInit();
    if (rc != KRV_OK) {
        return Fail("KRV_MemPoolInit", rc);
    }

    // 8 units of 120 bytes: 64 usable bytes each. The region must be 4-byte aligned, stays the
    // caller's, and must outlive the module: pools cannot be destroyed one by one.
    constexpr uint32_t kUnitSize = KRV_MEMPOOL_UNIT_HEAD_SIZE + 64;
    constexpr uint32_t kUnits = 8;
    alignas(8) static unsigned char region[kUnitSize * kUnits];
    uint32_t poolId = 0;
    rc = KRV_MemPoolCreate("messages", region, sizeof(region), kUnitSize, &poolId);
    if (rc != KRV_OK) {
        return Fail("KRV_MemPoolCreate", rc);
    }
    // Names are unique and regions may not overlap. The refusal is also reported as a diagnostic,
    // which is printed on standard output because no hook is installed.
    uint32_t other = 0;
    if ((rc = KRV_MemPoolCreate("messages", region + 4, 4 * kUnitSize, kUnitSize, &other)) !=
        KRV_MEMPOOL_ERR_NAME_EXISTS) {
        return Fail("same name", rc);
    }

    // Take every unit: the pool runs dry with a null result (no diagnostic: that is a normal state).
    void *units[kUnits] = {};
    for (void *&unit : units) {
        unit = KRV_MemPoolAlloc(poolId);
        if (unit == nullptr) {
            return Fail("alloc", 0);
        }
        std::memset(unit, 0xAB, kUnitSize - KRV_MEMPOOL_UNIT_HEAD_SIZE);
    }
    std::printf("pool %u: %u units unused after taking %u\n", poolId, KRV_MemUnUsedUnitGet(poolId), kUnits);
    if (KRV_MemPoolAlloc(poolId) != nullptr) {
        return Fail("empty pool", 0);
    }

    // The header sits just before the address handed out; it records the unit's state and the
    // system tick of its last allocation and release.
    KrvMemUnitHead head;
    std::memcpy(&head, static_cast<unsigned char *>(units[0]) - KRV_MEMPOOL_UNIT_HEAD_SIZE, sizeof(head));
    std::printf("unit 0: magic 0x%08X, state %u, allocated at system tick %llu (10 ms jiffies since KRV_MemPoolInit)\n",
                head.magic, head.state,
                (static_cast<unsigned long long>(head.allocTickHigh) << 32) | head.allocTickLow);

    // Give everything back. A second release of a unit, or an address inside a unit, is refused.
    for (void *unit : units) {
        if ((rc = KRV_MemPoolFree(poolId, unit)) != KRV_OK) {
            return Fail("free", rc);
        }
    }
    if ((rc = KRV_MemPoolFree(poolId, units[0])) != KRV_MEMPOOL_ERR_UNIT_FREE) {
        return Fail("double free", rc);
    }
    if ((rc = KRV_MemPoolFree(poolId, static_cast<unsigned char *>(units[1]) + 4)) != KRV_MEMPOOL_ERR_ADDRESS) {
        return Fail("inner address", rc);
    }
    // The unit released last is the next one handed out.
    void *again = KRV_MemPoolAlloc(poolId);
    bool lifo = again == units[kUnits - 1];
    KRV_MemPoolFree(poolId, again);

    // The last fini frees the bookkeeping of every pool; the region is untouched and reusable.
    KRV_MemPoolFini();
    return lifo ? 0 : Fail("last in, first out", 0);
}
