// The bounded copy and format functions guard every buffer in the library: a copy or format that does
// not fit is refused whole, leaves no partial text behind, and nothing past the capacity is written.
#include <gtest/gtest.h>

#include <cstdint>
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
