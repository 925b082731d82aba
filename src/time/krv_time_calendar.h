// Gregorian month lengths and day counts shared by the date conversions and the lock-free clock.
// Inline: the lock-free clock's reader runs them on every call.
#ifndef KRV_TIME_CALENDAR_H
#define KRV_TIME_CALENDAR_H

#include <cassert>
#include <cstdint>

namespace krv::calendar {

constexpr uint32_t kEpochYear = 1970;
constexpr int kTmYearBase = 1900;  // struct tm counts years from here
constexpr uint32_t kMonthsPerYear = 12;
constexpr uint32_t kCommonYearDays = 365;
constexpr uint32_t kLeapYearDays = 366;
constexpr uint32_t kHoursPerDay = 24;
constexpr uint32_t kMinutesPerHour = 60;
constexpr uint32_t kSecondsPerMinute = 60;
constexpr uint32_t kMsPerSecond = 1000;

// Days before each month of a common year, and the whole year at index 12.
constexpr uint32_t kDaysBefore[kMonthsPerYear + 1] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
constexpr uint32_t kFebruary = 2;

// Divisible by 4 and not by 100, or by 400.
constexpr bool KrvIsLeap(uint32_t year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Days in month (1..12) of a leap (leap true) or common year.
inline uint32_t KrvMonthDays(uint32_t month, bool leap)
{
    assert(month >= 1 && month <= kMonthsPerYear);
    uint32_t days = kDaysBefore[month] - kDaysBefore[month - 1];
    return month == kFebruary && leap ? days + 1 : days;
}

// Days of the year before the first of month (1..12): 0, 31, 59, ..., one more from March on in a leap year.
inline uint32_t KrvDaysBeforeMonth(uint32_t month, bool leap)
{
    assert(month >= 1 && month <= kMonthsPerYear);
    uint32_t days = kDaysBefore[month - 1];
    return month > kFebruary && leap ? days + 1 : days;
}

// Leap years in 1 .. year - 1.
constexpr uint32_t KrvLeapYearsBefore(uint32_t year)
{
    return (year - 1) / 4 - (year - 1) / 100 + (year - 1) / 400;
}

// Leap years from 1970 up to but not including year (year >= 1970), in constant time.
inline uint32_t KrvLeapYearsSince1970(uint32_t year)
{
    assert(year >= kEpochYear);
    return KrvLeapYearsBefore(year) - KrvLeapYearsBefore(kEpochYear);
}

}  // namespace krv::calendar

#endif  // KRV_TIME_CALENDAR_H
