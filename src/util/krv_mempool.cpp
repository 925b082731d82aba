// Memory pools: module lifecycle and the unused-unit count.
#include "krv_mempool.h"

#include "krv_osal.h"
#include "krv_status.h"
#include "krv_tick.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "util/krv_mempool_internal.h"

namespace krv::mempool {
std::atomic<KrvMemPool *> g_context{nullptr};
}  // namespace krv::mempool

namespace {

constexpr char kKrvSource[] = "krv_mempool";
using krv::mempool::g_context;

// Zero-filled block of size bytes, or null.
void *ZeroedAlloc(size_t size)
{
    void *block = KRV_OsalMemAlloc(size);
    if (block != nullptr) {
        krv::memset_s(block, size, 0, size);
    }
    return block;
}

// Frees the context and its descriptor array (either may be missing) and releases the tick.
void ContextRelease(KrvMemPool *ctx)
{
    if (ctx != nullptr) {
        KRV_OsalMemFree(ctx->pools);
        KRV_OsalMemFree(ctx);
    }
    KRV_TickFini();
}

}  // namespace

extern "C" {

uint32_t KRV_MemPoolInit(void)
{
    KrvMemPool *ctx = g_context.load(std::memory_order_acquire);
    if (ctx != nullptr) {
        KRV_DIAG_AT(119, KRV_OK, krv::kLevelInfo, "krv_mempool module has already been initialized!");
        ++ctx->initCount;
        return KRV_OK;
    }
    uint32_t rc = KRV_TickInit();
    if (rc != KRV_OK) {
        KRV_DIAG_AT(126, rc, krv::kLevelError, "krv_mempool tick init failed!");
        return rc;
    }
    ctx = static_cast<KrvMemPool *>(ZeroedAlloc(sizeof(KrvMemPool)));
    if (ctx == nullptr) {
        KRV_DIAG_AT(133, KRV_ERR_NOMEM, krv::kLevelError, "alloc fail, KrvMemPool size:%zu", sizeof(KrvMemPool));
        ContextRelease(nullptr);
        return KRV_ERR_NOMEM;
    }
    ctx->maxPools = KRV_MEMPOOL_MAX_POOLS;
    const size_t poolsSize = sizeof(KrvMemPoolDesc) * ctx->maxPools;
    ctx->pools = static_cast<KrvMemPoolDesc *>(ZeroedAlloc(poolsSize));
    if (ctx->pools == nullptr) {
        KRV_DIAG_AT(144, KRV_ERR_NOMEM, krv::kLevelError, "alloc fail, poolSize:%zu", poolsSize);
        ContextRelease(ctx);
        return KRV_ERR_NOMEM;
    }
    rc = KRV_OsalMutexCreate(&ctx->mutex);
    if (rc != KRV_OK) {
        KRV_DIAG_AT(154, rc, krv::kLevelError, "mutex init failed.");
        ContextRelease(ctx);
        return rc;
    }
    ctx->initCount = 1;
    g_context.store(ctx, std::memory_order_release);
    return KRV_OK;
}

/* Finalising while other threads still allocate is the caller's fault: nothing waits for them. */
uint32_t KRV_MemPoolFini(void)
{
    KrvMemPool *ctx = g_context.load(std::memory_order_acquire);
    if (ctx == nullptr || --ctx->initCount != 0) {
        return KRV_OK;
    }
    g_context.store(nullptr, std::memory_order_release);
    (void)KRV_OsalMutexDestroy(&ctx->mutex);
    for (uint32_t i = 0; i < ctx->currentPoolNum; ++i) {
        KRV_OsalMemFree(ctx->pools[i].unitTable);
    }
    ctx->currentPoolNum = 0;
    ContextRelease(ctx);
    return KRV_OK;
}

uint32_t KRV_MemUnUsedUnitGet(uint32_t poolId)
{
    const KrvMemPool *ctx = g_context.load(std::memory_order_acquire);
    if (ctx == nullptr) {
        KRV_DIAG_AT(658, KRV_ERR_NOT_INIT, krv::kLevelError, "krv_mempool module has not been initialized!");
        return 0;
    }
    if (poolId >= krv::mempool::PoolCount(ctx)) {
        KRV_DIAG_AT(655, KRV_ERR_INVALID, krv::kLevelError, "The param poolId[%d] is error.", static_cast<int>(poolId));
        return 0;
    }
    const KrvMemPoolDesc &pool = ctx->pools[poolId];
    return pool.unitNum - __atomic_load_n(&pool.usedNum, __ATOMIC_RELAXED);
}

}  // extern "C"
