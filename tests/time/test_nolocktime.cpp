// The lock-free clock through its exported functions, with the real updater thread and CPU tick.
// The last fini waits for the updater's 5 s sleep, so only one test runs the module's lifecycle.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "krv_cputick.h"
#include "krv_nolocktime.h"
#include "support/krv_test_support.h"
#include "time/krv_nolocktime_internal.h"

namespace {

using Line = std::pair<uint32_t, std::string>;  // (code, message)
using Lines = std::vector<Line>;

Lines Take(krvtest::DiagCapture &diags)
{
    Lines lines;
    for (const krvtest::Diag &d : diags.Take()) {
        EXPECT_EQ(d.level, 2u) << d.msg;
        lines.emplace_back(d.code, d.file + ": " + d.msg);
    }
    return lines;
}

const Line kNotInit = {124, "krv_nolocktime: nolock time is not initialized"};

TEST(NolockTime, RefusesANullDateAndReadsBeforeInit)
{
    krvtest::DiagCapture diags;
    KrvDateTime date{2001, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(KRV_LmtTimeGetNoLock(nullptr), 22u);
    EXPECT_EQ(KRV_LmtTimeGetNoLock(&date), 124u);
    EXPECT_EQ(date.year, 2001);
    KRV_NolockTimeFini();  // without an init: nothing to count out
    EXPECT_EQ(Take(diags), (Lines{{22, "krv_nolocktime: param invalid"}, kNotInit}));
}

TEST(NolockTime, FailedInitsReleaseTheCpuTickAndStartNoThread)
{
    krvtest::DiagCapture diags;
    KrvDateTime date{};
    uint32_t base = 0;
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(KRV_NolockTimeInit(), 12u);
    }
    EXPECT_EQ(Take(diags), (Lines{{12, "krv_cputick: [MERILUX-KRV_CpuTickInit]:alloc memory(32) failed"},
                                  {12, "krv_nolocktime: Cpu Tick init failed"}}));
    size_t threads = krvtest::ThreadCount();
    {
        krvtest::ThreadFailure refuse(0, 1);
        EXPECT_EQ(KRV_NolockTimeInit(), 1u);
    }
    EXPECT_EQ(krvtest::ThreadCount(), threads);
    EXPECT_EQ(KRV_LmtTimeGetNoLock(&date), 124u);
    EXPECT_EQ(KRV_CpuTickBaseGet(&base), 124u);  // the CPU tick was released again
    EXPECT_EQ(Take(diags), (Lines{{EAGAIN, "krv_nolocktime: thread create failed"},
                                  {1, "krv_nolocktime: Nolock Time Cfg Init failed"},
                                  kNotInit,
                                  {124, "krv_cputick: cpu tick is not initialized"}}));
}

TEST(NolockTime, ReadersFollowLocalTimeWhileTheUpdaterRunsUntilTheLastFini)
{
    krvtest::DiagCapture diags;
    const size_t baseThreads = krvtest::SettledThreadCount();
    ASSERT_EQ(KRV_NolockTimeInit(), 0u);
    ASSERT_EQ(KRV_NolockTimeInit(), 0u);  // only counts
    EXPECT_TRUE(krvtest::WaitFor([&] { return krvtest::ThreadCount() == baseThreads + 1; }));
    const krv::nolocktime::KrvNolockSnapStore &store = krv::nolocktime::KrvNolockSnapStoreGet();
    const uint32_t firstSeq = store.Sequence();

    // Readers bracket each reading between two readings of the system clock. The snapshot keeps
    // time(NULL)'s whole seconds but measures the sub-second part from its own instant, so a
    // reading may lag by up to a second; the rest allows for the tick base's calibration error.
    constexpr int64_t kLagMs = 1000;
    constexpr int64_t kSlackMs = 500;
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> reads{0};
    std::atomic<uint64_t> outside{0};
    std::atomic<uint64_t> failures{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 4; ++r) {
        readers.emplace_back([&] {
            while (!stop.load()) {
                int64_t lo = krvtest::LocalMsNow();
                KrvDateTime date{};
                failures += KRV_LmtTimeGetNoLock(&date) != 0;
                int64_t hi = krvtest::LocalMsNow();
                int64_t ms = krvtest::FieldsMs(date);
                outside += ms < lo - kLagMs - kSlackMs || ms > hi + kSlackMs || date.microsecond != 0;
                ++reads;
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    // The updater publishes again within 5 s of the init (generous bound for loaded sanitizer runs).
    EXPECT_TRUE(krvtest::WaitFor([&] { return store.Sequence() >= firstSeq + 2; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    stop = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_GT(reads.load(), 0u);
    EXPECT_EQ(outside.load(), 0u);
    EXPECT_EQ(failures.load(), 0u);
    EXPECT_EQ(firstSeq % 2, 0u);

    KRV_NolockTimeFini();  // one user left: still running
    KrvDateTime date{};
    EXPECT_EQ(KRV_LmtTimeGetNoLock(&date), 0u);
    EXPECT_EQ(krvtest::ThreadCount(), baseThreads + 1);
    KRV_NolockTimeFini();  // the last: joins the updater
    EXPECT_TRUE(krvtest::WaitFor([&] { return krvtest::ThreadCount() == baseThreads; }));
    EXPECT_EQ(KRV_LmtTimeGetNoLock(&date), 124u);
    EXPECT_EQ(Take(diags), (Lines{kNotInit}));
}

}  // namespace
