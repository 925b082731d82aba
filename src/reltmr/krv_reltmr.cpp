// Relative timer module lifecycle: the module record, timer pools and their free lists.
#include <pthread.h>

#include <cassert>
#include <cstdint>

#include "krv_osal.h"
#include "krv_osalsync.h"
#include "krv_reltmr.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "reltmr/krv_reltmr_internal.h"

namespace {
constexpr char kKrvSource[] = "krv_reltmr";
// maxTimer is accepted when maxTimer - 1 (unsigned, so 0 wraps) is at most this.
constexpr uint32_t kMaxTimerLessOne = 59652322;
constexpr uint32_t kCallbackWaitRetries = 10;
constexpr uint32_t kCallbackWaitUs = 1000;  // one nap of the wait for a running callback
constexpr uint32_t kUsersWaitUs = 100;      // one nap of the last fini's wait for calls still using the module
}  // namespace

namespace krv::reltmr {

namespace {

// Serialises module creation and teardown so that at most one module, and one trigger thread, exists.
pthread_mutex_t g_lifecycleLock = PTHREAD_MUTEX_INITIALIZER;

// Holds the lifecycle lock for one KRV_RelTimerInit or KRV_RelTimerFini, except on the trigger
// thread. A callback needs no lifecycle lock: while it runs the module can be neither created (it
// exists) nor destroyed (the last fini joins this thread first), and pool counting is under the
// timer mutex. Taking it there would make the callback wait for another thread's fini, which in
// turn waits for the callback.
class LifecycleLock {
public:
    LifecycleLock() : held_(!OnTrigThread())
    {
        if (held_) {
            pthread_mutex_lock(&g_lifecycleLock);
        }
    }
    ~LifecycleLock() { Release(); }
    LifecycleLock(const LifecycleLock &) = delete;
    LifecycleLock &operator=(const LifecycleLock &) = delete;
    // Releases the lock early, before reporting a refusal.
    void Release()
    {
        if (held_) {
            held_ = false;
            pthread_mutex_unlock(&g_lifecycleLock);
        }
    }

private:
    bool held_;
};

// Sequentially consistent with the users count: a user either counts itself before it reads the
// record, and is waited for, or reads null.
void PublishCtrl(KrvRelTmrCtrl *ctrl)
{
    __atomic_store_n(&g_ctrl, ctrl, __ATOMIC_SEQ_CST);
}

// Builds a pool of maxTimer + 1 idle nodes chained into its free list; the extra node is never
// handed out, so taking a node never empties the list. Returns KRV_OK, KRV_ERR_INVALID or KRV_ERR_NOMEM.
uint32_t KrvRelTmrPoolsInit(uint32_t maxTimer, KrvRelTmrPool **created)
{
    if (maxTimer - 1 > kMaxTimerLessOne) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrPoolsInit]:maxTimer %u is invalid", maxTimer);
        return KRV_ERR_INVALID;
    }
    uint64_t nodeCount = static_cast<uint64_t>(maxTimer) + 1;
    uint64_t bytes = nodeCount * sizeof(KrvRelTmrNode);
    auto *nodes = static_cast<KrvRelTmrNode *>(KRV_OsalMemAlloc(bytes));
    if (nodes == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KrvRelTmrPoolsInit]:mem alloc failed,timer num is %u.", maxTimer);
        return KRV_ERR_NOMEM;
    }
    auto *pool = static_cast<KrvRelTmrPool *>(KRV_OsalMemAlloc(sizeof(KrvRelTmrPool)));
    if (pool == nullptr) {
        KRV_OsalMemFree(nodes);
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KrvRelTmrPoolsInit]:mem alloc failed.");
        return KRV_ERR_NOMEM;
    }
    (void)krv::memset_s(nodes, bytes, 0, bytes);
    for (uint64_t i = 0; i < nodeCount; ++i) {
        nodes[i].next = i + 1 < nodeCount ? &nodes[i + 1] : nullptr;
        nodes[i].status = KRV_RELTMR_STATUS_IDLE;
    }
    pool->initFlag = KRV_RELTMR_INIT_FLAG;
    pool->usedCount = 0;
    pool->grpCount = 0;
    pool->nodes = nodes;
    pool->freeHead = &nodes[0];
    pool->freeTail = &nodes[maxTimer];
    *created = pool;
    return KRV_OK;
}

// Releases a pool's nodes and record, leaving the freed mark for stale handles that still read it.
void KrvRelTmrPoolFree(KrvRelTmrPool *pool)
{
    KRV_OsalMemFree(pool->nodes);
    pool->nodes = nullptr;
    pool->initFlag = kFreedFlag;
    KRV_OsalMemFree(pool);
}

// Unpublishes and releases a module record whose trigger thread is not (or no longer) running.
void KrvRelTmrCtrlDestroy(KrvRelTmrCtrl *ctrl)
{
    PublishCtrl(nullptr);
    while (__atomic_load_n(&g_ctrlUsers, __ATOMIC_SEQ_CST) != 0) {
        KRV_OsalTaskDelay(0, kUsersWaitUs);
    }
    (void)KRV_OsalMutexDestroy(&ctrl->grpMutex);
    (void)KRV_OsalMutexDestroy(&ctrl->tmrMutex);
    KRV_OsalMemFree(ctrl->buckets);
    KRV_OsalMemFree(ctrl);
}

// Allocates a zeroed module record with both mutexes; returns null (logged) on any failure.
KrvRelTmrCtrl *KrvRelTmrResInit()
{
    auto *ctrl = static_cast<KrvRelTmrCtrl *>(KRV_OsalMemAlloc(sizeof(KrvRelTmrCtrl)));
    if (ctrl == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KrvRelTmrResInit]:alloc mem failed");
        return nullptr;
    }
    (void)krv::memset_s(ctrl, sizeof(*ctrl), 0, sizeof(*ctrl));
    uint32_t ret = KRV_OsalMutexCreate(&ctrl->tmrMutex);
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "[MERILUX-KrvRelTmrResInit]:Res Mutex Create fail");
        KRV_OsalMemFree(ctrl);
        return nullptr;
    }
    ret = KRV_OsalMutexCreate(&ctrl->grpMutex);
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "[MERILUX-KrvRelTmrResInit]:Grp Mutex Create fail");
        (void)KRV_OsalMutexDestroy(&ctrl->tmrMutex);
        KRV_OsalMemFree(ctrl);
        return nullptr;
    }
    return ctrl;
}

// Allocates and clears the wheel; returns KRV_OK or KRV_ERR_NOMEM (logged).
uint32_t KrvRelTmrHashInit(KrvRelTmrCtrl *ctrl)
{
    ctrl->wheelMask = kWheelMask;
    ctrl->revolutionMask = kRevolutionMask;
    ctrl->wheelSize = kWheelSize;
    ctrl->curTick = 0;
    uint32_t bytes = kWheelSize * sizeof(KrvRelTmrBucket);
    ctrl->buckets = static_cast<KrvRelTmrBucket *>(KRV_OsalMemAlloc(bytes));
    if (ctrl->buckets == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KrvRelTmrHashInit]:alloc mem:%u failed", bytes);
        return KRV_ERR_NOMEM;
    }
    WheelClear(ctrl->buckets);
    return KRV_OK;
}

// First pool: creates the module, its first pool, the wheel and the trigger thread; on any failure
// undoes everything, so no module is left behind. Lifecycle lock held.
uint32_t KrvRelTmrModuleCreate(uint32_t maxTimer, KrvRelTmrPool **pool)
{
    KrvRelTmrCtrl *ctrl = KrvRelTmrResInit();
    if (ctrl == nullptr) {
        KRV_DIAG(KRV_ERR_FAILED, "[MERILUX-KRV_RelTimerInit]:KrvRelTmrResInit failed");
        return KRV_ERR_FAILED;
    }
    PublishCtrl(ctrl);
    TmrLock(ctrl);
    KrvRelTmrPool *created = nullptr;
    uint32_t ret = KrvRelTmrPoolsInit(maxTimer, &created);
    if (ret == KRV_OK) {
        ret = KrvRelTmrHashInit(ctrl);
        if (ret == KRV_OK) {
            int err = pthread_create(&ctrl->trigThread, nullptr, KrvRelTmrTrigTaskEntry, nullptr);
            if (err != 0) {
                KRV_DIAG(KRV_ERR_FAILED, "[MERILUX-KRV_ReltimerInit]:create reltimer trig thread failed, err is %d", err);
                ret = KRV_ERR_FAILED;
            }
        }
        if (ret != KRV_OK) {
            KrvRelTmrPoolFree(created);
        }
    }
    if (ret != KRV_OK) {
        TmrUnlock(ctrl);
        KrvRelTmrCtrlDestroy(ctrl);
        return ret;
    }
    *pool = created;
    ++ctrl->poolCount;
    TmrUnlock(ctrl);
    return KRV_OK;
}

// Later pools: refused while the module stops or when *pool already holds a live pool. The stopping
// flag is read in the same critical section that counts the new pool: a callback adds pools without
// the lifecycle lock, and the last fini decides under this mutex whether its pool is the last.
uint32_t KrvRelTmrPoolAdd(KrvRelTmrCtrl *ctrl, uint32_t maxTimer, KrvRelTmrPool **pool)
{
    TmrLock(ctrl);
    uint32_t ret = KRV_ERR_STOPPING;
    if (__atomic_load_n(&ctrl->stopping, __ATOMIC_ACQUIRE) != 0) {
        KRV_DIAG(KRV_ERR_STOPPING, "[MERILUX-KRV_RelTimerInit]:reltimer module is deinitializing.");
    } else if (KrvRelTmrPoolHandleValidCheck(*pool)) {
        // The check logs "invalid" when it passes; callers see that line on every later init.
        KRV_DIAG(KRV_ERR_POOL_IN_USE, "[MERILUX-KRV_RelTimerInit]:the timer pool handle is used.");
        ret = KRV_ERR_POOL_IN_USE;
    } else {
        KrvRelTmrPool *created = nullptr;
        ret = KrvRelTmrPoolsInit(maxTimer, &created);
        if (ret == KRV_OK) {
            *pool = created;
            ++ctrl->poolCount;
        }
    }
    TmrUnlock(ctrl);
    return ret;
}

// Gives a running callback up to ten 1 ms naps to finish, then goes on regardless.
void KrvRelTmrWaitForCallBackFuncEnded(KrvRelTmrCtrl *ctrl)
{
    TmrLock(ctrl);
    uint32_t running = ctrl->cbRunning;
    TmrUnlock(ctrl);
    for (uint32_t retries = 0; running == 1; ++retries) {
        if (retries == kCallbackWaitRetries) {
            KRV_DIAG(KRV_ERR_STOPPING, "[MERILUX-KrvRelTmrWaitForCallBackFuncEnded]:the max retry times has reached.");
            return;
        }
        KRV_OsalTaskDelay(0, kCallbackWaitUs);
        TmrLock(ctrl);
        running = ctrl->cbRunning;
        TmrUnlock(ctrl);
    }
}

// Last pool: stops and joins the trigger thread, then releases the pool and the module. Entered with
// the lifecycle lock and the timer mutex held; returns with only the lifecycle lock held. The
// lifecycle lock is dropped during the join so that other threads' calls see "stopping" at once.
// Never reached from a callback: the pool of the running timer still counts it as used.
void KrvRelTmrModuleDestroy(KrvRelTmrCtrl *ctrl, KrvRelTmrPool *pool)
{
    assert(!OnTrigThread());
    __atomic_store_n(&ctrl->stopping, static_cast<uint8_t>(1), __ATOMIC_RELEASE);
    TmrUnlock(ctrl);
    pthread_mutex_unlock(&g_lifecycleLock);
    (void)pthread_join(ctrl->trigThread, nullptr);
    pthread_mutex_lock(&g_lifecycleLock);
    TmrLock(ctrl);
    KrvRelTmrPoolFree(pool);
    --ctrl->poolCount;
    TmrUnlock(ctrl);
    KrvRelTmrCtrlDestroy(ctrl);
}

}  // namespace

void KrvRelTmrUnusableLog(const KrvRelTmrCtrl *ctrl)
{
    if (ctrl == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KrvRelTmrIsInitialized]:timer module is not Initialized.");
    } else {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrIsInitialized]:timer module is deinitializing.");
    }
}

void KrvRelTmrPoolInvalidLog()
{
    KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrPoolHandleValidCheck]:timer pool handle is invalid");
}

void KrvRelTmrUsedUnderflowLog()
{
    KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrFree]:timer used num is zero.");
}

}  // namespace krv::reltmr

using namespace krv;
using namespace krv::reltmr;

extern "C" {

uint32_t KRV_RelTimerInit(uint32_t maxTimer, KrvRelTmrPool **pool)
{
    if (pool == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_RelTimerInit]:the timer pool handle is NULL.");
        return KRV_ERR_INVALID;
    }
    LifecycleLock lifecycle;
    KrvRelTmrCtrl *ctrl = Ctrl();
    return ctrl == nullptr ? KrvRelTmrModuleCreate(maxTimer, pool) : KrvRelTmrPoolAdd(ctrl, maxTimer, pool);
}

uint32_t KRV_RelTimerFini(KrvRelTmrPool *pool)
{
    LifecycleLock lifecycle;
    if (!KrvRelTmrIsInitialized() || !KrvRelTmrPoolHandleValidCheck(pool)) {
        lifecycle.Release();
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_RelTimerFini]:timer pool handle is not initialized");
        return KRV_ERR_NOT_INIT;
    }
    KrvRelTmrCtrl *ctrl = Ctrl();
    KrvRelTmrWaitForCallBackFuncEnded(ctrl);
    TmrLock(ctrl);
    if (pool->usedCount != 0 || pool->grpCount != 0) {
        uint32_t used = pool->usedCount;
        uint32_t groups = pool->grpCount;
        TmrUnlock(ctrl);
        lifecycle.Release();
        KRV_DIAG(KRV_ERR_BUSY,
                 "[MERILUX-KRV_RelTimerFini]:some timers or timer grp has not been stopped, timer num is %u, grp num "
                 "is %u.",
                 used, groups);
        return KRV_ERR_BUSY;
    }
    if (ctrl->poolCount < 2) {
        KrvRelTmrModuleDestroy(ctrl, pool);
    } else {
        --ctrl->poolCount;
        KrvRelTmrPoolFree(pool);
        TmrUnlock(ctrl);
    }
    return KRV_OK;
}

}  // extern "C"
