// Memory pools: lock-free allocation and release of units.
#include <cstring>

#include "krv_status.h"
#include "krv_tick.h"
#include "log/krv_diag.h"
#include "util/krv_mempool_internal.h"

namespace {

constexpr char kKrvSource[] = "krv_mempool";
constexpr size_t kStateOffset = offsetof(KrvMemUnitHead, state);
constexpr size_t kAllocTickOffset = offsetof(KrvMemUnitHead, allocTickHigh);
constexpr size_t kFreeTickOffset = offsetof(KrvMemUnitHead, freeTickHigh);
static_assert(sizeof(KrvMemUnitHead) == KRV_MEMPOOL_UNIT_HEAD_SIZE && kAllocTickOffset == 32 && kFreeTickOffset == 40,
              "the unit header keeps its 56-byte layout");

// Headers may lie at any address (units are unitSize apart), so fields are copied, not dereferenced;
// the state word is changed with atomics only, which x86-64 performs at any address.
uint32_t *StateOf(uint8_t *unit)
{
    return reinterpret_cast<uint32_t *>(unit + kStateOffset);
}

bool MagicIntact(const uint8_t *unit)
{
    uint32_t magic;
    std::memcpy(&magic, unit, sizeof magic);
    return magic == KRV_MEMPOOL_UNIT_MAGIC;
}

// Writes the system tick, high half first, at offset of the header.
void TickStamp(uint8_t *unit, size_t offset)
{
    uint64_t tick = 0;
    (void)KRV_TickGet(&tick);  // a counter gone backwards leaves 0 in the stamp
    const uint32_t halves[2] = {static_cast<uint32_t>(tick >> 32), static_cast<uint32_t>(tick)};
    std::memcpy(unit + offset, halves, sizeof halves);
}

// Code for a release whose state swap found state instead of "in use".
uint32_t StateRefusal(uint32_t state)
{
    switch (state) {
        case KRV_MEMPOOL_UNIT_FREE:
            return KRV_MEMPOOL_ERR_UNIT_FREE;
        case KRV_MEMPOOL_UNIT_PINNED:
            return KRV_MEMPOOL_ERR_UNIT_STATE;
        default:
            return KRV_MEMPOOL_ERR_UNIT_DAMAGED;
    }
}

}  // namespace

extern "C" {

/* A unit whose magic is damaged is dropped from the free list for good and stays counted as used,
   so that damaged memory is never handed out again; the next free unit is taken instead. */
void *KRV_MemPoolAlloc(uint32_t poolId)
{
    KrvMemPool *ctx = krv::mempool::g_context.load(std::memory_order_acquire);
    if (ctx == nullptr) {
        KRV_DIAG_AT(526, KRV_ERR_NOT_INIT, krv::kLevelError, "mempool module is not initialized!");
        return nullptr;
    }
    if (poolId >= krv::mempool::PoolCount(ctx)) {
        KRV_DIAG_AT(529, KRV_ERR_INVALID, krv::kLevelError, "mempool alloc param is error, pooId:%u", poolId);
        return nullptr;
    }
    KrvMemPoolDesc *pool = &ctx->pools[poolId];
    uint32_t index = 0;
    while (krv::mempool::FreeListPop(pool, &index)) {
        __atomic_fetch_add(&pool->usedNum, 1u, __ATOMIC_RELAXED);
        uint8_t *unit = pool->unitTable[index].unit;
        if (MagicIntact(unit)) {
            __atomic_store_n(StateOf(unit), KRV_MEMPOOL_UNIT_USED, __ATOMIC_RELAXED);
            TickStamp(unit, kAllocTickOffset);
            return unit + KRV_MEMPOOL_UNIT_HEAD_SIZE;
        }
    }
    return nullptr;  // exhausted: a normal result, not logged
}

/* Wrong or repeated addresses are refused by the range, boundary, magic and state checks and never
   reach the free list; the swap of the state from 1 to 0 lets one of two racing releases win. */
uint32_t KRV_MemPoolFree(uint32_t poolId, void *memUnit)
{
    KrvMemPool *ctx = krv::mempool::g_context.load(std::memory_order_acquire);
    if (ctx == nullptr) {
        KRV_DIAG_AT(601, KRV_ERR_NOT_INIT, krv::kLevelError, "krv_mempool module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    if (poolId >= krv::mempool::PoolCount(ctx) || memUnit == nullptr) {
        KRV_DIAG_AT(607, KRV_ERR_INVALID, krv::kLevelError, "The param poolId or memUnit is error.");
        return KRV_ERR_INVALID;
    }
    KrvMemPoolDesc *pool = &ctx->pools[poolId];
    auto *user = static_cast<uint8_t *>(memUnit);
    if (user < pool->startAddr + KRV_MEMPOOL_UNIT_HEAD_SIZE || user >= pool->endAddr) {
        return KRV_MEMPOOL_ERR_ADDRESS;
    }
    uint8_t *unit = user - KRV_MEMPOOL_UNIT_HEAD_SIZE;
    const uint32_t offset = static_cast<uint32_t>(unit - pool->startAddr);
    const uint32_t index = offset / pool->unitSize;
    const bool onBoundary = offset % pool->unitSize == 0;
    if (!MagicIntact(unit)) {
        return onBoundary ? KRV_MEMPOOL_ERR_UNIT_DAMAGED : KRV_MEMPOOL_ERR_ADDRESS;
    }
    if (!onBoundary) {
        return KRV_MEMPOOL_ERR_ADDRESS;  // caller data that looks like a header is not a unit
    }
    uint32_t state = KRV_MEMPOOL_UNIT_USED;
    if (!__atomic_compare_exchange_n(StateOf(unit), &state, KRV_MEMPOOL_UNIT_FREE, false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_ACQUIRE)) {
        return StateRefusal(state);
    }
    TickStamp(unit, kFreeTickOffset);
    krv::mempool::FreeListPush(pool, index);
    __atomic_fetch_sub(&pool->usedNum, 1u, __ATOMIC_RELAXED);
    return KRV_OK;
}

}  // extern "C"
