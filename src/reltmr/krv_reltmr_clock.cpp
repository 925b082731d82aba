// Elapsed monotonic time to whole ticks, with the remainder below a tick carried to the next pass.
#include "reltmr/krv_reltmr_clock.h"

#include <cstdint>

#include "log/krv_diag.h"

namespace {
constexpr char kKrvSource[] = "krv_reltmr";
constexpr uint64_t kNsPerSec = 1000000000;
constexpr uint64_t kTicksPerSec = 100;
// Largest second count whose tick count still fits a signed 64-bit number.
constexpr uint64_t kMaxSeconds = 92233720368547758ULL;
constexpr uint64_t kMaxTicks = INT64_MAX;
}  // namespace

namespace krv::reltmr {

namespace {

// Stores now in ctrl and returns the time since the stored reading; a reading earlier than the
// stored one is refused and the stored one kept, so a backward step costs one pass, not a jump.
bool KrvRelTmrPassTimeCal(KrvRelTmrCtrl *ctrl, uint64_t nowSec, uint64_t nowNsec, uint64_t *passSec,
                          uint64_t *passNsec)
{
    if (nowSec < ctrl->lastSec || (nowSec == ctrl->lastSec && nowNsec < ctrl->lastNsec)) {
        KRV_DIAG(KRV_ERR_INVALID,
                 "[MERILUX-KrvRelTmrPassTimeCal]:the new time: senconds %d nano seconds %d is earlier than the old "
                 "time :senconds %d nano seconds %d",
                 static_cast<int>(nowSec), static_cast<int>(nowNsec), static_cast<int>(ctrl->lastSec),
                 static_cast<int>(ctrl->lastNsec));
        return false;
    }
    if (nowNsec >= ctrl->lastNsec) {
        *passSec = nowSec - ctrl->lastSec;
        *passNsec = nowNsec - ctrl->lastNsec;
    } else {
        *passSec = nowSec - ctrl->lastSec - 1;
        *passNsec = nowNsec + kNsPerSec - ctrl->lastNsec;
    }
    ctrl->lastSec = nowSec;
    ctrl->lastNsec = nowNsec;
    return true;
}

// Converts an elapsed time to ticks, adding the carried residual; the new residual stays below a tick.
// Refuses (residual untouched) a time whose tick count would not fit a signed 64-bit number.
bool KrvRelTmrTimeToTick(KrvRelTmrCtrl *ctrl, uint64_t sec, uint64_t nsec, uint64_t *ticks)
{
    if (sec > kMaxSeconds) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrTimeToTick]:the time seconds %d is too big", static_cast<int>(sec));
        return false;
    }
    uint64_t residual = ctrl->residualNs + nsec;
    uint64_t secondTicks = sec * kTicksPerSec;
    if (residual < nsec || residual / kNsPerTick > kMaxTicks - secondTicks) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvRelTmrTimeToTick]:the time seconds %d and the nanoseconds %d is too big",
                 static_cast<int>(sec), static_cast<int>(nsec));
        return false;
    }
    *ticks = secondTicks + residual / kNsPerTick;
    ctrl->residualNs = residual % kNsPerTick;
    return true;
}

}  // namespace

bool KrvPassTickGet(KrvRelTmrCtrl *ctrl, uint64_t nowSec, uint64_t nowNsec, uint64_t *ticks)
{
    *ticks = 0;
    if (ctrl->lastSec == 0 && ctrl->lastNsec == 0) {
        ctrl->lastSec = nowSec;
        ctrl->lastNsec = nowNsec;
        return true;
    }
    uint64_t passSec = 0;
    uint64_t passNsec = 0;
    if (!KrvRelTmrPassTimeCal(ctrl, nowSec, nowNsec, &passSec, &passNsec)) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvPassTickGet]:Time pass calculate failed.");
        return false;
    }
    if (!KrvRelTmrTimeToTick(ctrl, passSec, passNsec, ticks)) {
        KRV_DIAG(KRV_ERR_INVALID, "[MERILUX-KrvPassTickGet]:seconds %d and nano seconds %d transfer to ticks failed.",
                 static_cast<int>(passSec), static_cast<int>(passNsec));
        return false;
    }
    return true;
}

}  // namespace krv::reltmr
