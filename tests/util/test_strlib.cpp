// String helpers: results and the exact diagnostics of every refusal.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "krv_status.h"
#include "krv_strlib.h"
#include "support/krv_test_support.h"

namespace {

// A diagnostic as "code level file msg".
std::string Describe(const krvtest::Diag &d)
{
    return std::to_string(d.code) + " " + std::to_string(d.level) + " " + d.file + " " + d.msg;
}

// The one diagnostic a call left, or "" when there was none.
std::string OnlyDiag(krvtest::DiagCapture &capture)
{
    std::vector<krvtest::Diag> diags = capture.Take();
    EXPECT_LE(diags.size(), 1u);
    return diags.empty() ? "" : Describe(diags[0]);
}

TEST(Strlib, DigitTestsAndHexDigits)
{
    krvtest::DiagCapture capture;
    for (auto [text, digits] : std::vector<std::pair<const char *, bool>>{
             {"", true}, {"0123456789", true}, {"12a", false}, {"-1", false}, {" 1", false}, {"\xb9", false}}) {
        EXPECT_EQ(digits, KRV_StrIsDecDigit(text)) << text;
    }
    EXPECT_EQ("", OnlyDiag(capture));
    EXPECT_FALSE(KRV_StrIsDecDigit(nullptr));
    EXPECT_EQ("22 2 krv_strlib input invalid", OnlyDiag(capture));

    const std::string hex = "0123456789abcdefABCDEF";
    for (size_t i = 0; i < hex.size(); ++i) {
        uint8_t value = 99;
        EXPECT_EQ(KRV_OK, KRV_StrlibHexCharToUint8(hex[i], &value));
        EXPECT_EQ(i < 16 ? i : i - 6, value) << hex[i];
    }
    for (char bad : {'g', 'G', '/', ':', '@', '`', ' '}) {
        uint8_t value = 99;
        EXPECT_EQ(KRV_ERR_INVALID, KRV_StrlibHexCharToUint8(bad, &value));
        EXPECT_EQ(99, value);
        EXPECT_EQ(std::string("22 2 krv_strlib input invalid. ch = ") + bad, OnlyDiag(capture));
    }
}

TEST(Strlib, NumberParsingFollowsTheScanFormat)
{
    krvtest::DiagCapture capture;
    struct Case {
        const char *text;
        uint32_t code;
        uint64_t value;
    };
    for (const Case &c : std::vector<Case>{{"0", KRV_OK, 0},
                                           {"12ab", KRV_OK, 12},
                                           {"  \t\n42 7", KRV_OK, 42},
                                           {"+5", KRV_OK, 5},
                                           {"18446744073709551615", KRV_OK, UINT64_MAX},
                                           {"-1", KRV_OK, UINT64_MAX},  // the format wraps negatives
                                           {"abc", KRV_ERR_FAILED, 7},
                                           {"", KRV_ERR_FAILED, 7},
                                           {"   ", KRV_ERR_FAILED, 7}}) {
        uint64_t value = 7;
        EXPECT_EQ(c.code, KRV_StrlibStrToUint64(c.text, &value)) << c.text;
        EXPECT_EQ(c.value, value) << c.text;
        EXPECT_EQ(c.code == KRV_OK ? "" : "1 2 krv_strlib sscanf failed", OnlyDiag(capture)) << c.text;
    }
    uint64_t value = 7;
    EXPECT_EQ(KRV_ERR_INVALID, KRV_StrlibStrToUint64(nullptr, &value));
    EXPECT_EQ("22 2 krv_strlib input invalid", OnlyDiag(capture));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_StrlibStrToUint64("1", nullptr));
    EXPECT_EQ("22 2 krv_strlib input invalid", OnlyDiag(capture));
}

TEST(Strlib, SpaceStrippingInPlaceAndIntoABuffer)
{
    krvtest::DiagCapture capture;
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"  ab c  ", "ab c"}, {"   ", ""},   {"\tx\t", "\tx\t"}, {" \n ", "\n"},
        {"abc", "abc"},       {"a ", "a"},   {" a", "a"},        {" ", ""},
    };
    for (const auto &[text, stripped] : cases) {
        std::string inPlace = text;
        EXPECT_EQ(KRV_OK, KRV_StrlibSpaceDelete(inPlace.data(), inPlace.size()));
        EXPECT_EQ(stripped, inPlace.c_str()) << '"' << text << '"';

        std::string out(text.size() + 1, '#');
        size_t outLen = 99;
        EXPECT_EQ(KRV_OK, KRV_StrlibSpaceDeleteEx(text.data(), text.size(), out.data(), &outLen));
        EXPECT_EQ(stripped, out.c_str());
        EXPECT_EQ(stripped.size(), outLen);

        std::string same = text;  // out may be the input itself
        EXPECT_EQ(KRV_OK, KRV_StrlibSpaceDeleteEx(same.data(), same.size(), same.data(), &outLen));
        EXPECT_EQ(stripped, same.c_str());
    }
    EXPECT_EQ("", OnlyDiag(capture));

    // Only the first len bytes are read; len 0 yields the empty string.
    char out[8] = "#######";
    size_t outLen = 99;
    EXPECT_EQ(KRV_OK, KRV_StrlibSpaceDeleteEx(" ab cd", 4, out, &outLen));
    EXPECT_EQ(std::string("ab"), out);
    EXPECT_EQ(2u, outLen);
    EXPECT_EQ(KRV_OK, KRV_StrlibSpaceDeleteEx("abc", 0, out, &outLen));
    EXPECT_EQ(std::string(""), out);
    EXPECT_EQ(0u, outLen);

    char text[] = "  x";
    const std::vector<std::pair<uint32_t, std::string>> refusals = {
        {KRV_StrlibSpaceDelete(text, 0), "0"},
        {KRV_StrlibSpaceDelete(nullptr, 5), "5"},
        {KRV_StrlibSpaceDeleteEx(nullptr, 3, out, &outLen), "3"},
        {KRV_StrlibSpaceDeleteEx(text, 3, nullptr, &outLen), "3"},
        {KRV_StrlibSpaceDeleteEx(text, 4, out, nullptr), "4"},
    };
    std::vector<krvtest::Diag> diags = capture.Take();
    ASSERT_EQ(refusals.size(), diags.size());
    for (size_t i = 0; i < refusals.size(); ++i) {
        EXPECT_EQ(KRV_ERR_INVALID, refusals[i].first) << i;
        EXPECT_EQ("22 2 krv_strlib Input Invalid. len = " + refusals[i].second, Describe(diags[i]));
    }
    EXPECT_STREQ("  x", text);
}

}  // namespace
