// The two-slot snapshot under a writer publishing as fast as it can: readers must only ever see
// whole snapshots, never going backwards. Run it under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <thread>
#include <vector>

#include "time/krv_nolocktime_snap.h"

using krv::nolocktime::KrvNolockSnapStore;

namespace {

// Snapshot k: every field derived from k, so a torn read shows as a mismatch.
struct tm Snapshot(uint32_t k)
{
    struct tm t {};
    int v = static_cast<int>(k);
    t.tm_sec = v;
    t.tm_min = v + 1;
    t.tm_hour = v + 2;
    t.tm_mday = v + 3;
    t.tm_mon = v + 4;
    t.tm_year = v + 5;
    t.tm_wday = v + 6;
    t.tm_yday = v + 7;
    t.tm_isdst = v + 8;
    return t;
}

TEST(NolockTimeSnapshot, ReadersSeeWholeSnapshotsInOrder)
{
    KrvNolockSnapStore store;
    uint64_t tick = 99;
    struct tm local = Snapshot(7);
    store.Read(&tick, &local);
    EXPECT_EQ(tick, 0u);
    EXPECT_EQ(local.tm_year, 0);
    EXPECT_EQ(store.Sequence(), 0u);

    constexpr uint32_t kPublishes = 200000;
    store.Publish(1, Snapshot(1));  // readers start from a published snapshot
    std::atomic<bool> done{false};
    std::atomic<uint64_t> reads{0};
    std::atomic<uint64_t> faults{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&] {
            uint64_t last = 0;
            uint64_t count = 0;
            do {
                uint64_t k = 0;
                struct tm seen {};
                store.Read(&k, &seen);
                struct tm expected = Snapshot(static_cast<uint32_t>(k));
                bool whole = seen.tm_sec == expected.tm_sec && seen.tm_min == expected.tm_min &&
                             seen.tm_hour == expected.tm_hour && seen.tm_mday == expected.tm_mday &&
                             seen.tm_mon == expected.tm_mon && seen.tm_year == expected.tm_year &&
                             seen.tm_wday == expected.tm_wday && seen.tm_yday == expected.tm_yday &&
                             seen.tm_isdst == expected.tm_isdst;
                faults += !whole || k < last;
                last = k;
                ++count;
            } while (!done.load());
            reads += count;
        });
    }
    for (uint32_t k = 2; k <= kPublishes; ++k) {
        store.Publish(k, Snapshot(k));
    }
    done = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_EQ(faults.load(), 0u);
    EXPECT_GE(reads.load(), 3u);
    EXPECT_EQ(store.Sequence(), 2 * kPublishes);
    store.Read(&tick, &local);
    EXPECT_EQ(tick, kPublishes);
    EXPECT_EQ(local.tm_isdst, static_cast<int>(kPublishes) + 8);
}

}  // namespace
