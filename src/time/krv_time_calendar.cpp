// Month tables and leap-year counts of the Gregorian calendar.
#include "time/krv_time_calendar.h"

#include <cassert>

namespace krv::calendar {

namespace {
// Days before each month of a common year, and the whole year at index 12.
constexpr uint32_t kDaysBefore[kMonthsPerYear + 1] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
constexpr uint32_t kFebruary = 2;

// Leap years in 1 .. year - 1.
constexpr uint32_t LeapYearsBefore(uint32_t year)
{
    return (year - 1) / 4 - (year - 1) / 100 + (year - 1) / 400;
}
}  // namespace

uint32_t KrvMonthDays(uint32_t month, bool leap)
{
    assert(month >= 1 && month <= kMonthsPerYear);
    uint32_t days = kDaysBefore[month] - kDaysBefore[month - 1];
    return month == kFebruary && leap ? days + 1 : days;
}

uint32_t KrvDaysBeforeMonth(uint32_t month, bool leap)
{
    assert(month >= 1 && month <= kMonthsPerYear);
    uint32_t days = kDaysBefore[month - 1];
    return month > kFebruary && leap ? days + 1 : days;
}

uint32_t KrvLeapYearsSince1970(uint32_t year)
{
    assert(year >= kEpochYear);
    return LeapYearsBefore(year) - LeapYearsBefore(kEpochYear);
}

}  // namespace krv::calendar
