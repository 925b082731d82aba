// CPU tick over the processor's own counter (no read function is registered in this binary).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "krv_cputick.h"
#include "krv_status.h"
#include "time/krv_cputick_internal.h"

namespace {

TEST(CpuTickReal, TheCounterAdvancesAtTheParsedRate)
{
    ASSERT_EQ(nullptr, KRV_CpuTickGetFuncGet());
    std::FILE *f = std::fopen("/proc/cpuinfo", "r");
    ASSERT_NE(nullptr, f);
    uint32_t parsed = 0;
    ASSERT_TRUE(krv::cputick::CpuInfoBaseParse(f, &parsed));
    std::fclose(f);

    ASSERT_EQ(0u, KRV_CpuTickInit());
    uint32_t base = 0;
    EXPECT_EQ(0u, KRV_CpuTickBaseGet(&base));
    EXPECT_EQ(parsed, base);
    uint32_t osalBase = 0;
    EXPECT_EQ(0u, KRV_OsalCpuTickBaseGet(&osalBase));  // the init's own search, made again
    EXPECT_GT(osalBase, 0u);  // a frequency-scaled figure may move between reads: positive is what holds
    EXPECT_EQ(KRV_ERR_INVALID, KRV_OsalCpuTickBaseGet(nullptr));
    const uint64_t before = KRV_CpuTickGet();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const uint64_t ns = KRV_CpuTick2Ns(KRV_CpuTickGet() - before);
    EXPECT_GE(ns, 10000000u);  // generous: the clock rate in cpuinfo may differ from the counter's
    EXPECT_LE(ns, 10000000000u);
    KRV_CpuTickFini();
    EXPECT_EQ(nullptr, krv::cputick::StateGet());
}

}  // namespace
