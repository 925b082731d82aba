// Gregorian month lengths and day counts shared by the date conversions and the lock-free clock.
#ifndef KRV_TIME_CALENDAR_H
#define KRV_TIME_CALENDAR_H

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

// Days in month (1..12) of a leap (leap true) or common year.
uint32_t KrvMonthDays(uint32_t month, bool leap);
// Days of the year before the first of month (1..12): 0, 31, 59, ..., one more from March on in a leap year.
uint32_t KrvDaysBeforeMonth(uint32_t month, bool leap);
// Leap years from 1970 up to but not including year (year >= 1970), in constant time.
uint32_t KrvLeapYearsSince1970(uint32_t year);

}  // namespace krv::calendar

#endif  // KRV_TIME_CALENDAR_H
