// Calendar time: the check, conversions against the C library, comparison, formatting and the
// source of "now".
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <random>
#include <string>

#include "krv_time.h"
#include "support/krv_test_support.h"
#include "time/krv_time_calendar.h"

namespace {

KrvDateTime Date(uint16_t year, uint8_t month, uint8_t day, uint8_t hour = 0, uint8_t minute = 0, uint8_t second = 0,
                 uint32_t ms = 0, uint32_t us = 0)
{
    return KrvDateTime{year, month, day, hour, minute, second, ms, us};
}

bool Same(const KrvDateTime &a, const KrvDateTime &b)
{
    return krvtest::DateText(a) == krvtest::DateText(b);
}

// The date without its sub-second part.
KrvDateTime ToSecond(KrvDateTime d)
{
    d.millisecond = 0;
    d.microsecond = 0;
    return d;
}

TEST(CalendarTime, LeapYearsCountedInConstantTimeMatchTheYearByYearCount)
{
    uint32_t counted = 0;
    for (uint32_t year = 1970; year <= 65535; ++year) {
        ASSERT_EQ(krv::calendar::KrvLeapYearsSince1970(year), counted) << year;
        counted += KRV_IsLeapYear(year);
    }
    for (uint32_t year : {1600u, 2000u, 2024u, 65532u}) {
        EXPECT_TRUE(KRV_IsLeapYear(year)) << year;
    }
    for (uint32_t year : {1900u, 2023u, 2100u, 65535u}) {
        EXPECT_FALSE(KRV_IsLeapYear(year)) << year;
    }
}

TEST(CalendarTime, CheckAcceptsExactlyTheFieldRanges)
{
    // Every month's last day, as the C library counts it, passes and the day after fails.
    for (uint16_t year : {2000, 2023, 2024, 2100}) {
        for (uint8_t month = 1; month <= 12; ++month) {
            struct tm next {};
            next.tm_year = year - 1900;
            next.tm_mon = month;  // day 0 of the next month is this month's last
            timegm(&next);
            const KrvDateTime last = Date(year, month, static_cast<uint8_t>(next.tm_mday));
            KrvDateTime beyond = last;
            ++beyond.day;
            EXPECT_TRUE(KRV_DateTimeCheck(&last)) << krvtest::DateText(last);
            EXPECT_FALSE(KRV_DateTimeCheck(&beyond)) << krvtest::DateText(beyond);
        }
    }
    const std::pair<KrvDateTime, bool> cases[] = {
        {Date(1970, 1, 1), true},          {Date(65535, 12, 31, 23, 59, 59, 999, 999), true},
        {Date(1969, 12, 31), false},       {Date(2023, 0, 1), false},
        {Date(2023, 13, 1), false},        {Date(2023, 1, 0), false},
        {Date(2023, 1, 1, 24), false},     {Date(2023, 1, 1, 0, 60), false},
        {Date(2023, 1, 1, 0, 0, 60), false}, {Date(2023, 1, 1, 0, 0, 0, 1000), false},
        {Date(2023, 1, 1, 0, 0, 0, 0, 1000), false},
    };
    for (const auto &[date, valid] : cases) {
        EXPECT_EQ(KRV_DateTimeCheck(&date), valid) << krvtest::DateText(date);
    }
    EXPECT_FALSE(KRV_DateTimeCheck(nullptr));

    // Every operation that checks refuses an invalid date with its failure value and writes nothing.
    const KrvDateTime bad = Date(2023, 1, 1, 0, 0, 0, 1000);
    const KrvDateTime good = Date(2023, 1, 1);
    int64_t out = 7;
    char text[KRV_DATE_STR_LEN] = "untouched";
    EXPECT_EQ(KRV_DateToUtcTimeConvert(&bad, &out), 1u);
    EXPECT_EQ(KRV_DateToUtcTimeConvert(nullptr, &out), 1u);
    EXPECT_EQ(KRV_DateToUtcTimeConvert(&good, nullptr), 1u);
    EXPECT_EQ(KRV_DateTimeCompare(&bad, &good, &out), KRV_DATE_CMP_FAILED);
    EXPECT_EQ(KRV_DateTimeCompare(&good, &bad, &out), KRV_DATE_CMP_FAILED);
    EXPECT_EQ(KRV_DateTimeCompare(nullptr, &good, &out), KRV_DATE_CMP_FAILED);
    EXPECT_EQ(KRV_DateToStrConvert(&bad, text), 1u);
    EXPECT_EQ(KRV_DateToStrConvert(nullptr, text), 1u);
    EXPECT_EQ(KRV_DateToStrConvert(&good, nullptr), 1u);
    EXPECT_EQ(out, 7);
    EXPECT_STREQ(text, "untouched");
}

TEST(CalendarTime, ConversionsAgreeWithTheCLibraryFrom1970To65535)
{
    const std::pair<KrvDateTime, int64_t> examples[] = {
        {Date(1970, 1, 1), 0},
        {Date(1972, 3, 1), 68256000},
        {Date(2000, 2, 29, 12, 34, 56, 999, 999), 951827696},  // sub-second fields are ignored
        {Date(65535, 12, 31, 23, 59, 59), KRV_UTC_TIME_MAX},
    };
    for (const auto &[date, seconds] : examples) {
        int64_t utc = -2;
        EXPECT_EQ(KRV_DateToUtcTimeConvert(&date, &utc), 0u) << krvtest::DateText(date);
        EXPECT_EQ(utc, seconds) << krvtest::DateText(date);
    }
    KrvDateTime back{};
    EXPECT_EQ(KRV_UtcTimeToDateConvert(KRV_UTC_TIME_MAX, &back), 0u);
    EXPECT_TRUE(Same(back, Date(65535, 12, 31, 23, 59, 59)));

    std::mt19937_64 rng(20240229);
    std::uniform_int_distribution<int64_t> anySecond(0, KRV_UTC_TIME_MAX);
    for (int i = 0; i < 200000; ++i) {
        const time_t seconds = anySecond(rng);
        struct tm ref {};
        ASSERT_NE(gmtime_r(&seconds, &ref), nullptr);
        KrvDateTime expected = Date(static_cast<uint16_t>(ref.tm_year + 1900), static_cast<uint8_t>(ref.tm_mon + 1),
                                    static_cast<uint8_t>(ref.tm_mday), static_cast<uint8_t>(ref.tm_hour),
                                    static_cast<uint8_t>(ref.tm_min), static_cast<uint8_t>(ref.tm_sec));
        KrvDateTime date{1, 2, 3, 4, 5, 6, 7, 8};
        ASSERT_EQ(KRV_UtcTimeToDateConvert(seconds, &date), 0u) << seconds;
        ASSERT_TRUE(Same(date, expected)) << seconds << ": " << krvtest::DateText(date);
        expected.millisecond = static_cast<uint32_t>(i % 1000);
        int64_t utc = -2;
        ASSERT_EQ(KRV_DateToUtcTimeConvert(&expected, &utc), 0u) << krvtest::DateText(expected);
        ASSERT_EQ(utc, timegm(&ref)) << krvtest::DateText(expected);
    }

    // Above the last second of 65535, or with no date, nothing is written.
    const KrvDateTime untouched = Date(2001, 2, 3);
    KrvDateTime date = untouched;
    EXPECT_EQ(KRV_UtcTimeToDateConvert(KRV_UTC_TIME_MAX + 1, &date), 22u);
    EXPECT_EQ(KRV_UtcTimeToDateConvert(INT64_MAX, &date), 22u);
    EXPECT_EQ(KRV_UtcTimeToDateConvert(0, nullptr), 22u);
    // Negative seconds follow the C library while the year fits the record; earlier ones, or ones the
    // C library cannot break down, are refused.
    EXPECT_EQ(KRV_UtcTimeToDateConvert(-62167219200 - 1, &date), 22u);  // 31 December of the year -1
    EXPECT_EQ(KRV_UtcTimeToDateConvert(INT64_MIN, &date), 22u);
    EXPECT_TRUE(Same(date, untouched));
    EXPECT_EQ(KRV_UtcTimeToDateConvert(-1, &date), 0u);
    EXPECT_TRUE(Same(date, Date(1969, 12, 31, 23, 59, 59)));
    EXPECT_FALSE(KRV_DateTimeCheck(&date));
    EXPECT_EQ(KRV_UtcTimeToDateConvert(-62167219200, &date), 0u);
    EXPECT_TRUE(Same(date, Date(0, 1, 1)));
}

TEST(CalendarTime, CompareOrdersToTheSecond)
{
    const KrvDateTime a = Date(2024, 2, 29, 10, 0, 0, 1);
    const KrvDateTime b = Date(2024, 3, 1, 9, 59, 59, 999, 999);
    int64_t diff = 99;
    EXPECT_EQ(KRV_DateTimeCompare(&a, &a, &diff), KRV_DATE_CMP_EQUAL);
    EXPECT_EQ(diff, 0);
    EXPECT_EQ(KRV_DateTimeCompare(&a, &b, &diff), KRV_DATE_CMP_EARLIER);
    EXPECT_EQ(diff, -86399);
    EXPECT_EQ(KRV_DateTimeCompare(&b, &a, &diff), KRV_DATE_CMP_LATER);
    EXPECT_EQ(diff, 86399);
    EXPECT_EQ(KRV_DateTimeCompare(&b, &a, nullptr), KRV_DATE_CMP_LATER);
    const KrvDateTime aLater = Date(2024, 2, 29, 10, 0, 0, 999, 999);  // differs below the second only
    EXPECT_EQ(KRV_DateTimeCompare(&a, &aLater, &diff), KRV_DATE_CMP_EQUAL);
    EXPECT_EQ(diff, 0);
}

TEST(CalendarTime, FormatsTheFixedFormAlwaysAsSunday)
{
    const std::pair<KrvDateTime, std::string> cases[] = {
        {Date(1972, 3, 1), "Sun Mar  1 00:00:00 1972\n"},
        {Date(2024, 2, 29, 13, 5, 9, 999), "Sun Feb 29 13:05:09 2024\n"},  // a Thursday
        {Date(9999, 12, 31, 23, 59, 59), "Sun Dec 31 23:59:59 9999\n"},
    };
    for (const auto &[date, expected] : cases) {
        char text[KRV_DATE_STR_LEN + 1];
        std::memset(text, 'x', sizeof(text));
        EXPECT_EQ(KRV_DateToStrConvert(&date, text), 0u);
        EXPECT_EQ(std::string(text), expected);
        EXPECT_EQ(text[KRV_DATE_STR_LEN], 'x');  // exactly 26 bytes written
    }
    // A five-digit year does not fit the form: refused, buffer untouched.
    const KrvDateTime far = Date(10000, 1, 1);
    char text[KRV_DATE_STR_LEN] = "untouched";
    EXPECT_EQ(KRV_DateToStrConvert(&far, text), 1u);
    EXPECT_STREQ(text, "untouched");
}

// The time function this binary registers: the fake value when set, else the system clock, so that
// once registered (there is no unregistration) it behaves like no function at all.
std::atomic<int64_t> g_fakeNow{-1};
int64_t FakeNow()
{
    int64_t fake = g_fakeNow;
    return fake >= 0 ? fake : static_cast<int64_t>(time(nullptr));
}

// Sets TZ for its lifetime and restores the previous value.
class ScopedTz {
public:
    explicit ScopedTz(const char *tz)
    {
        if (const char *old = std::getenv("TZ")) {
            saved_ = old;
        }
        setenv("TZ", tz, 1);
        tzset();
    }
    ~ScopedTz()
    {
        if (saved_) {
            setenv("TZ", saved_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    ScopedTz(const ScopedTz &) = delete;
    ScopedTz &operator=(const ScopedTz &) = delete;

private:
    std::optional<std::string> saved_;
};

TEST(CalendarTime, NowComesFromTheRegisteredFunctionAsStandardTime)
{
    time_t before = time(nullptr);
    int64_t now = KRV_CurrentSysTimeGet();
    EXPECT_TRUE(now >= before && now <= time(nullptr));

    KRV_SysTimeFuncReg(FakeNow);
    g_fakeNow = 68256000;
    EXPECT_EQ(KRV_CurrentSysTimeGet(), 68256000);
    KRV_SysTimeFuncReg(nullptr);  // ignored: the registered function stays
    EXPECT_EQ(KRV_CurrentSysTimeGet(), 68256000);

    KrvDateTime date = Date(2001, 2, 3);
    {
        // 1 July 2024 12:00 UTC falls in daylight saving time there; only the standard offset applies.
        ScopedTz tz("EST5EDT,M3.2.0,M11.1.0");
        g_fakeNow = 1719835200;
        EXPECT_EQ(KRV_SysTimeGet(&date), 0u);
        EXPECT_TRUE(Same(ToSecond(date), Date(2024, 7, 1, 7))) << krvtest::DateText(date);
        ScopedTz india("IST-5:30");
        EXPECT_EQ(KRV_SysTimeGet(&date), 0u);
        EXPECT_TRUE(Same(ToSecond(date), Date(2024, 7, 1, 17, 30))) << krvtest::DateText(date);
        EXPECT_EQ(KRV_SysTimeGet(nullptr), 22u);
        g_fakeNow = 0;
        date = Date(2001, 2, 3);
        EXPECT_EQ(KRV_SysTimeGet(&date), 22u);
        EXPECT_TRUE(Same(date, Date(2001, 2, 3)));
        g_fakeNow = KRV_UTC_TIME_MAX + 1;  // past the last convertible second even before the offset
        EXPECT_EQ(KRV_SysTimeGet(&date), 22u);
    }
    g_fakeNow = 1719835200;

    // The sub-second part is the system clock's even under a fake second: bracket it within one second.
    bool bracketed = false;
    for (int i = 0; i < 1000 && !bracketed; ++i) {
        timeval lo{};
        timeval hi{};
        gettimeofday(&lo, nullptr);
        ASSERT_EQ(KRV_SysTimeGet(&date), 0u);
        gettimeofday(&hi, nullptr);
        if (lo.tv_sec != hi.tv_sec) {
            continue;
        }
        bracketed = true;
        long us = static_cast<long>(date.millisecond) * 1000 + date.microsecond;
        EXPECT_TRUE(date.millisecond <= 999 && date.microsecond <= 999);
        EXPECT_TRUE(us >= lo.tv_usec && us <= hi.tv_usec) << lo.tv_usec << " " << us << " " << hi.tv_usec;
    }
    EXPECT_TRUE(bracketed);
    g_fakeNow = -1;
}

}  // namespace
