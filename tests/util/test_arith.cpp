// The rounded division.
#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "krv_arith.h"
#include "support/krv_test_support.h"
#include "util/krv_arith_divider.h"

namespace {

TEST(Arith, RoundedDivisionKeepsItsLowThresholdForOddDivisors)
{
    const std::tuple<uint64_t, uint32_t, uint64_t> cases[] = {
        {4, 3, 2},  {5, 3, 2},  {7, 2, 4},  {5, 2, 3},  {6, 4, 2},  {5, 4, 1}, {0, 7, 0}, {3, 7, 1}, {2, 7, 0},
        {UINT64_MAX, 1, UINT64_MAX}, {UINT64_MAX, 2, 1ull << 63}, {UINT64_MAX, UINT32_MAX, 4294967297ull},
        {1, UINT32_MAX, 0}, {2147483646, UINT32_MAX, 0}, {2147483647, UINT32_MAX, 1},
    };
    for (auto [dividend, divisor, want] : cases) {
        uint64_t result = 99;
        EXPECT_EQ(0u, KRV_64Div32RoundUp(dividend, divisor, &result));
        EXPECT_EQ(want, result) << dividend << " / " << divisor;
    }
    krvtest::DiagCapture diags;
    uint64_t untouched = 99;
    EXPECT_EQ(22u, KRV_64Div32RoundUp(7, 0, &untouched));
    EXPECT_EQ(99u, untouched);
    auto lines = diags.Take();
    ASSERT_EQ(1u, lines.size());
    EXPECT_TRUE(lines[0].code == 22 && lines[0].level == 2 && lines[0].file == "krv_arith" &&
                lines[0].msg == "Param Invalid");
}

// The multiply-and-shift division must equal the divide instruction everywhere: divisor and
// dividend edges (powers of two, their neighbours, the extremes) and random pairs.
TEST(Arith, MultiplyAndShiftDivisionIsExact)
{
    std::mt19937_64 rng(2024);
    std::vector<uint32_t> divisors = {1, 2, 3, 5, 7, 10, 100, 641, 24000000, 24454120, 42949672, 0x7FFFFFFF,
                                      0x80000000u, 0x80000001u, UINT32_MAX - 1, UINT32_MAX};
    for (int bit = 2; bit < 32; ++bit) {
        divisors.insert(divisors.end(), {(1u << bit) - 1, 1u << bit, (1u << bit) + 1});
    }
    for (int i = 0; i < 2000; ++i) {
        divisors.push_back(static_cast<uint32_t>(rng() >> (rng() % 32)) | 1u);
    }
    for (uint32_t d : divisors) {
        const krv::Divider64By32 divider = krv::Divider64By32::Make(d);
        std::vector<uint64_t> dividends = {0, 1, d - 1ull, d, d + 1ull, UINT64_MAX, UINT64_MAX - 1, UINT64_MAX - d,
                                           UINT64_MAX / d * d, UINT64_MAX / d * d - 1, 1ull << 63, (1ull << 63) - 1,
                                           1ull << 32, (1ull << 32) - 1};
        for (int i = 0; i < 200; ++i) {
            uint64_t n = rng() >> (rng() % 64);
            dividends.insert(dividends.end(), {n, n / d * d, n / d * d - 1});
        }
        for (uint64_t n : dividends) {
            ASSERT_EQ(n / d, divider.Divide(n)) << n << " / " << d;
        }
    }
}

}  // namespace
