// The lock-free clock's date arithmetic: a local-time snapshot advanced by the milliseconds since it.
#ifndef KRV_NOLOCKTIME_CARRY_H
#define KRV_NOLOCKTIME_CARRY_H

#include <cstdint>
#include <ctime>

#include "krv_time.h"

namespace krv::nolocktime {

// Stores in *date the broken-down time snap (as localtime_r fills it: tm_sec, tm_min, tm_hour, tm_mday,
// tm_mon and tm_year are read) advanced by elapsedMs, carrying through seconds, minutes, hours, days,
// months and years; millisecond = elapsedMs mod 1000, microsecond = 0.
// For every normalised snap (fields in the ranges localtime_r produces, tm_sec at most 59) and every
// result year up to 65535 the result is the calendar's: the same as timegm(snap) + elapsedMs / 1000
// broken down by gmtime_r. Departures: a leap second in snap (tm_sec 60) simply carries into the next
// minute; result years above 65535 keep only their low 16 bits; the loop over whole years makes the
// cost grow with the years elapsed. The arithmetic knows no time zone: a daylight-saving change within
// elapsedMs is not applied.
void KrvNolockDateCarry(const struct tm &snap, uint64_t elapsedMs, KrvDateTime *date);

}  // namespace krv::nolocktime

#endif  // KRV_NOLOCKTIME_CARRY_H
