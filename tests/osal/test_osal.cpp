// Memory, version, delay and thread-id services.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "krv_osal.h"
#include "support/krv_test_support.h"

namespace {

uint64_t HeaderWord(const void *block)
{
    uint64_t word;
    std::memcpy(&word, static_cast<const char *>(block) - 8, sizeof(word));
    return word;
}

// Calls KRV_OsalMemAlloc(size) with malloc failing once and returns how many mallocs it refused.
unsigned MallocCallsFor(uint64_t size)
{
    void *block;
    unsigned refused;
    {
        krvtest::AllocFailure fault(0, 1);
        block = KRV_OsalMemAlloc(size);
        refused = fault.Failed();
    }
    EXPECT_EQ(block, nullptr);
    return refused;
}

TEST(OsalMem, AllocHonoursTheExactSizeLimitsAndHeader)
{
    EXPECT_EQ(KRV_OsalMemAlloc(0), nullptr);
    void *one = KRV_OsalMemAlloc(1);
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(HeaderWord(one), 9u);
    KRV_OsalMemFree(one);

    // 2^64 - 9 is still handed to the system allocator; 2^64 - 8 and above would wrap the header
    // addition and never reach it. The armed fault counts whether malloc was asked at all.
    EXPECT_EQ(MallocCallsFor(UINT64_MAX - 8), 1u);
    EXPECT_EQ(MallocCallsFor(UINT64_MAX - 7), 0u);
    EXPECT_EQ(MallocCallsFor(UINT64_MAX), 0u);
}

TEST(OsalMem, FreeIgnoresNullAndTinyAddresses)
{
    KRV_OsalMemFree(nullptr);
    for (uintptr_t addr = 1; addr <= 8; ++addr) {
        KRV_OsalMemFree(reinterpret_cast<void *>(addr));
    }
}

TEST(OsalMem, CallocRefusesZeroAndOverflowAndZeroFills)
{
    EXPECT_EQ(KRV_OsalMemCalloc(0, 4), nullptr);
    EXPECT_EQ(KRV_OsalMemCalloc(4, 0), nullptr);
    EXPECT_EQ(KRV_OsalMemCalloc(1ull << 32, 1ull << 32), nullptr);
    EXPECT_EQ(KRV_OsalMemCalloc(UINT64_MAX, 2), nullptr);
    auto *block = static_cast<unsigned char *>(KRV_OsalMemCalloc(7, 9));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(HeaderWord(block), 63u + 8u);
    for (int i = 0; i < 63; ++i) {
        EXPECT_EQ(block[i], 0) << i;
    }
    KRV_OsalMemFree(block);
    {
        krvtest::AllocFailure fault(0, 1);
        block = static_cast<unsigned char *>(KRV_OsalMemCalloc(2, 2));
    }
    EXPECT_EQ(block, nullptr);
}

TEST(OsalMem, ReallocAlwaysMovesAndKeepsTheOldBlockOnFailure)
{
    auto *p = static_cast<char *>(KRV_OsalMemAlloc(16));
    ASSERT_NE(p, nullptr);
    std::memcpy(p, "abcdefghijklmnop", 16);
    void *moved;
    {
        krvtest::AllocFailure fault(0, 1);
        moved = KRV_OsalMemRealloc(p, 32, 16);
    }
    EXPECT_EQ(moved, nullptr);
    EXPECT_EQ(std::memcmp(p, "abcdefghijklmnop", 16), 0);  // still owned and intact

    auto *shrunk = static_cast<char *>(KRV_OsalMemRealloc(p, 4, 16));
    ASSERT_NE(shrunk, nullptr);
    EXPECT_EQ(std::memcmp(shrunk, "abcd", 4), 0);
    EXPECT_EQ(HeaderWord(shrunk), 12u);

    auto *grown = static_cast<char *>(KRV_OsalMemRealloc(shrunk, 16, 4));
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(std::memcmp(grown, "abcd", 4), 0);

    auto *same = static_cast<char *>(KRV_OsalMemRealloc(grown, 16, 16));
    ASSERT_NE(same, nullptr);
    EXPECT_EQ(std::memcmp(same, "abcd", 4), 0);
    KRV_OsalMemFree(same);

    EXPECT_EQ(KRV_OsalMemRealloc(nullptr, 0, 0), nullptr);
    // A null old block with a non-zero old size fails the bounded copy, not the process.
    EXPECT_EQ(KRV_OsalMemRealloc(nullptr, 8, 8), nullptr);
}

TEST(OsalMem, DumpCopiesOrRefuses)
{
    const char text[] = "dump me";
    EXPECT_EQ(KRV_OsalMemDump(nullptr, 5), nullptr);
    EXPECT_EQ(KRV_OsalMemDump(text, 0), nullptr);
    auto *copy = static_cast<char *>(KRV_OsalMemDump(text, sizeof(text)));
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, text);
    KRV_OsalMemFree(copy);
    {
        krvtest::AllocFailure fault(0, 1);
        copy = static_cast<char *>(KRV_OsalMemDump(text, sizeof(text)));
    }
    EXPECT_EQ(copy, nullptr);
}

void SomeDumpFunc() {}

TEST(OsalInfo, VersionsDumpHooksPageSizeAndThreadId)
{
    EXPECT_STREQ(KRV_VersionGet(), "Merilux_2.22.0.104-build.0100");
    EXPECT_STREQ(KRV_VersionReleaseTimeGet(), "2022-12-03 10:00");
    EXPECT_STREQ(KRV_VersionUgmVersionGet(), "Merilux_UGM_2.22.0.104-build.0100");

    EXPECT_EQ(KRV_OsalMemDmgDumpFuncGet(), nullptr);
    EXPECT_EQ(KRV_OsalDlmSliceDumpFuncGet(), nullptr);
    KRV_OsalDlmSliceDumpFuncReg(SomeDumpFunc);
    EXPECT_EQ(KRV_OsalDlmSliceDumpFuncGet(), &SomeDumpFunc);
    KRV_OsalDlmSliceDumpFuncReg(nullptr);
    EXPECT_EQ(KRV_OsalDlmSliceDumpFuncGet(), nullptr);

    EXPECT_EQ(KRV_OsalPageSizeGet(), sysconf(_SC_PAGESIZE));
    EXPECT_EQ(KRV_OsalPageSizeGet(), sysconf(_SC_PAGESIZE));

    EXPECT_EQ(KRV_OsalTaskTidGet(), static_cast<int64_t>(syscall(SYS_gettid)));
    int64_t other = 0;
    std::thread([&other] { other = KRV_OsalTaskTidGet(); }).join();
    EXPECT_NE(other, KRV_OsalTaskTidGet());
}

void IgnoreSignal(int) {}

TEST(OsalDelay, ReturnsAtOnceForZeroAndRestartsTheWholeIntervalAfterASignal)
{
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    KRV_OsalTaskDelay(0, 0);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));

    // No SA_RESTART: select() fails with EINTR when the signal lands.
    struct sigaction action = {};
    action.sa_handler = IgnoreSignal;
    struct sigaction previous = {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);

    std::atomic<bool> sleeping{false};
    pthread_t sleeper = pthread_self();
    std::thread interrupter([&] {
        while (!sleeping.load()) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        pthread_kill(sleeper, SIGUSR1);
    });
    sleeping.store(true);
    start = Clock::now();
    KRV_OsalTaskDelay(1, 0);
    auto elapsed = Clock::now() - start;
    interrupter.join();
    sigaction(SIGUSR1, &previous, nullptr);
    // Interrupted near 500 ms, then a fresh full second: well beyond the second asked for.
    EXPECT_GE(elapsed, std::chrono::milliseconds(1400));
}

}  // namespace
