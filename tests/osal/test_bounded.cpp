// The bounded copy and format functions: they guard every buffer in the library, so every overflow
// must be refused whole and nothing beyond the stated capacity may ever be written.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "osal/krv_bounded.h"

namespace {

// A buffer with a canary zone after the capacity the function is told about.
struct Guarded {
    static constexpr size_t kCap = 8;
    char bytes[kCap + 8];
    Guarded() { std::memset(bytes, '#', sizeof(bytes)); }
    bool CanaryIntact() const
    {
        for (size_t i = kCap; i < sizeof(bytes); ++i) {
            if (bytes[i] != '#') {
                return false;
            }
        }
        return true;
    }
};

TEST(Bounded, MemcpyAndMemset)
{
    Guarded g;
    EXPECT_EQ(krv::memcpy_s(g.bytes, Guarded::kCap, "12345678", 8), 0);
    EXPECT_EQ(std::memcmp(g.bytes, "12345678", 8), 0);
    EXPECT_NE(krv::memcpy_s(g.bytes, Guarded::kCap, "123456789", 9), 0);
    EXPECT_EQ(g.bytes[0], 0);  // a refused copy leaves no partial data behind
    EXPECT_TRUE(g.CanaryIntact());
    EXPECT_NE(krv::memcpy_s(nullptr, 8, "x", 1), 0);
    EXPECT_NE(krv::memcpy_s(g.bytes, Guarded::kCap, nullptr, 1), 0);
    EXPECT_NE(krv::memcpy_s(g.bytes, Guarded::kCap, g.bytes + 2, 4), 0);  // overlap
    EXPECT_NE(krv::memcpy_s(g.bytes, static_cast<size_t>(-1), "x", 1), 0);
    EXPECT_EQ(krv::memcpy_s(g.bytes, Guarded::kCap, "x", 0), 0);

    EXPECT_EQ(krv::memset_s(g.bytes, Guarded::kCap, 'a', 8), 0);
    EXPECT_NE(krv::memset_s(g.bytes, Guarded::kCap, 'b', 9), 0);
    EXPECT_TRUE(g.CanaryIntact());
    EXPECT_NE(krv::memset_s(nullptr, 1, 0, 1), 0);
}

TEST(Bounded, StringCopiesRefuseInsteadOfTruncating)
{
    Guarded g;
    EXPECT_EQ(krv::strcpy_s(g.bytes, Guarded::kCap, "1234567"), 0);
    EXPECT_STREQ(g.bytes, "1234567");
    EXPECT_NE(krv::strcpy_s(g.bytes, Guarded::kCap, "12345678"), 0);
    EXPECT_STREQ(g.bytes, "");
    EXPECT_TRUE(g.CanaryIntact());
    EXPECT_NE(krv::strcpy_s(g.bytes, 0, "a"), 0);
    EXPECT_NE(krv::strcpy_s(g.bytes, Guarded::kCap, nullptr), 0);
    EXPECT_NE(krv::strcpy_s(nullptr, 4, "a"), 0);

    // strncpy_s copies at most count characters; a longer source is fine when count fits.
    EXPECT_EQ(krv::strncpy_s(g.bytes, Guarded::kCap, "abcdefghijk", 3), 0);
    EXPECT_STREQ(g.bytes, "abc");
    EXPECT_EQ(krv::strncpy_s(g.bytes, Guarded::kCap, "ab", 100), 0);
    EXPECT_STREQ(g.bytes, "ab");
    EXPECT_NE(krv::strncpy_s(g.bytes, Guarded::kCap, "abcdefghijk", 8), 0);
    EXPECT_TRUE(g.CanaryIntact());

    EXPECT_EQ(krv::strcpy_s(g.bytes, Guarded::kCap, "abc"), 0);
    EXPECT_EQ(krv::strcat_s(g.bytes, Guarded::kCap, "defg"), 0);
    EXPECT_STREQ(g.bytes, "abcdefg");
    EXPECT_NE(krv::strcat_s(g.bytes, Guarded::kCap, "h"), 0);
    EXPECT_STREQ(g.bytes, "");
    EXPECT_TRUE(g.CanaryIntact());
    std::memset(g.bytes, 'x', Guarded::kCap);  // no terminator inside the capacity
    EXPECT_NE(krv::strcat_s(g.bytes, Guarded::kCap, ""), 0);
    EXPECT_TRUE(g.CanaryIntact());
}

TEST(Bounded, FormattersReturnMinusOneInsteadOfTruncating)
{
    Guarded g;
    EXPECT_EQ(krv::sprintf_s(g.bytes, Guarded::kCap, "%d-%s", 12, "abcd"), 7);
    EXPECT_STREQ(g.bytes, "12-abcd");
    EXPECT_EQ(krv::sprintf_s(g.bytes, Guarded::kCap, "%d-%s", 12, "abcde"), -1);
    EXPECT_STREQ(g.bytes, "");
    EXPECT_TRUE(g.CanaryIntact());
    EXPECT_EQ(krv::sprintf_s(g.bytes, Guarded::kCap, nullptr), -1);

    // The count bound applies in addition to the capacity.
    EXPECT_EQ(krv::snprintf_s(g.bytes, Guarded::kCap, 3, "%s", "abc"), 3);
    EXPECT_EQ(krv::snprintf_s(g.bytes, Guarded::kCap, 3, "%s", "abcd"), -1);
    EXPECT_EQ(krv::snprintf_s(g.bytes, Guarded::kCap, 100, "%s", "abcdefgh"), -1);
    EXPECT_TRUE(g.CanaryIntact());

    char big[1024];
    std::string exact(1023, 'z');
    EXPECT_EQ(krv::snprintf_s(big, sizeof(big), sizeof(big) - 1, "%s", exact.c_str()), 1023);
    exact.push_back('z');
    EXPECT_EQ(krv::snprintf_s(big, sizeof(big), sizeof(big) - 1, "%s", exact.c_str()), -1);
}

TEST(Bounded, ScanAcceptsOnlyNumericConversions)
{
    double mhz = 0;
    unsigned count = 0;
    EXPECT_EQ(krv::sscanf_s("cpu MHz\t\t: 2394.454", "cpu MHz : %lf", &mhz), 1);
    EXPECT_DOUBLE_EQ(mhz, 2394.454);
    EXPECT_EQ(krv::sscanf_s("7 9", "%u %*d", &count), 1);
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(krv::sscanf_s("100%", "%u%%", &count), 1);
    char word[4];
    EXPECT_EQ(krv::sscanf_s("overflowing", "%s", word), -1);
    EXPECT_EQ(krv::sscanf_s("a", "%c", word), -1);
    EXPECT_EQ(krv::sscanf_s("abc", "%3[a-z]", word), -1);
    EXPECT_EQ(krv::sscanf_s("", "%u", &count), -1);
    EXPECT_EQ(krv::sscanf_s(nullptr, "%u", &count), -1);
}

}  // namespace
