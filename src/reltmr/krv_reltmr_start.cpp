// Starting and stopping callback timers through their handles.
#include <cassert>
#include <cstdint>

#include "krv_osalsync.h"
#include "krv_reltmr.h"
#include "log/krv_diag.h"
#include "reltmr/krv_reltmr_internal.h"

namespace {
constexpr char kKrvSource[] = "krv_reltmr";
constexpr uint32_t kMsPerTick = 10;
}  // namespace

namespace krv::reltmr {

namespace {

bool KrvRelTmrFuncInfoValidCheck(const KrvRelTmrFuncInfo *funcInfo)
{
    if (funcInfo == nullptr || funcInfo->callback == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrFuncInfoValidCheck]:FuncInfo is NULL.");
        return false;
    }
    return true;
}

// Validates a start in the established order; logs the reason and returns false when refused.
// Timer mutex held.
bool KrvRelTmrStartParamCheck(KrvRelTmrNode **handle, const KrvRelTmrPool *pool, uint8_t mode,
                              const KrvRelTmrFuncInfo *funcInfo)
{
    assert(TmrHeld());
    // A periodic timer without a handle could never be stopped.
    bool valid = !(handle == nullptr && mode == KRV_RELTMR_MODE_PERIODIC) && KrvRelTmrPoolHandleValidCheck(pool) &&
                 KrvRelTmrFuncInfoValidCheck(funcInfo) && mode <= KRV_RELTMR_MODE_PERIODIC;
    if (!valid) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_CallBackRelTimerStart]:Inval Param mode %d", mode);
    }
    return valid;
}

}  // namespace

uint32_t KrvRelTmrStop(KrvRelTmrCtrl *ctrl, KrvRelTmrNode *node)
{
    assert(TmrHeld());
    switch (node->status) {
        case KRV_RELTMR_STATUS_RUNNING:
            WheelRemove(ctrl->buckets, node);
            KrvRelTmrFree(node);
            return KRV_OK;
        case KRV_RELTMR_STATUS_TIMEOUT:
            // Collected already: the trigger thread sees the mark and finishes the node without waiting here.
            node->status = KRV_RELTMR_STATUS_STOPPED;
            return KRV_OK;
        default:
            KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrStop]:status wrong,%u,%u", node->status, node->interval);
            return KRV_ERR_INVALID;
    }
}

uint32_t KrvRelTmrHandleStop(KrvRelTmrCtrl *ctrl, KrvRelTmrNode **handle)
{
    assert(TmrHeld());
    KrvRelTmrNode *node = *handle;
    if (node == nullptr) {
        return KRV_OK;
    }
    uint32_t ret = KrvRelTmrStop(ctrl, node);
    if (ret == KRV_OK) {
        // A stale handle still stops whatever its node runs now; the line tells the caller so.
        if (node->handleSlot != handle) {
            KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_RelTimerStop]:param invalid");
        }
        *handle = nullptr;
        node->handleSlot = nullptr;
    }
    return ret;
}

uint32_t KrvStartRelTimer(KrvRelTmrCtrl *ctrl, KrvRelTmrNode **handle, KrvRelTmrPool *pool, uint32_t intervalMs,
                          uint8_t mode, const KrvRelTmrFuncInfo *funcInfo)
{
    assert(TmrHeld());
    if (handle != nullptr && *handle != nullptr) {
        KrvRelTmrNode *old = *handle;
        if (old->handleSlot == handle) {
            uint32_t ret = KrvRelTmrStop(ctrl, old);
            if (ret != KRV_OK) {
                KRV_DIAG(ret, "[MERILUX-KrvStartRelTimer]:stop fail");
                return ret;
            }
            // A node still finishing on the trigger thread must not reach back into a handle that
            // now belongs to the new timer (or to memory the caller has released).
            old->handleSlot = nullptr;
        }
        *handle = nullptr;
    }
    KrvRelTmrNode *node = pool->freeHead;
    if (node->next == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KrvStartRelTimer]:no free reltimer");
        return KRV_ERR_NOMEM;
    }
    pool->freeHead = node->next;
    node->mode = mode;
    node->handleSlot = handle;
    node->pool = pool;
    node->callback = funcInfo->callback;
    node->param = funcInfo->param;
    node->interval = intervalMs / kMsPerTick;
    node->arg = funcInfo->arg;
    ++pool->usedCount;
    WheelInsert(ctrl->buckets, ctrl->curTick, node);
    if (handle != nullptr) {
        *handle = node;
    }
    return KRV_OK;
}

}  // namespace krv::reltmr

using namespace krv;
using namespace krv::reltmr;

extern "C" {

uint32_t KRV_CallBackRelTimerStart(KrvRelTmrNode **handle, KrvRelTmrPool *pool, uint32_t intervalMs, uint32_t mode,
                                   const KrvRelTmrFuncInfo *funcInfo)
{
    ModuleUse use;
    if (use.Get() == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_CallBackRelTimerStart]:relative timer module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    auto modeByte = static_cast<uint8_t>(mode);
    KrvRelTmrCtrl *ctrl = use.Get();
    // Checks and start share one critical section, so no other call can free the pool between the
    // check and its use.
    TmrLock(ctrl);
    bool valid = KrvRelTmrStartParamCheck(handle, pool, modeByte, funcInfo);
    uint32_t ret = valid ? KrvStartRelTimer(ctrl, handle, pool, intervalMs, modeByte, funcInfo) : KRV_ERR_INVALID;
    TmrUnlock(ctrl);
    if (!valid) {
        return KRV_ERR_INVALID;
    }
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "[MERILUX-KRV_CallBackRelTimerStart]:KrvStartRelTimer failed, ret is %u", ret);
    }
    return ret;
}

uint32_t KRV_RelTimerStop(KrvRelTmrNode **handle)
{
    ModuleUse use;
    if (use.Get() == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_RelTimerStop]:relative timer module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    if (handle == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_RelTimerStop]:param invalid");
        return KRV_ERR_INVALID;
    }
    KrvRelTmrCtrl *ctrl = use.Get();
    TmrLock(ctrl);
    uint32_t ret = KrvRelTmrHandleStop(ctrl, handle);
    TmrUnlock(ctrl);
    return ret;
}

}  // extern "C"
