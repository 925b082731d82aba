// Four threads churn a pool of a few units for a while (KRV_SOAK_SECONDS for longer): no unit may
// ever be held by two threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "krv_mempool.h"
#include "support/krv_test_support.h"

namespace {

constexpr unsigned kThreads = 4;
constexpr uint32_t kUnitSize = 120;
constexpr uint32_t kUnits = 4;

alignas(64) uint8_t g_region[kUnitSize * kUnits];

struct Stamp {
    uint32_t thread;
    uint32_t round;
};

TEST(MemPoolStress, NoUnitIsEverHeldTwice)
{
    ASSERT_EQ(0u, KRV_MemPoolInit());
    uint32_t pool = 0;
    ASSERT_EQ(0u, KRV_MemPoolCreate("stress", g_region, sizeof g_region, kUnitSize, &pool));
    std::atomic<uint32_t> owners[kUnits];
    for (auto &owner : owners) {
        owner = 0;
    }
    std::atomic<unsigned> faults{0};
    std::atomic<uint64_t> pairs{0};
    const auto runFor = krvtest::SoakDuration(std::chrono::milliseconds(krvtest::kSanitized ? 1000 : 2000));
    const auto deadline = std::chrono::steady_clock::now() + runFor;
    auto churn = [&](uint32_t self) {
        std::vector<uint8_t *> held;
        uint32_t round = 0;
        for (; round % 1024 != 0 || std::chrono::steady_clock::now() < deadline; ++round) {
            // Hold up to two units at a time so that releases interleave with other threads' takes.
            auto *unit = static_cast<uint8_t *>(KRV_MemPoolAlloc(pool));
            if (unit != nullptr) {
                uint32_t free = 0;
                size_t index = static_cast<size_t>(unit - g_region) / kUnitSize;
                if (!owners[index].compare_exchange_strong(free, self)) {
                    ++faults;  // handed out while another thread holds it
                }
                const Stamp stamp = {self, round};
                std::memcpy(unit, &stamp, sizeof stamp);
                held.push_back(unit);
            }
            if (held.size() == 2 || (unit == nullptr && !held.empty())) {
                uint8_t *back = held.front();
                held.erase(held.begin());
                Stamp seen;
                std::memcpy(&seen, back, sizeof seen);
                size_t index = static_cast<size_t>(back - g_region) / kUnitSize;
                if (seen.thread != self || owners[index].exchange(0) != self) {
                    ++faults;  // someone wrote into a unit this thread holds
                }
                if (KRV_MemPoolFree(pool, back) != 0) {
                    ++faults;
                }
            }
        }
        pairs += round;
        for (uint8_t *back : held) {
            owners[static_cast<size_t>(back - g_region) / kUnitSize] = 0;
            if (KRV_MemPoolFree(pool, back) != 0) {
                ++faults;
            }
        }
    };
    std::vector<std::thread> threads;
    for (uint32_t t = 1; t <= kThreads; ++t) {
        threads.emplace_back(churn, t);
    }
    for (std::thread &t : threads) {
        t.join();
    }
    EXPECT_EQ(0u, faults.load());
    EXPECT_EQ(kUnits, KRV_MemUnUsedUnitGet(pool));
    std::printf("memory pool: %u threads, %llu take/release rounds on %u units in %lld ms\n", kThreads,
                static_cast<unsigned long long>(pairs.load()), kUnits, static_cast<long long>(runFor.count()));
    EXPECT_EQ(0u, KRV_MemPoolFini());
}

}  // namespace
