// Turns monotonic clock readings into whole 10 ms ticks for the trigger thread.
#ifndef KRV_RELTMR_CLOCK_H
#define KRV_RELTMR_CLOCK_H

#include <cstdint>

#include "reltmr/krv_reltmr_internal.h"

namespace krv::reltmr {

// Ticks elapsed since the reading stored in ctrl (0 on the first reading), carrying the part below a
// tick in ctrl->residualNs. Returns false, logging why, when the clock went backwards or the elapsed
// time cannot be expressed; the wheel must then not move.
bool KrvPassTickGet(KrvRelTmrCtrl *ctrl, uint64_t nowSec, uint64_t nowNsec, uint64_t *ticks);

}  // namespace krv::reltmr

#endif  // KRV_RELTMR_CLOCK_H
