// Records and operations shared by the sources of the relative timer module.
//
// Locking: the timer mutex guards the wheel, every node, every pool's free list and counters, the
// current tick and the flags; the group mutex guards group records and is always taken before the
// timer mutex. Both are recursive, and the timer mutex is released while a callback runs.
#ifndef KRV_RELTMR_INTERNAL_H
#define KRV_RELTMR_INTERNAL_H

#include <pthread.h>

#include <cassert>
#include <cstdint>

#include "krv_osalsync.h"
#include "krv_reltmr.h"
#include "krv_status.h"
#include "reltmr/krv_reltmr_wheel.h"

namespace krv::reltmr {

// The module record; exactly one exists while any pool does.
struct KrvRelTmrCtrl {
    uint64_t lastSec;  // monotonic time of the previous pass (0 and 0 before the first)
    uint64_t lastNsec;
    KrvMutex tmrMutex;
    KrvMutex grpMutex;
    KrvRelTmrBucket *buckets;  // kWheelSize buckets
    pthread_t trigThread;
    uint64_t residualNs;  // elapsed time not yet turned into a whole tick, below one tick
    uint32_t wheelMask;
    uint32_t revolutionMask;
    uint32_t wheelSize;
    uint32_t curTick;  // ticks since the module was created, wrapping
    uint32_t poolCount;
    uint32_t cbRunning;  // 1 while the trigger thread is inside a callback
    uint8_t stopping;    // set once the last pool is being finalised
};

constexpr uint32_t kFreedFlag = ~KRV_RELTMR_INIT_FLAG;
constexpr uint64_t kNsPerTick = 10000000;

// The module record, or null while the module does not exist. Published and retired only by
// krv_reltmr.cpp (module creation and the last fini); everyone else reads it through Ctrl().
inline KrvRelTmrCtrl *g_ctrl = nullptr;
// Entry-point calls currently holding a ModuleUse; the record is freed only once this is 0.
inline uint32_t g_ctrlUsers = 0;

// The module record, or null while the module does not exist. Sequentially consistent with the users
// count: a user either counts itself before it reads the record, and is waited for, or reads null.
inline KrvRelTmrCtrl *Ctrl()
{
    return __atomic_load_n(&g_ctrl, __ATOMIC_SEQ_CST);
}

// Logs why ctrl cannot be used: the module is absent (null) or stopping.
void KrvRelTmrUnusableLog(const KrvRelTmrCtrl *ctrl);

// The record if the module exists and is not stopping, else null after logging why.
inline KrvRelTmrCtrl *UsableCtrl()
{
    KrvRelTmrCtrl *ctrl = Ctrl();
    if (ctrl != nullptr && __atomic_load_n(&ctrl->stopping, __ATOMIC_ACQUIRE) == 0) {
        return ctrl;
    }
    KrvRelTmrUnusableLog(ctrl);
    return nullptr;
}

// True when the module exists and is not stopping; otherwise logs why and returns false.
inline bool KrvRelTmrIsInitialized()
{
    return UsableCtrl() != nullptr;
}

// Keeps the module record alive for one call of an entry point: the last fini publishes the record's
// end, then waits until every holder has left before freeing it, so a call racing the teardown sees
// "not initialized" or "deinitializing" instead of freed memory. Get() is null (and the reason
// logged, as KrvRelTmrIsInitialized does) when the module is absent or stopping. Inline: every
// start and stop pays for it.
class ModuleUse {
public:
    ModuleUse()
    {
        __atomic_add_fetch(&g_ctrlUsers, 1u, __ATOMIC_SEQ_CST);
        ctrl_ = UsableCtrl();
    }
    ~ModuleUse() { __atomic_sub_fetch(&g_ctrlUsers, 1u, __ATOMIC_SEQ_CST); }
    ModuleUse(const ModuleUse &) = delete;
    ModuleUse &operator=(const ModuleUse &) = delete;
    KrvRelTmrCtrl *Get() const { return ctrl_; }

private:
    KrvRelTmrCtrl *ctrl_;
};

#ifndef NDEBUG
// Times the calling thread holds the timer mutex (there is one module, so one timer mutex at a time).
inline thread_local uint32_t t_tmrHolds = 0;

// Whether the calling thread holds the timer mutex; for the asserts of the functions that need it.
inline bool TmrHeld()
{
    return t_tmrHolds != 0;
}
#endif

// Locks the timer mutex. Every lock and unlock of the module goes through this pair, so that debug
// builds know which thread holds it.
inline void TmrLock(KrvRelTmrCtrl *ctrl)
{
    KRV_OsalMutexLock(ctrl->tmrMutex);
#ifndef NDEBUG
    ++t_tmrHolds;
#endif
}

// Unlocks the timer mutex locked with TmrLock.
inline void TmrUnlock(KrvRelTmrCtrl *ctrl)
{
#ifndef NDEBUG
    --t_tmrHolds;
#endif
    KRV_OsalMutexUnLock(ctrl->tmrMutex);
}

// Logs "timer pool handle is invalid".
void KrvRelTmrPoolInvalidLog();

// True when pool is non-null and valid; otherwise logs "timer pool handle is invalid" and returns false.
inline bool KrvRelTmrPoolHandleValidCheck(const KrvRelTmrPool *pool)
{
    if (pool != nullptr && pool->initFlag == KRV_RELTMR_INIT_FLAG) {
        return true;
    }
    KrvRelTmrPoolInvalidLog();
    return false;
}

// Takes node out of the wheel and frees it (RUNNING), or marks it STOPPED for the trigger thread to
// finish (TIMEOUT); returns KRV_OK, or KRV_ERR_INVALID for any other status. Timer mutex held.
uint32_t KrvRelTmrStop(KrvRelTmrCtrl *ctrl, KrvRelTmrNode *node);

// Stops the timer *handle refers to (nothing to do when it is empty) and clears *handle and the
// node's handle slot; a stale handle still stops what its node runs now, and says so. Returns KRV_OK
// or KrvRelTmrStop's status, leaving *handle as it was on failure. Timer mutex held.
uint32_t KrvRelTmrHandleStop(KrvRelTmrCtrl *ctrl, KrvRelTmrNode **handle);

// Logs "timer used num is zero." for a node returned to a pool that counts none in use.
void KrvRelTmrUsedUnderflowLog();

// Returns node to its pool's free list (at the tail) and clears the handle that still refers to it.
// Timer mutex held.
inline void KrvRelTmrFree(KrvRelTmrNode *node)
{
    assert(TmrHeld());
    node->status = KRV_RELTMR_STATUS_IDLE;
    if (node->handleSlot != nullptr && *node->handleSlot == node) {
        *node->handleSlot = nullptr;
    }
    KrvRelTmrPool *pool = node->pool;
    if (pool->initFlag == KRV_RELTMR_INIT_FLAG) {
        if (pool->usedCount == 0) {
            KrvRelTmrUsedUnderflowLog();
        } else {
            pool->freeTail->next = node;
            pool->freeTail = node;
            --pool->usedCount;
        }
    }
    node->next = nullptr;
}

// Starts a timer from pool, restarting over a running *handle; returns KRV_OK, KRV_ERR_INVALID or
// KRV_ERR_NOMEM (logged). Timer mutex held.
uint32_t KrvStartRelTimer(KrvRelTmrCtrl *ctrl, KrvRelTmrNode **handle, KrvRelTmrPool *pool, uint32_t intervalMs,
                          uint8_t mode, const KrvRelTmrFuncInfo *funcInfo);

// Body of the trigger thread: advances the wheel from the monotonic clock and runs due callbacks.
void *KrvRelTmrTrigTaskEntry(void *unused);

// True on the trigger thread, that is inside a timer callback (or the wheel's own work).
bool OnTrigThread();

}  // namespace krv::reltmr

#endif  // KRV_RELTMR_INTERNAL_H
