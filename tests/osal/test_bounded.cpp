// The bounded copy and format functions guard every buffer in the library: a copy or format that does
// not fit is refused whole, leaves no partial text behind, and nothing past the capacity is written.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "osal/krv_bounded.h"

namespace {

constexpr size_t kCap = 8;
constexpr int kAnyFailure = INT32_MIN;  // copy functions: any non-zero result

TEST(Bounded, EveryFunctionFitsOrFailsWholeWithinItsCapacity)
{
    using namespace krv;
    struct Case {
        int (*call)(char *dest);
        int rc;
        std::string after;  // the leading bytes expected in dest ("#" = untouched)
    };
    const std::string cleared(1, '\0'), zeroed(kCap, '\0');
    const Case cases[] = {
        {[](char *d) { return memcpy_s(d, kCap, "12345678", 8); }, 0, "12345678"},
        {[](char *d) { return memcpy_s(d, kCap, "123456789", 9); }, kAnyFailure, zeroed},
        {[](char *d) { return memcpy_s(d, kCap, d + 2, 4); }, kAnyFailure, zeroed},
        {[](char *d) { return memcpy_s(d, SIZE_MAX, "x", 1); }, kAnyFailure, "#"},
        {[](char *d) { return memcpy_s(d, kCap, "x", 0); }, 0, "#"},
        {[](char *d) { return memset_s(d, kCap, 'a', 8); }, 0, "aaaaaaaa"},
        {[](char *d) { return memset_s(d, kCap, 'b', 9); }, kAnyFailure, "bbbbbbbb"},
        {[](char *d) { return strcpy_s(d, kCap, "1234567"); }, 0, std::string("1234567", 8)},
        {[](char *d) { return strcpy_s(d, kCap, "12345678"); }, kAnyFailure, cleared},
        {[](char *d) { return strncpy_s(d, kCap, "abcdefghijk", 3); }, 0, std::string("abc", 4)},
        {[](char *d) { return strncpy_s(d, kCap, "abcdefghijk", 8); }, kAnyFailure, cleared},
        {[](char *d) { return strcpy_s(d, kCap, "abc") | strcat_s(d, kCap, "defg"); }, 0, std::string("abcdefg", 8)},
        {[](char *d) { return strcpy_s(d, kCap, "abcdefg") | strcat_s(d, kCap, "h"); }, kAnyFailure, cleared},
        {[](char *d) { return strcat_s(d, kCap, ""); }, kAnyFailure, cleared},  // no terminator
        {[](char *d) { return sprintf_s(d, kCap, "%d-%s", 12, "abcd"); }, 7, std::string("12-abcd", 8)},
        {[](char *d) { return sprintf_s(d, kCap, "%d-%s", 12, "abcde"); }, -1, cleared},
        {[](char *d) { return snprintf_s(d, kCap, 3, "%s", "abc"); }, 3, std::string("abc", 4)},
        {[](char *d) { return snprintf_s(d, kCap, 3, "%s", "abcd"); }, -1, cleared},
    };
    for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
        char bytes[kCap + 8];
        std::memset(bytes, '#', sizeof(bytes));
        int rc = cases[i].call(bytes);
        EXPECT_TRUE(cases[i].rc == kAnyFailure ? rc != 0 : rc == cases[i].rc) << "case " << i << " gave " << rc;
        EXPECT_EQ(cases[i].after, std::string(bytes, cases[i].after.size())) << "case " << i;
        EXPECT_EQ(std::string(8, '#'), std::string(bytes + kCap, 8)) << "case " << i << " wrote past the capacity";
    }
}

// Formats through snprintf_s at every capacity and count around the text's length and expects the C
// library's text whenever it fits, and -1 with an empty destination whenever it does not.
template <typename... Args>
void ExpectLibcText(const char *fmt, Args... args)
{
    char expected[256];
    const int full = std::snprintf(expected, sizeof(expected), fmt, args...);
    ASSERT_GE(full, 0) << fmt;
    const auto fullLen = static_cast<size_t>(full);
    for (size_t destMax = 1; destMax <= fullLen + 2; ++destMax) {
        for (size_t count : {fullLen - 1, fullLen, destMax}) {
            char out[256];
            std::memset(out, '#', sizeof(out));
            const int len = krv::snprintf_s(out, destMax, count, fmt, args...);
            const bool fits = fullLen < destMax && fullLen <= count;
            ASSERT_EQ(fits ? full : -1, len) << fmt << " destMax " << destMax << " count " << count;
            EXPECT_EQ(fits ? std::string(expected, fullLen + 1) : std::string(1, '\0'),
                      std::string(out, fits ? fullLen + 1 : 1)) << fmt << " destMax " << destMax;
            EXPECT_EQ('#', out[destMax]) << fmt << " wrote past destMax " << destMax;
        }
    }
}

TEST(Bounded, FormatGivesTheCLibrarysTextForEveryConversion)
{
    // The conversions formatted without the C library, at their extremes.
    ExpectLibcText("plain text, 100%% sure");
    ExpectLibcText("%d|%i|%d|%d", INT_MIN, INT_MAX, 0, -1);
    ExpectLibcText("%u %x %X", UINT_MAX, 0xDEADBEEFu, 0xABCDEFu);
    ExpectLibcText("%ld %lu %lx", LONG_MIN, ULONG_MAX, 0x7FFFFFFFFFFFFFFFul);
    ExpectLibcText("%lld %llu %llX %lli", LLONG_MIN, ULLONG_MAX, 0x123456789ABCull, -42ll);
    ExpectLibcText("%zu %zx %zd", SIZE_MAX, size_t{48879}, static_cast<ssize_t>(-5));
    ExpectLibcText("[%s][%u][0x%x][%s:%u]%s", "2024.01.01", 4u, 0u, "krv_json", 82u, "valueType match failed");
    ExpectLibcText("%s%c%s|%c", "", 'A', "tail", '\0');
    // Everything else goes to the C library, as before.
    ExpectLibcText("%5d|%-4s|%05x|%.3s|%+d", 42, "ab", 255u, "abcdef", 7);
    ExpectLibcText("%.2f %e %g %o %p", 2.5, 1e10, 0.1, 8u, static_cast<void *>(nullptr));
    ExpectLibcText("%hd %hhu %lc %jd", 70000, 300, L'x', intmax_t{-9});
    ExpectLibcText("%s|%d", static_cast<const char *>(nullptr), 3);
}

TEST(Bounded, ScanAcceptsOnlyNumericConversions)
{
    double mhz = 0;
    char word[4];
    EXPECT_EQ(1, krv::sscanf_s("cpu MHz\t\t: 2394.454", "cpu MHz : %lf", &mhz));
    EXPECT_DOUBLE_EQ(2394.454, mhz);
    for (const char *textConversion : {"%s", "%c", "%3[a-z]"}) {
        EXPECT_EQ(-1, krv::sscanf_s("abc", textConversion, word)) << textConversion;
    }
    EXPECT_EQ(-1, krv::sscanf_s(nullptr, "%lf", &mhz));
}

}  // namespace
