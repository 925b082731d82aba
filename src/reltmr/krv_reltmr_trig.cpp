// The trigger thread: advances the wheel by the ticks the monotonic clock shows and runs due callbacks.
#include <cassert>
#include <ctime>

#include "krv_osal.h"
#include "krv_osalsync.h"
#include "log/krv_diag.h"
#include "reltmr/krv_reltmr_clock.h"
#include "reltmr/krv_reltmr_internal.h"

namespace {
constexpr char kKrvSource[] = "krv_reltmr";
constexpr uint32_t kPassSleepUs = 10000;
}  // namespace

namespace krv::reltmr {

namespace {

thread_local bool t_onTrigThread = false;

// Runs a callback with the timer mutex released so it may start and stop timers itself; the
// running flag lets KRV_RelTimerFini wait for it. Entered and left with the timer mutex held.
void KrvRelTmrCallOut(KrvRelTmrCtrl *ctrl, const KrvRelTmrNode *node)
{
    KrvRelTmrCallBack callback = node->callback;
    uint64_t arg = node->arg;
    uint32_t param = node->param;
    assert(TmrHeld());
    ctrl->cbRunning = 1;
    TmrUnlock(ctrl);
    try {
        callback(arg, param);
    } catch (...) {
        // A throwing callback must not take the trigger thread, and every other timer, down with it.
    }
    TmrLock(ctrl);
    ctrl->cbRunning = 0;
}

// Finishes one collected node: calls it unless it was stopped meanwhile, then re-arms a periodic
// timer one period past the current tick or returns the node to its pool. A periodic node stopped
// between collection and its call is left alone and stays counted as used; that is established
// behaviour. Timer mutex held.
void KrvRelTmrDispatch(KrvRelTmrCtrl *ctrl, KrvRelTmrNode *node)
{
    assert(TmrHeld());
    bool periodic = (node->mode & KRV_RELTMR_MODE_PERIODIC) != 0;
    if (node->status != KRV_RELTMR_STATUS_TIMEOUT) {
        if (!periodic) {
            KrvRelTmrFree(node);
        }
        return;
    }
    if (!periodic) {
        // The handle reads empty from here on, inside the callback too.
        if (node->handleSlot != nullptr && *node->handleSlot == node) {
            *node->handleSlot = nullptr;
        }
        node->handleSlot = nullptr;
    }
    KrvRelTmrCallOut(ctrl, node);
    if (periodic && node->status == KRV_RELTMR_STATUS_TIMEOUT) {
        WheelInsert(ctrl->buckets, ctrl->curTick, node);
    } else {
        KrvRelTmrFree(node);
    }
}

// Moves the wheel on by ticks and dispatches everything that fell due, in bucket order.
void KrvRelTmrTurn(KrvRelTmrCtrl *ctrl, uint64_t ticks)
{
    TmrLock(ctrl);
    uint32_t oldTick = ctrl->curTick;
    ctrl->curTick = oldTick + static_cast<uint32_t>(ticks);
    KrvRelTmrNode *expired = nullptr;
    WheelCollect(ctrl->buckets, oldTick, ctrl->curTick, &expired);
    for (KrvRelTmrNode *node = ListPopFront(&expired); node != nullptr; node = ListPopFront(&expired)) {
        KrvRelTmrDispatch(ctrl, node);
    }
    TmrUnlock(ctrl);
}

}  // namespace

bool OnTrigThread()
{
    return t_onTrigThread;
}

void *KrvRelTmrTrigTaskEntry(void *)
{
    t_onTrigThread = true;
    KrvRelTmrCtrl *ctrl = Ctrl();
    for (;;) {
        TmrLock(ctrl);
        bool stopping = ctrl->stopping != 0;
        TmrUnlock(ctrl);
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        uint64_t ticks = 0;
        if (KrvPassTickGet(ctrl, static_cast<uint64_t>(now.tv_sec), static_cast<uint64_t>(now.tv_nsec), &ticks)) {
            KrvRelTmrTurn(ctrl, ticks);
        } else {
            KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrTrigTaskEntry]:Tick pass get failed.");
        }
        // Every pass ends with its nap, the last one too: the joining KRV_RelTimerFini waits for it.
        KRV_OsalTaskDelay(0, kPassSleepUs);
        if (stopping) {
            return nullptr;
        }
    }
}

}  // namespace krv::reltmr
