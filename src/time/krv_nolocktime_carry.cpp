// Carrying elapsed milliseconds into a broken-down local time without the C library, so that the
// lock-free clock needs neither a lock nor a system call.
#include "time/krv_nolocktime_carry.h"

#include "time/krv_time_calendar.h"

namespace krv::nolocktime {

using namespace krv::calendar;

namespace {

constexpr uint64_t kLongestMonthDays = 31;

// Moves the snapshot's date on by daysCarried (at least 1) through its day of the year.
void KrvNolockDaysCarry(const struct tm &snap, uint64_t daysCarried, KrvDateTime *date)
{
    uint32_t year = static_cast<uint32_t>(snap.tm_year) + kTmYearBase;
    // Day of the snapshot's year, 1-based, plus the whole days carried.
    uint64_t days = static_cast<uint64_t>(snap.tm_mday) + daysCarried +
                    KrvDaysBeforeMonth(static_cast<uint32_t>(snap.tm_mon) + 1, KrvIsLeap(year));
    while (days > kLeapYearDays) {
        days -= KrvIsLeap(year) ? kLeapYearDays : kCommonYearDays;
        ++year;
    }
    bool leap = KrvIsLeap(year);
    uint32_t month = 1;
    if (days == kLeapYearDays && !leap) {
        ++year;  // day 366 of a common year is 1 January of the next
        days = 1;
    } else {
        // Walk the months while more than a longest month remains; days 32..62 land in February at once.
        while (days > kLongestMonthDays) {
            days -= KrvMonthDays(month, leap);
            ++month;
        }
        // What remains may pass the month's end: February's 29th..31st, the 31st of a 30-day month.
        // December is never passed, since what remains is at most 31.
        uint32_t monthDays = KrvMonthDays(month, leap);
        if (days > monthDays) {
            days -= monthDays;
            ++month;
        }
    }
    date->year = static_cast<uint16_t>(year);
    date->month = static_cast<uint8_t>(month);
    date->day = static_cast<uint8_t>(days);
}

}  // namespace

void KrvNolockDateCarry(const struct tm &snap, uint64_t elapsedMs, KrvDateTime *date)
{
    uint64_t seconds = static_cast<uint64_t>(snap.tm_sec) + elapsedMs / kMsPerSecond;
    uint64_t minutes = static_cast<uint64_t>(snap.tm_min);
    uint64_t hours = static_cast<uint64_t>(snap.tm_hour);
    // Snapshots are at most a few seconds old, so usually nothing carries past the seconds.
    if (seconds >= kSecondsPerMinute) {
        minutes += seconds / kSecondsPerMinute;
        seconds %= kSecondsPerMinute;
        hours += minutes / kMinutesPerHour;
        minutes %= kMinutesPerHour;
    }
    if (hours < kHoursPerDay) {
        // Still the snapshot's day, which is what the walk through the year would give back.
        date->year = static_cast<uint16_t>(static_cast<uint32_t>(snap.tm_year) + kTmYearBase);
        date->month = static_cast<uint8_t>(snap.tm_mon + 1);
        date->day = static_cast<uint8_t>(snap.tm_mday);
    } else {
        KrvNolockDaysCarry(snap, hours / kHoursPerDay, date);
        hours %= kHoursPerDay;
    }
    date->hour = static_cast<uint8_t>(hours);
    date->minute = static_cast<uint8_t>(minutes);
    date->second = static_cast<uint8_t>(seconds);
    date->millisecond = static_cast<uint32_t>(elapsedMs % kMsPerSecond);
    date->microsecond = 0;
}

}  // namespace krv::nolocktime
