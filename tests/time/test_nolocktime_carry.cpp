// The lock-free clock's arithmetic, driven exactly: snapshots advanced by chosen milliseconds,
// against the C library's calendar.
#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>

#include "support/krv_test_support.h"
#include "time/krv_nolocktime_carry.h"

using krv::nolocktime::KrvNolockDateCarry;

namespace {

struct tm Snap(int year, int month, int day, int hour, int minute, int second)
{
    struct tm t {};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    return t;
}

std::string Carry(const struct tm &snap, uint64_t elapsedMs)
{
    KrvDateTime date{1, 2, 3, 4, 5, 6, 7, 8};
    KrvNolockDateCarry(snap, elapsedMs, &date);
    return krvtest::DateText(date);
}

// What the calendar says: the snapshot as UTC seconds, advanced, broken down again.
std::string Reference(const struct tm &snap, uint64_t elapsedMs)
{
    struct tm copy = snap;
    time_t seconds = timegm(&copy) + static_cast<time_t>(elapsedMs / 1000);
    struct tm out {};
    gmtime_r(&seconds, &out);
    KrvDateTime d{static_cast<uint16_t>(out.tm_year + 1900), static_cast<uint8_t>(out.tm_mon + 1),
                  static_cast<uint8_t>(out.tm_mday),         static_cast<uint8_t>(out.tm_hour),
                  static_cast<uint8_t>(out.tm_min),          static_cast<uint8_t>(out.tm_sec),
                  static_cast<uint32_t>(elapsedMs % 1000),   0};
    return krvtest::DateText(d);
}

constexpr uint64_t kHourMs = 3600000;
constexpr uint64_t kDayMs = 24 * kHourMs;

TEST(NolockTimeCarry, MonthAndYearEnds)
{
    const std::tuple<struct tm, uint64_t, std::string> cases[] = {
        {Snap(2023, 12, 31, 23, 59, 59), 1500, "2024-01-01 00:00:00.500.0"},
        {Snap(2024, 2, 28, 10, 20, 30), kDayMs, "2024-02-29 10:20:30.000.0"},
        {Snap(2023, 2, 28, 10, 20, 30), kDayMs, "2023-03-01 10:20:30.000.0"},
        {Snap(2024, 2, 28, 0, 0, 0), 2 * kDayMs, "2024-03-01 00:00:00.000.0"},
        {Snap(2100, 2, 28, 0, 0, 0), kDayMs, "2100-03-01 00:00:00.000.0"},
        {Snap(2000, 2, 28, 0, 0, 0), kDayMs, "2000-02-29 00:00:00.000.0"},
        {Snap(2023, 4, 30, 23, 0, 0), kHourMs, "2023-05-01 00:00:00.000.0"},
        {Snap(2023, 6, 30, 23, 59, 59), 1000, "2023-07-01 00:00:00.000.0"},
        {Snap(2023, 9, 30, 12, 0, 0), kDayMs, "2023-10-01 12:00:00.000.0"},
        {Snap(2023, 11, 30, 12, 0, 0), kDayMs, "2023-12-01 12:00:00.000.0"},
        {Snap(2023, 1, 31, 12, 0, 0), kDayMs, "2023-02-01 12:00:00.000.0"},
        {Snap(2024, 12, 30, 12, 0, 0), kDayMs, "2024-12-31 12:00:00.000.0"},  // day 366 of a leap year
        {Snap(2023, 12, 31, 0, 0, 0), 999, "2023-12-31 00:00:00.999.0"},
        {Snap(2023, 3, 1, 0, 0, 0), 400 * kDayMs, "2024-04-04 00:00:00.000.0"},
        {Snap(65535, 12, 31, 23, 59, 59), 999, "65535-12-31 23:59:59.999.0"},
        // Departures from the calendar, kept: a leap second carries into the next minute, and a year
        // beyond 65535 keeps its low 16 bits.
        {Snap(2016, 12, 31, 23, 59, 60), 500, "2017-01-01 00:00:00.500.0"},
        {Snap(65535, 12, 31, 23, 59, 59), 1000, "0000-01-01 00:00:00.000.0"},
    };
    for (const auto &[snap, elapsed, expected] : cases) {
        EXPECT_EQ(Carry(snap, elapsed), expected) << elapsed;
    }
}

TEST(NolockTimeCarry, RandomSnapshotsAndElapsedTimesFollowTheCalendar)
{
    std::mt19937_64 rng(1972);
    // Snapshots from 1970 to about 64900, elapsed times from the updater's 5 s up to five centuries, so
    // every result stays within 65535.
    std::uniform_int_distribution<int64_t> anySecond(0, 1985000000000);
    const uint64_t scales[] = {5000, 10 * 60000, 3 * kDayMs, 400 * kDayMs, 100 * 366 * kDayMs, 500 * 366 * kDayMs};
    for (int i = 0; i < 300000; ++i) {
        const time_t seconds = anySecond(rng);
        struct tm snap {};
        ASSERT_NE(gmtime_r(&seconds, &snap), nullptr);
        uint64_t elapsed = std::uniform_int_distribution<uint64_t>(0, scales[i % 6])(rng);
        ASSERT_EQ(Carry(snap, elapsed), Reference(snap, elapsed)) << seconds << " + " << elapsed << " ms";
    }
    // Every day of a leap and a common year, carried across every month end.
    for (int year : {2023, 2024}) {
        struct tm first = Snap(year, 1, 1, 23, 0, 0);
        for (uint64_t day = 0; day < 800; ++day) {
            uint64_t elapsed = day * kDayMs + kHourMs + 1;
            ASSERT_EQ(Carry(first, elapsed), Reference(first, elapsed)) << year << " + " << day << " days";
        }
    }
}

}  // namespace
