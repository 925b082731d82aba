// The lock-free clock's date arithmetic: a local-time snapshot advanced by the milliseconds since it.
#ifndef KRV_NOLOCKTIME_CARRY_H
#define KRV_NOLOCKTIME_CARRY_H

#include <cstdint>
#include <ctime>

#include "krv_time.h"
#include "time/krv_time_calendar.h"

namespace krv::nolocktime {

// Stores in date's year, month and day the snapshot's date moved on by daysCarried (at least 1).
void KrvNolockDaysCarry(const struct tm &snap, uint64_t daysCarried, KrvDateTime *date);

// Stores in *date the broken-down time snap (as localtime_r fills it: tm_sec, tm_min, tm_hour, tm_mday,
// tm_mon and tm_year are read) advanced by elapsedMs, carrying through seconds, minutes, hours, days,
// months and years; millisecond = elapsedMs mod 1000, microsecond = 0.
// For every normalised snap (fields in the ranges localtime_r produces, tm_sec at most 59) and every
// result year up to 65535 the result is the calendar's: the same as timegm(snap) + elapsedMs / 1000
// broken down by gmtime_r. Departures: a leap second in snap (tm_sec 60) simply carries into the next
// minute; result years above 65535 keep only their low 16 bits; the loop over whole years makes the
// cost grow with the years elapsed. The arithmetic knows no time zone: a daylight-saving change within
// elapsedMs is not applied. Inline, since every read runs it: only a carry past midnight leaves the caller.
inline void KrvNolockDateCarry(const struct tm &snap, uint64_t elapsedMs, KrvDateTime *date)
{
    uint64_t seconds = static_cast<uint64_t>(snap.tm_sec) + elapsedMs / calendar::kMsPerSecond;
    uint64_t minutes = static_cast<uint64_t>(snap.tm_min);
    uint64_t hours = static_cast<uint64_t>(snap.tm_hour);
    // Snapshots are at most a few seconds old, so usually nothing carries past the seconds.
    if (seconds >= calendar::kSecondsPerMinute) {
        minutes += seconds / calendar::kSecondsPerMinute;
        seconds %= calendar::kSecondsPerMinute;
        hours += minutes / calendar::kMinutesPerHour;
        minutes %= calendar::kMinutesPerHour;
    }
    if (hours < calendar::kHoursPerDay) {
        // Still the snapshot's day, which is what the walk through the year would give back.
        date->year = static_cast<uint16_t>(static_cast<uint32_t>(snap.tm_year) + calendar::kTmYearBase);
        date->month = static_cast<uint8_t>(snap.tm_mon + 1);
        date->day = static_cast<uint8_t>(snap.tm_mday);
    } else {
        KrvNolockDaysCarry(snap, hours / calendar::kHoursPerDay, date);
        hours %= calendar::kHoursPerDay;
    }
    date->hour = static_cast<uint8_t>(hours);
    date->minute = static_cast<uint8_t>(minutes);
    date->second = static_cast<uint8_t>(seconds);
    date->millisecond = static_cast<uint32_t>(elapsedMs % calendar::kMsPerSecond);
    date->microsecond = 0;
}

}  // namespace krv::nolocktime

#endif  // KRV_NOLOCKTIME_CARRY_H
