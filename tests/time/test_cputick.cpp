// CPU tick through a fake counter: registration, lifecycle, conversions, the cpuinfo parser and the
// alarm calibration.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "krv_cputick.h"
#include "krv_status.h"
#include "support/krv_test_support.h"
#include "time/fake_cputick.h"
#include "time/krv_cputick_internal.h"

namespace {

using Line = std::pair<uint32_t, std::string>;

std::vector<Line> Take(krvtest::DiagCapture &diags) { return diags.Errors("krv_cputick"); }

uint64_t OtherRead() { return 7; }

// The base as the parser finds it in this machine's /proc/cpuinfo.
uint32_t MachineBase()
{
    std::FILE *f = std::fopen("/proc/cpuinfo", "r");
    uint32_t base = 0;
    EXPECT_TRUE(f != nullptr && krv::cputick::CpuInfoBaseParse(f, &base) && base != 0)
        << "these tests need a \"cpu MHz\" line in /proc/cpuinfo";
    if (f != nullptr) {
        std::fclose(f);
    }
    return base;
}

TEST(CpuTick, TheRegisteredReadIsPermanent)
{
    ASSERT_TRUE(krvtest::g_fakeCpuTickRegistered);
    krvtest::DiagCapture diags;
    EXPECT_EQ(22u, KRV_CpuTickGetFuncReg(nullptr));
    EXPECT_EQ(KRV_ERR_REGISTERED, KRV_CpuTickGetFuncReg(OtherRead));
    EXPECT_EQ(&krvtest::FakeCpuTick::Read, KRV_CpuTickGetFuncGet());
    krvtest::FakeCpuTick::Set(123456789);
    EXPECT_EQ(123456789u, KRV_CpuTickGet());
    EXPECT_EQ((std::vector<Line>{{22, "param invalid"}, {KRV_ERR_REGISTERED, "cputick get func is already registered"}}),
              Take(diags));
}

TEST(CpuTick, UsersAreCountedAndConversionsUseTheParsedBase)
{
    const uint32_t base = MachineBase();
    krvtest::DiagCapture diags;
    uint32_t got = 0;
    uint64_t ms = 0, ticks = 1;
    EXPECT_EQ(124u, KRV_CpuTickBaseGet(&got));
    EXPECT_EQ(124u, KRV_CpuTick2Ms(&ticks, &ms));
    EXPECT_EQ(0u, KRV_CpuTick2Ns(1000));
    EXPECT_EQ(0u, KRV_Ns2CpuTick(1000));
    Take(diags);

    ASSERT_EQ(0u, KRV_CpuTickInit());
    ASSERT_EQ(0u, KRV_CpuTickInit());
    const KrvCpuTickState *state = krv::cputick::StateGet();
    ASSERT_NE(nullptr, state);
    EXPECT_EQ(0x56784321u, state->magic);
    EXPECT_EQ(10u, state->jiffyMs);
    EXPECT_EQ(nullptr, state->baseSource);
    EXPECT_EQ(base / 10, state->cpuTick2msBase);
    EXPECT_EQ(0u, KRV_CpuTickBaseGet(&got));
    EXPECT_EQ(base, got);

    ticks = 3ull * state->cpuTick2msBase - 1;
    EXPECT_EQ(0u, KRV_CpuTick2Ms(&ticks, &ms));
    EXPECT_EQ(2u, ms);
    __extension__ using U128 = unsigned __int128;
    const uint64_t limit = 1844674407370ull;
    EXPECT_EQ(static_cast<uint64_t>(U128(limit) * 10000000u / base), KRV_CpuTick2Ns(limit)) << "multiplies first";
    EXPECT_EQ((limit + 1) / base * 10000000u, KRV_CpuTick2Ns(limit + 1)) << "divides first";
    EXPECT_EQ(static_cast<uint64_t>(U128(123456789) * base / 10000000u), KRV_Ns2CpuTick(123456789));
    EXPECT_EQ(UINT64_MAX / 10000000u * base, KRV_Ns2CpuTick(UINT64_MAX));
    EXPECT_EQ(70u, KRV_CpuTickJiffiesToMS(7));

    EXPECT_EQ(22u, KRV_CpuTickBaseGet(nullptr));
    EXPECT_EQ(22u, KRV_CpuTick2Ms(nullptr, &ms));
    EXPECT_EQ(22u, KRV_CpuTick2Ms(&ticks, nullptr));
    const std::string msLine = "param invalid, cputick or milliSecs is NULL or cpuTick2msBase:" +
                               std::to_string(state->cpuTick2msBase);
    EXPECT_EQ((std::vector<Line>{{22, "param invalid, cpuTickBase err or , cputick = " + std::to_string(base)},
                                 {22, msLine},
                                 {22, msLine}}),
              Take(diags));

    KRV_CpuTickFini();
    EXPECT_EQ(state, krv::cputick::StateGet()) << "one user is left";
    KRV_CpuTickFini();
    EXPECT_EQ(nullptr, krv::cputick::StateGet());
    KRV_CpuTickFini();  // nothing left to count out
}

TEST(CpuInfo, TheFirstMegahertzLineWithinTwentyFiveLinesGivesTheBase)
{
    std::string lines24;
    for (int i = 0; i < 24; ++i) {
        lines24 += "processor\t: " + std::to_string(i) + "\n";
    }
    const std::tuple<std::string, bool, uint32_t> cases[] = {
        {"cpu MHz\t\t: 2400.000\n", true, 24000000},
        {"cpu MHz\t\t: 4500.250\n", true, 45002500},          // whole part above 4294 MHz
        {"cpu MHz\t\t: 4293.999\n", true, 42939990},          // largest whole part multiplied first
        {"cpu MHz\t\t: 2400.4\n", true, 24004000},            // a missing digit ends the fraction
        {"cpu MHz\t\t: 500000.000\n", true, 705032704},       // 32-bit arithmetic wraps
        {"cpu MHz\t\t: x.5\n", true, 5000},                   // no leading digit: whole part 0
        {"cpu MHz : 2400.000\n", true, 0},                    // the whole-part token is ": 2400"
        {"cpu family\t: 6\ncpu MHz\t\t: 2445.412\n", true, 24454120},
        {lines24 + "cpu MHz\t\t: 2400.000\n", true, 24000000},  // line 25
        {lines24 + "model\t: 1\ncpu MHz\t\t: 2400.000\n", false, 0},  // line 26 is never read
        {"cpu\ncpu MHz\t\t: 2400.000\n", false, 0},           // a "cpu" line without a second token ends the search
        {"cpu MHz\t\t: 2400\n", false, 0},                    // no fraction token
        {"model name\t: none\n", false, 0},
    };
    for (const auto &[text, found, base] : cases) {
        std::FILE *f = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
        ASSERT_NE(nullptr, f);
        uint32_t got = 0;
        EXPECT_EQ(found, krv::cputick::CpuInfoBaseParse(f, &got)) << text;
        EXPECT_EQ(base, got) << text;
        std::fclose(f);
    }
}

void CustomAlarm(int) {}

TEST(CpuTick, AlarmCalibrationCountsOverOneSecondAndRestoresTheHandler)
{
    struct sigaction custom = {}, saved = {}, after = {};
    custom.sa_handler = CustomAlarm;
    ASSERT_EQ(0, sigaction(SIGALRM, &custom, &saved));
    for (auto [step, want] : {std::pair<uint64_t, uint32_t>{240000049, 2400000},  // rounds down
                              {240000050, 2400001},                              // the half rounds up
                              {0, 0}}) {
        krvtest::FakeCpuTick::Set(1000, step);  // calibration reads the counter twice
        uint32_t base = 99;
        EXPECT_EQ(0u, krv::cputick::AlarmCalibrate(&base));
        EXPECT_EQ(want, base);
        sigaction(SIGALRM, nullptr, &after);
        EXPECT_EQ(&CustomAlarm, after.sa_handler);
    }
    EXPECT_EQ(0u, alarm(0)) << "no alarm of the calibration is left pending";
    krvtest::FakeCpuTick::Set(1000);
    sigaction(SIGALRM, &saved, nullptr);
}

// Allocation failures, and bases from the calibration (a failing fopen sends the init there).
TEST(CpuTick, FailedInitsLeaveNoStateAndSmallOrLargeBasesPickTheirForm)
{
    const std::tuple<unsigned, uint64_t, uint32_t, std::vector<Line>> cases[] = {
        {0, 0, 12, {{12, "[MERILUX-KRV_CpuTickInit]:alloc memory(32) failed"}}},
        {1, 0, 0x203B1002, {{0x203B1002, "Cpu Tick Init failed"}}},
        {1, 900, 0x203B1003, {{0x203B1003, "cpu tick is zero"}}},  // base 9: no whole tick per ms
    };
    krvtest::DiagCapture diags;
    for (const auto &[failingAlloc, step, code, lines] : cases) {
        krvtest::FakeCpuTick::Set(1000, step);
        {
            krvtest::AllocFailure fail(failingAlloc, 1);
            EXPECT_EQ(code, KRV_CpuTickInit());
        }
        EXPECT_EQ(lines, Take(diags));
        EXPECT_EQ(nullptr, krv::cputick::StateGet());
    }
    const std::tuple<uint64_t, uint32_t, uint32_t> bases[] = {  // step, base, ticks per ms
        {1000, 10, 1},
        {4294967200, 42949672, 4294967},    // largest base computed as base * 100 / 1000
        {4294967300, 42949673, 4294967},    // smallest computed as base / 10
    };
    for (auto [step, base, msBase] : bases) {
        krvtest::FakeCpuTick::Set(1000, step);
        {
            krvtest::AllocFailure fail(1, 1);
            ASSERT_EQ(0u, KRV_CpuTickInit());
        }
        const KrvCpuTickState *state = krv::cputick::StateGet();
        EXPECT_EQ(base, state->cpuTickBase);
        EXPECT_EQ(msBase, state->cpuTick2msBase);
        KRV_CpuTickFini();
    }
    krvtest::FakeCpuTick::Set(1000);
    ASSERT_EQ(0u, KRV_CpuTickInit()) << "a later init works";
    KRV_CpuTickFini();
    EXPECT_EQ(nullptr, krv::cputick::StateGet());
}

}  // namespace
