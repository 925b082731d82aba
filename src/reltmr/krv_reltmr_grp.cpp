// Timer groups: arrays of timers sharing one pool and one callback, addressed by serial number.
#include <cassert>
#include <cstddef>
#include <cstdint>

#include "krv_osal.h"
#include "krv_osalsync.h"
#include "krv_reltmr.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "reltmr/krv_reltmr_internal.h"

namespace {
constexpr char kKrvSource[] = "krv_reltmr";
// Largest group whose record size is still accepted.
constexpr uint64_t kMaxGrpTimers = 0x1FFFFFFFFFFFFFF9ULL;
}  // namespace

namespace krv::reltmr {

namespace {

// Allocates a zeroed group record with room for timerCount handles; null (logged) on failure.
KrvRelTmrGrpInfo *KrvRelTmrGrpAlloc(uint64_t timerCount)
{
    if (timerCount > kMaxGrpTimers) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrGrpAlloc]:Param invalid(%u)", static_cast<unsigned>(timerCount));
        return nullptr;
    }
    uint64_t bytes = sizeof(KrvRelTmrGrpInfo) + timerCount * sizeof(KrvRelTmrNode *);
    auto *grp = static_cast<KrvRelTmrGrpInfo *>(KRV_OsalMemAlloc(bytes));
    if (grp == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KrvRelTmrGrpAlloc]:malloc failed, timer num is %zu", static_cast<size_t>(timerCount));
        return nullptr;
    }
    (void)krv::memset_s(grp, bytes, 0, bytes);
    return grp;
}

// True when grp is live, tmrSn addresses one of its timers and it has a callback and a live pool.
// Timer mutex held.
bool KrvRelTmrGrpInfoValidCheck(const KrvRelTmrGrpInfo *grp, uint64_t tmrSn)
{
    assert(TmrHeld());
    if (grp == nullptr || grp->initFlag != KRV_RELTMR_INIT_FLAG || tmrSn >= grp->timerCount ||
        grp->callback == nullptr || !KrvRelTmrPoolHandleValidCheck(grp->pool)) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrGrpInfoValidCheck]:grpInfo invalid, tmrSn is %zu.", static_cast<size_t>(tmrSn));
        return false;
    }
    return true;
}

// Adds delta (+1 or -1) to the pool's group count, which KRV_RelTimerFini reads under the timer mutex.
void KrvRelTmrGrpCountAdd(KrvRelTmrCtrl *ctrl, KrvRelTmrPool *pool, uint32_t delta)
{
    TmrLock(ctrl);
    pool->grpCount += delta;
    TmrUnlock(ctrl);
}

}  // namespace

}  // namespace krv::reltmr

using namespace krv;
using namespace krv::reltmr;

extern "C" {

uint32_t KRV_RelTimerGrpCreate(KrvRelTmrGrpInfo **timerGrp, KrvRelTmrPool *pool, uint64_t maxTimer,
                               KrvRelTmrCallBack callback)
{
    ModuleUse use;
    if (use.Get() == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_ReltimerGrpCreate]:relative timer module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    if (maxTimer == 0 || callback == nullptr || timerGrp == nullptr || !KrvRelTmrPoolHandleValidCheck(pool)) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_ReltimerGrpCreate]:Param invalid maxTimer(%u).", static_cast<unsigned>(maxTimer));
        return KRV_ERR_INVALID;
    }
    KrvRelTmrCtrl *ctrl = use.Get();
    KRV_OsalMutexLock(ctrl->grpMutex);
    KrvRelTmrGrpInfo *grp = KrvRelTmrGrpAlloc(maxTimer);
    if (grp == nullptr) {
        KRV_OsalMutexUnLock(ctrl->grpMutex);
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KRV_ReltimerGrpCreate]:Malloc fail");
        return KRV_ERR_NOMEM;
    }
    grp->timerCount = maxTimer;
    grp->initFlag = KRV_RELTMR_INIT_FLAG;
    grp->pool = pool;
    grp->callback = callback;
    KrvRelTmrGrpCountAdd(ctrl, pool, 1);
    *timerGrp = grp;
    KRV_OsalMutexUnLock(ctrl->grpMutex);
    return KRV_OK;
}

uint32_t KRV_RelTimerGrpFree(KrvRelTmrGrpInfo *timerGrp)
{
    ModuleUse use;
    if (use.Get() == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_RelTimerGrpFree]:relative timer module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    KrvRelTmrCtrl *ctrl = use.Get();
    KRV_OsalMutexLock(ctrl->grpMutex);
    if (timerGrp == nullptr || timerGrp->initFlag != KRV_RELTMR_INIT_FLAG) {
        KRV_OsalMutexUnLock(ctrl->grpMutex);
        KRV_DIAG(KRV_ERR_INVALID,
                 "[MERILUX-KRV_RelTimerGrpFree]:timerGrp is null, or (KrvRelTmrGrpInfo *)timerGrp->initFlag != "
                 "KRV_RELTMR_INIT_FLAG.");
        return KRV_ERR_INVALID;
    }
    for (uint64_t sn = 0; sn < timerGrp->timerCount; ++sn) {
        TmrLock(ctrl);
        uint32_t ret = KrvRelTmrHandleStop(ctrl, &timerGrp->handles[sn]);
        TmrUnlock(ctrl);
        if (ret != KRV_OK) {
            // The group stays valid so the caller can retry once the cause is gone.
            KRV_OsalMutexUnLock(ctrl->grpMutex);
            return ret;
        }
    }
    timerGrp->initFlag = kFreedFlag;
    KrvRelTmrGrpCountAdd(ctrl, timerGrp->pool, static_cast<uint32_t>(-1));
    KRV_OsalMutexUnLock(ctrl->grpMutex);
    KRV_OsalMemFree(timerGrp);
    return KRV_OK;
}

uint32_t KRV_RelTimerofGrpStart(KrvRelTmrGrpInfo *timerGrp, uint64_t tmrSn, uint32_t intervalMs, uint32_t param,
                                uint32_t mode)
{
    ModuleUse use;
    if (use.Get() == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_RelTimerofGrpStart]:relative timer module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    auto modeByte = static_cast<uint8_t>(mode);
    KrvRelTmrCtrl *ctrl = use.Get();
    KRV_OsalMutexLock(ctrl->grpMutex);
    // Checks and start share one critical section of the timer mutex, as a plain start does.
    TmrLock(ctrl);
    bool valid = KrvRelTmrGrpInfoValidCheck(timerGrp, tmrSn) && modeByte <= KRV_RELTMR_MODE_PERIODIC;
    uint32_t ret = KRV_ERR_INVALID;
    if (valid) {
        KrvRelTmrFuncInfo funcInfo = {timerGrp->callback, tmrSn, param};
        ret = KrvStartRelTimer(ctrl, &timerGrp->handles[tmrSn], timerGrp->pool, intervalMs, modeByte, &funcInfo);
    }
    TmrUnlock(ctrl);
    KRV_OsalMutexUnLock(ctrl->grpMutex);
    if (!valid) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_RelTimerofGrpStart]:Param invalid, mode is %u, tmrSn is %u", modeByte,
                 static_cast<unsigned>(tmrSn));
    } else if (ret != KRV_OK) {
        KRV_DIAG(ret, "[MERILUX-KRV_RelTimerofGrpStart]:KrvStartRelTimer failed, ret is %u", ret);
    }
    return ret;
}

uint32_t KRV_RelTimerofGrpStop(KrvRelTmrGrpInfo *timerGrp, uint64_t tmrSn)
{
    ModuleUse use;
    if (use.Get() == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "[MERILUX-KRV_RelTimerofGrpStop]:relative timer module has not been initialized!");
        return KRV_ERR_NOT_INIT;
    }
    KrvRelTmrCtrl *ctrl = use.Get();
    KRV_OsalMutexLock(ctrl->grpMutex);
    if (timerGrp == nullptr) {
        KRV_OsalMutexUnLock(ctrl->grpMutex);
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_RelTimerofGrpStop]:Param invalid.");
        return KRV_ERR_INVALID;
    }
    if (timerGrp->initFlag != KRV_RELTMR_INIT_FLAG || tmrSn >= timerGrp->timerCount) {
        uint64_t count = timerGrp->timerCount;
        uint32_t flag = timerGrp->initFlag;
        KRV_OsalMutexUnLock(ctrl->grpMutex);
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KRV_RelTimerofGrpStop]:Param invalid(%zu,%zu,%u)", static_cast<size_t>(tmrSn),
                 static_cast<size_t>(count), flag);
        return KRV_ERR_INVALID;
    }
    TmrLock(ctrl);
    uint32_t ret = KrvRelTmrHandleStop(ctrl, &timerGrp->handles[tmrSn]);
    // A handle that cannot be stopped refers to nothing live; keeping it would block the group's free.
    timerGrp->handles[tmrSn] = nullptr;
    TmrUnlock(ctrl);
    KRV_OsalMutexUnLock(ctrl->grpMutex);
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "[MERILUX-KRV_RelTimerofGrpStop]:Failed to stop timer.");
    }
    return ret;
}

}  // extern "C"
