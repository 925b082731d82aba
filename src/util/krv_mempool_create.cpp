// Memory pools: creation over a caller's region.
#include <cstring>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "util/krv_mempool_internal.h"

namespace {

constexpr char kKrvSource[] = "krv_mempool";
constexpr uint32_t kMinUnitSize = KRV_MEMPOOL_UNIT_HEAD_SIZE + 1;
constexpr uintptr_t kStartAlign = 4;

// Error-level diagnostic at the given line, the code returned as it is.
#define POOL_REFUSE(line, code, ...) (KRV_DIAG_AT((line), (code), krv::kLevelError, __VA_ARGS__), (code))

// Checks that need the module mutex: sizes, address, pool count, name and region clashes.
uint32_t RegionCheck(const KrvMemPool *ctx, const char *name, uint8_t *start, uint32_t poolSize, uint32_t unitSize)
{
    if (poolSize == 0 || unitSize > poolSize || unitSize < kMinUnitSize || poolSize % unitSize != 0) {
        return POOL_REFUSE(420, KRV_ERR_INVALID, "The param poolSize or unitSize is invalid, poolSize:%u, unitSize:%u",
                           poolSize, unitSize);
    }
    uintptr_t end = 0;
    if (__builtin_add_overflow(reinterpret_cast<uintptr_t>(start), uintptr_t{poolSize}, &end)) {
        return POOL_REFUSE(423, KRV_ERR_INVALID, "The poolSize is too large, poolSize is %u", poolSize);
    }
    if (reinterpret_cast<uintptr_t>(start) % kStartAlign != 0) {
        return POOL_REFUSE(428, KRV_ERR_INVALID, "The Param startAddr must be 4 bytes aligned!");
    }
    if (ctx->currentPoolNum >= ctx->maxPools) {
        return POOL_REFUSE(454, KRV_MEMPOOL_ERR_POOL_LIMIT, "Can't create more memory pool, currentPoolNum:%u",
                           ctx->currentPoolNum);
    }
    for (uint32_t i = 0; i < ctx->currentPoolNum; ++i) {
        if (std::strcmp(name, ctx->pools[i].name) == 0) {
            return POOL_REFUSE(462, KRV_MEMPOOL_ERR_NAME_EXISTS, "there's same memory pool now, poolName:%s", name);
        }
    }
    for (uint32_t i = 0; i < ctx->currentPoolNum; ++i) {
        const KrvMemPoolDesc &old = ctx->pools[i];
        if (start < old.endAddr && reinterpret_cast<uint8_t *>(end) > old.startAddr) {
            return POOL_REFUSE(469, KRV_MEMPOOL_ERR_OVERLAP, "Pool address overlapped!");
        }
    }
    return KRV_OK;
}

// Writes every unit's header and threads all units, in address order, into one free list.
uint32_t UnitsBuild(uint8_t *start, uint32_t unitSize, uint32_t unitNum, KrvMemUnitEntry **table)
{
    if (unitNum > KRV_MEMPOOL_MAX_UNITS) {
        return POOL_REFUSE(246, KRV_MEMPOOL_ERR_UNIT_NUM, "Unit number[%d] overflow.", static_cast<int>(unitNum));
    }
    const size_t tableSize = sizeof(KrvMemUnitEntry) * unitNum;
    auto *entries = static_cast<KrvMemUnitEntry *>(KRV_OsalMemAlloc(tableSize));
    if (entries == nullptr) {
        return POOL_REFUSE(253, KRV_ERR_NOMEM, "alloc fail, size:%zu", tableSize);
    }
    krv::memset_s(entries, tableSize, 0, tableSize);
    const KrvMemUnitHead fresh = {KRV_MEMPOOL_UNIT_MAGIC, KRV_MEMPOOL_UNIT_FREE, {}, 0, 0, 0, 0, {}};
    for (uint32_t i = 0; i < unitNum; ++i) {
        uint8_t *unit = start + static_cast<size_t>(i) * unitSize;
        std::memcpy(unit, &fresh, sizeof fresh);  // units need not be aligned
        entries[i] = {unit, i + 1 == unitNum ? kKrvMemNoUnit : i + 1};
    }
    *table = entries;
    return KRV_OK;
}

#undef POOL_REFUSE

}  // namespace

extern "C" {

uint32_t KRV_MemPoolCreate(const char *name, void *startAddr, uint32_t poolSize, uint32_t unitSize, uint32_t *poolId)
{
    KrvMemPool *ctx = krv::mempool::g_context.load(std::memory_order_acquire);
    if (ctx == nullptr) {
        KRV_DIAG_AT(482, KRV_ERR_NOT_INIT, krv::kLevelError, "krv_mempool module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    if (name == nullptr || startAddr == nullptr || poolId == nullptr || unitSize == 0) {
        KRV_DIAG_AT(488, KRV_ERR_INVALID, krv::kLevelError, "The param pscName or pStartAddr or puiPoolId is null.");
        return KRV_ERR_INVALID;
    }
    auto *start = static_cast<uint8_t *>(startAddr);
    KRV_OsalMutexLock(ctx->mutex);
    uint32_t rc = RegionCheck(ctx, name, start, poolSize, unitSize);
    KrvMemUnitEntry *table = nullptr;
    if (rc == KRV_OK) {
        rc = UnitsBuild(start, unitSize, poolSize / unitSize, &table);
    }
    if (rc != KRV_OK) {
        KRV_OsalMutexUnLock(ctx->mutex);
        return rc;
    }
    const uint32_t id = ctx->currentPoolNum;
    KrvMemPoolDesc &pool = ctx->pools[id];
    (void)krv::strncpy_s(pool.name, sizeof pool.name, name, sizeof pool.name - 1);
    pool.poolId = id;
    pool.poolSize = poolSize;
    pool.unitSize = unitSize;
    pool.unitNum = poolSize / unitSize;
    pool.usedNum = 0;
    pool.startAddr = start;
    pool.endAddr = start + poolSize;
    pool.freeList = 0;  // head at unit 0: units go out in address order at first
    pool.unitTable = table;
    *poolId = id;
    __atomic_store_n(&ctx->currentPoolNum, id + 1, __ATOMIC_RELEASE);  // the descriptor is complete
    KRV_OsalMutexUnLock(ctx->mutex);
    return KRV_OK;
}

}  // extern "C"
