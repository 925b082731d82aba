// The in-place number conversion against strtod: every number it converts itself must be the same
// double, bit for bit, in every rounding mode, and it must read exactly the bytes the dialect reads.
// KRV_JSON_NUMBER_SWEEP=<count> runs a longer sweep than the default.
#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "json/krv_json_number.h"

namespace {

// A digit string of the dialect: leading zeros now and then, at most one dot anywhere (also first
// or last), then a byte that ends the number.
std::string RandomNumber(std::mt19937_64 &rng)
{
    static const char kEnds[] = {'\0', ',', ']', '.', 'e', '-', ' '};
    std::string text(rng() % 4 == 0 ? rng() % 4 : 0, '0');
    const size_t digits = 1 + rng() % 24;
    const size_t dot = rng() % 3 == 0 ? SIZE_MAX : rng() % (digits + 1);
    const bool zero = rng() % 50 == 0;  // zero needs no scaling, however many fraction digits
    for (size_t i = 0; i < digits; ++i) {
        if (i == dot) {
            text += '.';
        }
        // Runs of nines and zeros reach the rounding boundaries more often than uniform digits.
        const uint64_t pick = zero ? 9 : rng() % 10;
        text += pick < 7 ? static_cast<char>('0' + rng() % 10) : pick < 9 ? '9' : '0';
    }
    if (dot == digits) {
        text += '.';
    }
    if (text[0] == '.') {
        text.insert(text.begin(), '0');  // a number starts with a digit
    }
    return text + kEnds[rng() % sizeof(kEnds)];
}

// Bytes the dialect reads as the number: digits and the first dot.
size_t DialectLength(const std::string &text)
{
    size_t n = 0;
    bool dot = false;
    for (; n < text.size(); ++n) {
        if (text[n] == '.' && !dot) {
            dot = true;
        } else if (text[n] < '0' || text[n] > '9') {
            break;
        }
    }
    return n;
}

uint64_t Bits(double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

// Checks count random numbers in the current rounding mode; returns how many were converted in place.
uint64_t Sweep(uint64_t count, uint64_t seed)
{
    std::mt19937_64 rng(seed);
    uint64_t exact = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const std::string text = RandomNumber(rng);
        const size_t length = DialectLength(text);
        const krv::json::Decimal number = krv::json::DecimalScan(text.c_str());
        if (number.length != length) {
            ADD_FAILURE() << text << " read " << number.length << " bytes, not " << length;
            return exact;
        }
        if (!number.exact) {
            continue;
        }
        ++exact;
        const std::string digits = text.substr(0, length);
        errno = 0;
        const double expected = std::strtod(digits.c_str(), nullptr);
        if (Bits(number.value) != Bits(expected) || errno != 0) {
            ADD_FAILURE() << digits << " gave " << number.value << ", strtod " << expected << " errno " << errno;
            return exact;
        }
    }
    return exact;
}

TEST(JsonNumber, InPlaceConversionEqualsStrtodBitForBit)
{
    const char *env = std::getenv("KRV_JSON_NUMBER_SWEEP");
    const uint64_t count = env != nullptr ? std::strtoull(env, nullptr, 10) : 1000000;
    const uint64_t exact = Sweep(count, 1);
    // Most numbers of up to 15 significant digits must be converted in place, or the fast path is dead.
    EXPECT_GT(exact, count / 2);

    // The one division must round as strtod does in every mode, not just to nearest.
    for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        Sweep(count / 10, 2 + static_cast<uint64_t>(mode));
        std::fesetround(FE_TONEAREST);
    }
}

}  // namespace
