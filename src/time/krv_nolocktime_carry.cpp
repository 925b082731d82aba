// Carrying elapsed milliseconds into a broken-down local time without the C library, so that the
// lock-free clock needs neither a lock nor a system call.
#include "time/krv_nolocktime_carry.h"

#include "time/krv_time_calendar.h"

namespace krv::nolocktime {

using namespace krv::calendar;

namespace {

constexpr uint64_t kLongestMonthDays = 31;

}  // namespace

// Walks through the snapshot's day of the year.
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

}  // namespace krv::nolocktime
