// The backend's line text: the hand-built line equals what printf makes of the same pieces, refuses
// a buffer one byte short, and the cached stamp follows the clock from second to second.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>

#include "log/krv_log_ops_line.h"

namespace {

using krv::logops::LineFormat;
using krv::logops::LinePieces;

TEST(LogOpsLine, SameBytesAsPrintfAndNothingWhenOneByteShort)
{
    struct Case {
        const char *stamp;
        uint32_t level, code, line;
        const char *file, *msg;
    } const cases[] = {
        {"2024.03.05 14:07:09.000815", 2, 22, 103, "krv_x", "param invalid"},
        {"2024.03.05 04:07:09.999999", 0, 0, 0, "", ""},
        {"2024.03.05 14:07:09.000000", 6, 0x203b1003u, 42, "main.cpp", "[net][V] > retry 3"},
        {"10000.01.01 00:00:00.000001", UINT32_MAX, UINT32_MAX, UINT32_MAX, "f", "ten digits everywhere"},
        {"x", 9, 0xabcdefu, 10, "(null)", "%s %d are not formats here"},
    };
    for (const Case &c : cases) {
        char expected[256];
        int len = std::snprintf(expected, sizeof(expected), "[%s][%u][0x%x][%s:%u]%s\n", c.stamp, c.level, c.code,
                                c.file, c.line, c.msg);
        const LinePieces pieces = {c.stamp, std::strlen(c.stamp), c.level, c.code, c.file, std::strlen(c.file),
                                   c.line, c.msg, std::strlen(c.msg)};
        char out[256];
        std::memset(out, '#', sizeof(out));
        EXPECT_EQ(len, LineFormat(out, static_cast<size_t>(len) + 1, pieces));
        EXPECT_STREQ(expected, out);
        std::memset(out, '#', sizeof(out));
        EXPECT_EQ(-1, LineFormat(out, static_cast<size_t>(len), pieces)) << expected;
        EXPECT_EQ('\0', out[0]);
        EXPECT_EQ('#', out[1]) << "nothing written beyond the emptied start";
    }
}

TEST(LogOpsLine, StampFollowsTheLocalClockAcrossSeconds)
{
    const auto localNow = [] {  // the clock the stamp reads (time() may lag it by a tick)
        struct timeval tv = {};
        gettimeofday(&tv, nullptr);
        time_t now = tv.tv_sec;
        struct tm local = {};
        localtime_r(&now, &local);
        char text[32];
        std::strftime(text, sizeof(text), "%Y.%m.%d %H:%M:%S", &local);
        return std::string(text);
    };
    const std::regex layout(R"(\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d\.\d{6})");
    std::string seconds;  // each distinct second seen
    for (int i = 0; i < 3000000 && seconds.size() < 3 * 19; ++i) {
        const std::string before = localNow();
        char stamp[krv::logops::kStampBufSize];
        size_t len = krv::logops::StampNow(stamp);
        const std::string after = localNow();
        ASSERT_EQ(std::strlen(stamp), len);
        ASSERT_TRUE(std::regex_match(stamp, layout)) << stamp;
        const std::string second(stamp, 19);
        ASSERT_TRUE(second == before || second == after) << stamp << " between " << before << " and " << after;
        if (seconds.size() < 19 || seconds.compare(seconds.size() - 19, 19, second) != 0) {
            seconds += second;
        }
    }
    EXPECT_EQ(3 * 19u, seconds.size()) << "saw the seconds " << seconds;
}

}  // namespace
