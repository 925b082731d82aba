// The sleep registry: hook order, the sleeping mark, last-in-first-out removal and its limits.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "krv_sleep.h"
#include "support/krv_test_support.h"

namespace {

using Line = std::pair<uint32_t, std::string>;

std::vector<int> g_calls;  // +n for start hook n, -n for end hook n

template <int N>
uint32_t StartHook()
{
    g_calls.push_back(N);
    return 0;
}
template <int N>
uint32_t EndHook()
{
    g_calls.push_back(-N);
    return 1;  // ignored
}

std::vector<Line> Take(krvtest::DiagCapture &diags) { return diags.Errors("krv_sleep"); }

TEST(Sleep, HooksRunInSlotOrderOncePerSleep)
{
    g_calls.clear();
    ASSERT_EQ(0u, KRV_SleepFuncReg(StartHook<1>, EndHook<1>));
    ASSERT_EQ(0u, KRV_SleepFuncReg(StartHook<2>, EndHook<2>));
    ASSERT_EQ(0u, KRV_SleepFuncReg(StartHook<3>, EndHook<3>));
    KRV_SleepEnd();  // not sleeping: nothing runs
    KRV_SleepStart();
    KRV_SleepStart();
    KRV_SleepEnd();
    KRV_SleepEnd();
    EXPECT_EQ((std::vector<int>{1, 2, 3, -1, -2, -3}), g_calls);
    EXPECT_EQ(0u, KRV_SleepFuncUnRegister(StartHook<3>, EndHook<3>));
    EXPECT_EQ(0u, KRV_SleepFuncUnRegister(StartHook<2>, EndHook<2>));
    EXPECT_EQ(0u, KRV_SleepFuncUnRegister(StartHook<1>, EndHook<1>));
    g_calls.clear();
    KRV_SleepStart();  // no registry
    KRV_SleepEnd();
    EXPECT_TRUE(g_calls.empty());
}

TEST(Sleep, OnlyTheLastPairComesOffAndTenIsTheLimit)
{
    krvtest::DiagCapture diags;
    EXPECT_EQ(22u, KRV_SleepFuncReg(nullptr, EndHook<1>));
    EXPECT_EQ(22u, KRV_SleepFuncReg(StartHook<1>, nullptr));
    EXPECT_EQ(124u, KRV_SleepFuncUnRegister(StartHook<1>, EndHook<1>));
    EXPECT_EQ(22u, KRV_SleepFuncUnRegister(nullptr, EndHook<1>));
    EXPECT_EQ((std::vector<Line>{{124, "Base Sleep Module not Initialize"}, {22, "SleepFunc unRegister failed"}}),
              Take(diags));

    ASSERT_EQ(0u, KRV_SleepFuncReg(StartHook<1>, EndHook<1>));  // A
    ASSERT_EQ(0u, KRV_SleepFuncReg(StartHook<2>, EndHook<2>));  // B
    EXPECT_EQ(22u, KRV_SleepFuncUnRegister(StartHook<1>, EndHook<1>));
    EXPECT_EQ(22u, KRV_SleepFuncUnRegister(StartHook<2>, EndHook<1>)) << "both hooks must match";
    const std::vector<Line> refusal = {{22, "Sleep Func UnReg failed, idx = 1"}, {22, "SleepFunc unRegister failed"}};
    std::vector<Line> twice = refusal;
    twice.insert(twice.end(), refusal.begin(), refusal.end());
    EXPECT_EQ(twice, Take(diags));
    for (int i = 2; i < 10; ++i) {
        ASSERT_EQ(0u, KRV_SleepFuncReg(StartHook<9>, EndHook<9>));
    }
    EXPECT_EQ(22u, KRV_SleepFuncReg(StartHook<3>, EndHook<3>));
    EXPECT_EQ((std::vector<Line>{{22, "SleepFunc register failed, idx:10"}}), Take(diags));
    for (int i = 2; i < 10; ++i) {
        ASSERT_EQ(0u, KRV_SleepFuncUnRegister(StartHook<9>, EndHook<9>));
    }
    EXPECT_EQ(0u, KRV_SleepFuncUnRegister(StartHook<2>, EndHook<2>));
    EXPECT_EQ(0u, KRV_SleepFuncUnRegister(StartHook<1>, EndHook<1>));
    EXPECT_EQ(124u, KRV_SleepFuncUnRegister(StartHook<1>, EndHook<1>)) << "the last pair took the registry";
    Take(diags);
}

TEST(Sleep, ARegistryThatCannotBeAllocatedIsReportedAsInvalid)
{
    krvtest::DiagCapture diags;
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(22u, KRV_SleepFuncReg(StartHook<1>, EndHook<1>));
    }
    EXPECT_EQ(124u, KRV_SleepFuncUnRegister(StartHook<1>, EndHook<1>));
    EXPECT_EQ((std::vector<Line>{{22, "param invalid"}, {124, "Base Sleep Module not Initialize"}}), Take(diags));
}

}  // namespace
