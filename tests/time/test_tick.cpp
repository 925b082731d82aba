// The system tick over a fake CPU counter: whole jiffies, sleeps left out, shared lifecycle and a
// failed init that undoes every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "krv_cputick.h"
#include "krv_sleep.h"
#include "krv_tick.h"
#include "support/krv_test_support.h"
#include "time/fake_cputick.h"
#include "time/init_sweep.h"
#include "time/krv_cputick_internal.h"

namespace {

using krvtest::FakeCpuTick;
using Line = std::tuple<std::string, uint32_t, std::string>;  // (file, code, message)

std::vector<Line> Take(krvtest::DiagCapture &diags)
{
    std::vector<Line> lines;
    for (const krvtest::Diag &d : diags.Take()) {
        EXPECT_EQ(2u, d.level) << d.msg;
        lines.emplace_back(d.file, d.code, d.msg);
    }
    return lines;
}

uint64_t Tick()
{
    uint64_t tick = ~0ull;
    EXPECT_EQ(0u, KRV_TickGet(&tick));
    return tick;
}

uint32_t Base()
{
    uint32_t base = 0;
    EXPECT_EQ(0u, KRV_CpuTickBaseGet(&base));
    return base;
}

// Nothing of the tick, the CPU tick or the sleep registry is left; diags had been taken before.
void ExpectNothingLeft(krvtest::DiagCapture &diags)
{
    uint64_t tick = 0;
    EXPECT_EQ(124u, KRV_TickGet(&tick));
    EXPECT_EQ(nullptr, krv::cputick::StateGet());
    uint32_t (*dummy)() = [] { return 0u; };
    EXPECT_EQ(124u, KRV_SleepFuncUnRegister(dummy, dummy));
    EXPECT_EQ((std::vector<Line>{{"krv_tick", 124, "tick is not initialized"},
                                 {"krv_sleep", 124, "Base Sleep Module not Initialize"}}),
              Take(diags));
}

TEST(Tick, CountsWholeJiffiesAndLeavesSleepsOut)
{
    krvtest::DiagCapture diags;
    FakeCpuTick::Set(5000);
    ASSERT_EQ(0u, KRV_TickInit());
    const uint64_t base = Base();
    EXPECT_EQ(0u, Tick());
    FakeCpuTick::Advance(base * 3 / 2);
    EXPECT_EQ(1u, Tick());
    FakeCpuTick::Advance(base);
    EXPECT_EQ(2u, Tick());  // 2.5 jiffies

    KRV_SleepStart();  // folds in 2 whole jiffies, the half is dropped
    FakeCpuTick::Advance(base * 1000);
    KRV_SleepEnd();
    EXPECT_EQ(2u, Tick()) << "the sleep is not counted";
    FakeCpuTick::Advance(base * 7 / 10);
    EXPECT_EQ(2u, Tick());
    FakeCpuTick::Advance(base * 3 / 10);
    EXPECT_EQ(3u, Tick());

    KRV_SleepStart();
    FakeCpuTick::Set(10);  // the counter restarts across the sleep
    KRV_SleepEnd();
    FakeCpuTick::Advance(base);
    EXPECT_EQ(4u, Tick());

    FakeCpuTick::Set(9);  // below the reference
    uint64_t untouched = 77;
    EXPECT_EQ(22u, KRV_TickGet(&untouched));
    EXPECT_EQ(77u, untouched);
    EXPECT_EQ(22u, KRV_TickGet(nullptr));
    EXPECT_EQ((std::vector<Line>{{"krv_tick", 22, "param invalid"}}), Take(diags));
    KRV_TickFini();
    ExpectNothingLeft(diags);
}

TEST(Tick, NestedUsersShareOneHookPairAndOneCpuTick)
{
    krvtest::DiagCapture diags;
    FakeCpuTick::Set(1000);
    ASSERT_EQ(0u, KRV_CpuTickInit());  // a user of its own
    ASSERT_EQ(0u, KRV_TickInit());
    ASSERT_EQ(0u, KRV_TickInit());
    KRV_TickFini();
    const uint64_t base = Base();
    KRV_SleepStart();
    FakeCpuTick::Advance(base * 5);
    KRV_SleepEnd();
    EXPECT_EQ(0u, Tick()) << "the hooks stay with the remaining user";
    KRV_TickFini();
    EXPECT_NE(nullptr, krv::cputick::StateGet()) << "the tick held the CPU tick once";
    KRV_CpuTickFini();
    ExpectNothingLeft(diags);
}

TEST(Tick, AFailedInitUndoesEveryStep)
{
    krvtest::DiagCapture diags;
    // Each allocation in turn, until one init refuses none; the counter is stopped, so a failing
    // open of /proc/cpuinfo leads to a calibration that finds base 0.
    FakeCpuTick::Set(1000);
    std::vector<uint32_t> codes;
    std::vector<Line> lines;
    krvtest::InitSweep(KRV_TickInit, KRV_TickFini, [&](uint32_t rc) {
        if (rc != 0) {
            codes.push_back(rc);
            for (const Line &line : Take(diags)) {
                lines.push_back(line);
            }
        }
        ExpectNothingLeft(diags);
    });
    EXPECT_EQ(12u, codes.front());
    EXPECT_EQ(22u, codes.back()) << "the sleep registry is the last allocation";
    auto seen = [&](const Line &line) { return std::find(lines.begin(), lines.end(), line) != lines.end(); };
    for (const Line &line : std::vector<Line>{{"krv_cputick", 12, "[MERILUX-KRV_CpuTickInit]:alloc memory(32) failed"},
                                              {"krv_tick", 12, "Cputick init failed"},
                                              {"krv_cputick", 0x203B1002, "Cpu Tick Init failed"},
                                              {"krv_tick", 0x203B1002, "Cputick init failed"},
                                              {"krv_tick", 12, "TickCtrl Alloc Memory(24) Failed"},
                                              {"krv_sleep", 22, "param invalid"},
                                              {"krv_tick", 22, "SleepFunc register failed"}}) {
        EXPECT_TRUE(seen(line)) << std::get<2>(line);
    }

    // A full sleep registry.
    uint32_t (*dummy)() = [] { return 0u; };
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(0u, KRV_SleepFuncReg(dummy, dummy));
    }
    EXPECT_EQ(22u, KRV_TickInit());
    EXPECT_EQ(nullptr, krv::cputick::StateGet());
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(0u, KRV_SleepFuncUnRegister(dummy, dummy));
    }
    EXPECT_EQ((std::vector<Line>{{"krv_sleep", 22, "SleepFunc register failed, idx:10"},
                                 {"krv_tick", 22, "SleepFunc register failed"}}),
              Take(diags));

    // A calibrated base of 0xFFFFFFFF passes the CPU tick's init but not KRV_CpuTickBaseGet.
    FakeCpuTick::Set(1000, 429496729500ull);
    {
        krvtest::AllocFailure fail(1, 1);  // the open of /proc/cpuinfo
        EXPECT_EQ(22u, KRV_TickInit());
    }
    FakeCpuTick::Set(1000);
    EXPECT_EQ((std::vector<Line>{{"krv_cputick", 22, "param invalid, cpuTickBase err or , cputick = 4294967295"},
                                 {"krv_tick", 22, "CpuTick get failed, tickBase:0"}}),
              Take(diags));
    ExpectNothingLeft(diags);
}

}  // namespace
