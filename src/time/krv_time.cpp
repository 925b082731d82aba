// Calendar time: the replaceable source of "now", date checks, and conversions between broken-down
// dates and seconds since 1970. Dates convert as UTC; only KRV_SysTimeGet applies the local offset.
#include "krv_time.h"

#include <sys/time.h>

#include <atomic>
#include <cstring>
#include <ctime>

#include "krv_status.h"
#include "time/krv_time_calendar.h"

namespace {

using namespace krv::calendar;

constexpr int64_t kSecPerHour = int64_t{kMinutesPerHour} * kSecondsPerMinute;
constexpr int64_t kSecPerDay = kSecPerHour * kHoursPerDay;
constexpr uint32_t kUsPerMs = 1000;

// Written at start-up, read by every KRV_CurrentSysTimeGet; atomic so that a late registration is no
// data race, and released so that whatever the function set up before registering it is seen with it.
std::atomic<KrvSysTimeFunc> g_sysTimeFunc{nullptr};

// Seconds since 1970 of a checked date taken as UTC; the leap days are counted from 1970.
int64_t KrvDateSeconds(const KrvDateTime *date)
{
    int64_t days = static_cast<int64_t>(KrvLeapYearsSince1970(date->year)) + date->day +
                   (static_cast<int64_t>(date->year) - kEpochYear) * kCommonYearDays +
                   KrvDaysBeforeMonth(date->month, KrvIsLeap(date->year)) - 1;
    return date->hour * kSecPerHour + days * kSecPerDay + date->second + date->minute * int64_t{kSecondsPerMinute};
}

}  // namespace

void KRV_SysTimeFuncReg(KrvSysTimeFunc func)
{
    if (func != nullptr) {
        g_sysTimeFunc.store(func, std::memory_order_release);
    }
}

int64_t KRV_CurrentSysTimeGet(void)
{
    KrvSysTimeFunc func = g_sysTimeFunc.load(std::memory_order_acquire);
    return func != nullptr ? func() : static_cast<int64_t>(time(nullptr));
}

bool KRV_IsLeapYear(uint32_t year)
{
    return KrvIsLeap(year);
}

bool KRV_DateTimeCheck(const KrvDateTime *date)
{
    if (date == nullptr || date->year < kEpochYear || date->month < 1 || date->month > kMonthsPerYear ||
        date->day == 0 || date->day > KrvMonthDays(date->month, KrvIsLeap(date->year))) {
        return false;
    }
    return date->hour < kHoursPerDay && date->minute < kMinutesPerHour && date->second < kSecondsPerMinute &&
           date->millisecond < kMsPerSecond && date->microsecond < kUsPerMs;
}

uint32_t KRV_DateToStrConvert(const KrvDateTime *date, char *buf)
{
    if (buf == nullptr || !KRV_DateTimeCheck(date)) {
        return KRV_ERR_FAILED;
    }
    // The weekday stays 0, so every date prints as a Sunday; callers know that form.
    struct tm broken {};
    broken.tm_year = date->year - kTmYearBase;
    broken.tm_mon = date->month - 1;
    broken.tm_mday = date->day;
    broken.tm_hour = date->hour;
    broken.tm_min = date->minute;
    broken.tm_sec = date->second;
    // Formatted aside so that a year beyond four digits, which the form cannot hold, leaves buf untouched.
    char text[KRV_DATE_STR_LEN];
    if (asctime_r(&broken, text) == nullptr) {
        return KRV_ERR_FAILED;
    }
    std::memcpy(buf, text, sizeof(text));
    return KRV_OK;
}

uint32_t KRV_DateToUtcTimeConvert(const KrvDateTime *date, int64_t *utc)
{
    if (utc == nullptr || !KRV_DateTimeCheck(date)) {
        return KRV_ERR_FAILED;
    }
    int64_t seconds = KrvDateSeconds(date);
    if (seconds < 0) {  // documented result; the check's year floor keeps every valid date at 0 or above
        *utc = -1;
        return KRV_ERR_FAILED;
    }
    *utc = seconds;
    return KRV_OK;
}

uint32_t KRV_DateTimeCompare(const KrvDateTime *a, const KrvDateTime *b, int64_t *diff)
{
    int64_t secondsA = 0;
    int64_t secondsB = 0;
    if (!KRV_DateTimeCheck(a) || !KRV_DateTimeCheck(b) || KRV_DateToUtcTimeConvert(a, &secondsA) != KRV_OK ||
        KRV_DateToUtcTimeConvert(b, &secondsB) != KRV_OK) {
        return KRV_DATE_CMP_FAILED;
    }
    int64_t delta = secondsA - secondsB;
    if (diff != nullptr) {
        *diff = delta;
    }
    if (delta < 0) {
        return KRV_DATE_CMP_EARLIER;
    }
    return delta > 0 ? KRV_DATE_CMP_LATER : KRV_DATE_CMP_EQUAL;
}

uint32_t KRV_UtcTimeToDateConvert(int64_t utc, KrvDateTime *date)
{
    if (utc > KRV_UTC_TIME_MAX || date == nullptr) {
        return KRV_ERR_INVALID;
    }
    const time_t seconds = static_cast<time_t>(utc);
    struct tm broken {};
    // A year below 0 would wrap in the 16-bit field into one the check accepts, so it is refused.
    if (gmtime_r(&seconds, &broken) == nullptr || broken.tm_year < -kTmYearBase) {
        return KRV_ERR_INVALID;
    }
    date->year = static_cast<uint16_t>(broken.tm_year + kTmYearBase);
    date->month = static_cast<uint8_t>(broken.tm_mon + 1);
    date->day = static_cast<uint8_t>(broken.tm_mday);
    date->hour = static_cast<uint8_t>(broken.tm_hour);
    date->minute = static_cast<uint8_t>(broken.tm_min);
    date->second = static_cast<uint8_t>(broken.tm_sec);
    date->millisecond = 0;
    date->microsecond = 0;
    return KRV_OK;
}

uint32_t KRV_SysTimeGet(KrvDateTime *date)
{
    tzset();
    int64_t now = KRV_CurrentSysTimeGet();
    if (now == 0) {
        return KRV_ERR_INVALID;
    }
    // The standard-time offset only: daylight saving is deliberately not applied.
    uint32_t ret = KRV_UtcTimeToDateConvert(now - timezone, date);
    if (ret != KRV_OK) {
        return ret;
    }
    // The sub-second part always comes from the system clock, also under a registered time function.
    struct timeval tv {};
    gettimeofday(&tv, nullptr);
    date->millisecond = static_cast<uint32_t>(tv.tv_usec / static_cast<long>(kUsPerMs));
    date->microsecond = static_cast<uint32_t>(tv.tv_usec % static_cast<long>(kUsPerMs));
    return KRV_OK;
}
