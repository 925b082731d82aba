// The per-thread error stack through the exported API. The stacks are process-wide, so every test
// starts from a freshly initialised module and leaves it removed and de-initialised.
#include <gtest/gtest.h>

#include <atomic>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <tuple>
#include <vector>

#include "krv_osaleno.h"
#include "support/krv_test_support.h"

namespace {

const std::string kRefusal = "New Avl Node failed, avlNodeCount:256, maxAvlNodes:";

class ErrStack : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0u, KRV_EnoErrCodeInit()); }
    void TearDown() override
    {
        KRV_EnoErrorStackRemove(true);
        EXPECT_EQ(0u, KRV_EnoErrCodeDeInit());
    }
};

uint32_t PopOnOtherThread()
{
    uint32_t result = 0;
    std::thread([&result] { result = KRV_EnoLastErrorGet(); }).join();
    return result;
}

TEST_F(ErrStack, PushPopRangesRingWrapAndReferences)
{
    KRV_EnoErrorWrapperPush(0, 255, 1);
    KRV_EnoErrorWrapperPush(0, 1, 65535);
    KRV_EnoErrorRefInc();
    KRV_EnoErrorStackClear();
    EXPECT_EQ(0u, PopOnOtherThread());  // all ignored: no stack anywhere
    KRV_EnoErrorWrapperPush(0, 0, 0);      // creates an empty stack
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());
    EXPECT_EQ(KRV_ERR_UNKNOWN, PopOnOtherThread());
    KRV_EnoErrorWrapperPush(0x2001, 254, 65534);  // errNo overlaps the module bits
    EXPECT_EQ(0x2001FFFEu, KRV_EnoLastErrorGet());
    for (uint32_t i = 1; i <= 41; ++i) {
        KRV_EnoErrorWrapperPush(0, 9, i);
    }
    for (uint32_t i = 41; i >= 2; --i) {
        ASSERT_EQ(0x900u | i, KRV_EnoLastErrorGet());
    }
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());

    // References hold off a clear but not a forced clear; a decrement stops at 0.
    KRV_EnoErrorRefDec();
    KRV_EnoErrorRefInc();
    KRV_EnoErrorWrapperPush(0, 1, 1);
    KRV_EnoErrorStackClear();
    EXPECT_EQ(0x101u, KRV_EnoLastErrorGet());
    KRV_EnoErrorWrapperPush(0, 1, 2);
    KRV_EnoErrorStackForceClear();
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());
    KRV_EnoErrorWrapperPush(0, 1, 3);
    KRV_EnoErrorRefDec();
    KRV_EnoErrorStackClear();
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());
}

TEST_F(ErrStack, LimitRangeAndNodeLimitWithRealThreads)
{
    for (int32_t limit : {254, 16777216, -1, INT32_MIN, 16777215, 255}) {
        EXPECT_EQ(limit == 255 || limit == 16777215 ? KRV_OK : KRV_ERR_UNKNOWN, KRV_EnoMaxErrorLimitSet(limit)) << limit;
    }
    EXPECT_EQ(0u, KRV_EnoErrCodeInit());  // already initialised: the limit is kept
    EXPECT_EQ(255u, KRV_EnoMaxErrorLimitGet());
    // 257 threads push once each and stay until all have pushed, so that their ids are distinct.
    krvtest::DiagCapture diags;
    std::atomic<unsigned> pushed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 257; ++i) {
        threads.emplace_back([&pushed] {
            KRV_EnoErrorWrapperPush(0, 1, 2);
            for (++pushed; pushed < 257;) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    std::vector<krvtest::Diag> got = diags.Take();
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(std::make_tuple(22u, 2u, std::string("krv_osaleno"), 506u, kRefusal),
              std::tie(got[0].code, got[0].level, got[0].file, got[0].line, got[0].msg));
}

// A thread whose record could not be allocated reads as an empty stack and retries on its next push.
TEST_F(ErrStack, RecordlessStackReadsEmptyUntilAPushAllocatesIt)
{
    {
        krvtest::AllocFailure failRecord(0, 1);
        KRV_EnoErrorWrapperPush(0, 3, 4);
    }
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());  // empty, not 255: the thread has a node
    KRV_EnoErrorRefInc();
    KRV_EnoErrorStackForceClear();
    EXPECT_EQ(KRV_ERR_UNKNOWN, PopOnOtherThread());
    KRV_EnoErrorWrapperPush(0, 3, 5);
    EXPECT_EQ(0x305u, KRV_EnoLastErrorGet());
}

// 300 threads at once push, pop and remove their stacks for a while (KRV_SOAK_SECONDS for longer),
// churning the shared tree: each must only ever see its own codes, newest first.
TEST_F(ErrStack, ConcurrentThreadsSeeOnlyTheirOwnCodes)
{
    constexpr uint32_t kThreads = 300;
    const auto runFor = krvtest::SoakDuration(std::chrono::milliseconds(krvtest::kSanitized ? 1000 : 2000));
    std::atomic<unsigned> faults{0}, ready{0};
    std::atomic<bool> go{false};
    std::atomic<uint64_t> operations{0};
    std::chrono::steady_clock::time_point deadline;
    std::vector<std::thread> threads;
    for (uint32_t t = 1; t <= kThreads; ++t) {
        threads.emplace_back([t, &faults, &ready, &go, &operations, &deadline] {
            for (++ready; !go;) {  // all alive at once: distinct ids, a tree of 300
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            uint64_t done = 0;
            for (uint32_t round = 0; round == 0 || std::chrono::steady_clock::now() < deadline; ++round) {
                uint32_t pushes = round % 45 + 1;
                for (uint32_t i = 1; i <= pushes; ++i) {
                    KRV_EnoErrorWrapperPush(t, 7, i);
                }
                for (uint32_t i = pushes; i + 40 > pushes && i >= 1; --i) {
                    faults += KRV_EnoLastErrorGet() != ((t << 16) | 0x700u | i);
                }
                faults += KRV_EnoLastErrorGet() != 0;
                done += pushes + std::min(pushes, 40u) + 1;
                if (round % 50 == 49) {
                    KRV_EnoErrorStackRemove(false);  // churn the tree while others use it
                }
            }
            operations += done;
        });
    }
    while (ready < kThreads) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    deadline = std::chrono::steady_clock::now() + runFor;
    go = true;
    for (std::thread &t : threads) {
        t.join();
    }
    EXPECT_EQ(0u, faults.load());
    std::printf("error stack: %u threads, %llu pushes and pops in %lld ms\n", kThreads,
                static_cast<unsigned long long>(operations.load()), static_cast<long long>(runFor.count()));
}

}  // namespace
