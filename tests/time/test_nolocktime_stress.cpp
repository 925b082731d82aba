// Four threads read the lock-free clock while the real updater thread publishes new snapshots (one
// every 5 s; the run lasts until at least one has come, KRV_SOAK_SECONDS for longer). Within one
// snapshot the stamps of a thread never go back; across a new snapshot they may step back by less
// than the second the snapshot's whole-second time drops, plus calibration slack; and every stamp is
// a valid date close to the system's local time.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>
#include <vector>

#include "krv_nolocktime.h"
#include "krv_time.h"
#include "support/krv_test_support.h"
#include "time/krv_nolocktime_internal.h"

namespace {

TEST(NolockTimeStress, FourReadersAcrossUpdaterPasses)
{
    constexpr int kReaders = 4;
    constexpr int64_t kStepBackMs = 2000;  // the dropped sub-second plus calibration slack over 5 s
    constexpr int64_t kOffMs = 3000;       // from the system's local time
    const auto& store = krv::nolocktime::KrvNolockSnapStoreGet();
    ASSERT_EQ(KRV_NolockTimeInit(), 0u);
    const uint32_t firstSeq = store.Sequence();
    const auto minRun = krvtest::SoakDuration(std::chrono::milliseconds(5500));
    const auto start = std::chrono::steady_clock::now();
    std::atomic<bool> done{false};
    std::atomic<uint64_t> reads{0}, backwards{0}, invalid{0}, far{0};
    std::atomic<int64_t> largestStepBack{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < kReaders; ++r) {
        readers.emplace_back([&] {
            int64_t last = 0;
            uint32_t lastSeq = 0;
            uint64_t count = 0;
            do {
                const uint32_t seq = store.Sequence();
                KrvDateTime d {};
                if (KRV_LmtTimeGetNoLock(&d) != 0 || !KRV_DateTimeCheck(&d)) {
                    ++invalid;
                    continue;
                }
                const int64_t ms = krvtest::FieldsMs(d);
                const bool samePass = seq == lastSeq && store.Sequence() == seq && seq % 2 == 0;
                if (last != 0 && ms < last) {
                    backwards += samePass || last - ms >= kStepBackMs;
                    int64_t seen = largestStepBack;
                    while (last - ms > seen && !largestStepBack.compare_exchange_weak(seen, last - ms)) {
                    }
                }
                if (count % 4096 == 0) {
                    const int64_t system = krvtest::LocalMsNow();
                    far += ms < system - kOffMs || ms > system + kOffMs;
                }
                last = ms;
                lastSeq = seq;
                ++count;
            } while (!done);
            reads += count;
        });
    }
    // At least one pass of the updater after the first snapshot, and the minimum run time.
    while ((store.Sequence() - firstSeq < 2 || std::chrono::steady_clock::now() - start < minRun) &&
           std::chrono::steady_clock::now() - start < minRun + std::chrono::seconds(20)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    done = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
    const uint32_t passes = (store.Sequence() - firstSeq) / 2;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    KRV_NolockTimeFini();
    EXPECT_GE(passes, 1u);
    EXPECT_EQ(invalid.load(), 0u);
    EXPECT_EQ(backwards.load(), 0u);
    EXPECT_EQ(far.load(), 0u);
    std::printf("lock-free clock: %d readers, %llu reads in %lld ms across %u updater passes, largest step back %lld ms\n",
                kReaders, static_cast<unsigned long long>(reads.load()), static_cast<long long>(ms.count()), passes,
                static_cast<long long>(largestStepBack.load()));
}

}  // namespace
