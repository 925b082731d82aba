// The rounded division.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "krv_arith.h"
#include "support/krv_test_support.h"

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

}  // namespace
