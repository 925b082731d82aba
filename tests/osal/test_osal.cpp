// Memory blocks, version texts, thread ids and the delay.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "krv_osal.h"
#include "support/krv_test_support.h"

namespace {

uint64_t HeaderWord(const void *block) { return static_cast<const uint64_t *>(block)[-1]; }

// Whether KRV_OsalMemAlloc(size) asked malloc at all (malloc refuses the one call it gets).
bool ReachesMalloc(uint64_t size)
{
    krvtest::AllocFailure fault(0, 1);
    return KRV_OsalMemAlloc(size) == nullptr && fault.Failed() == 1;
}

TEST(OsalMem, SizeLimitsHeadersCopiesAndRefusals)
{
    // 2^64 - 9 is still handed to malloc; from 2^64 - 8 the header addition would wrap.
    EXPECT_TRUE(ReachesMalloc(UINT64_MAX - 8));
    EXPECT_FALSE(ReachesMalloc(UINT64_MAX - 7));
    KRV_OsalMemFree(reinterpret_cast<void *>(8));  // at or below the header size: ignored, never freed
    const char text[] = "abcdefghijklmnop";
    int call = 0;
    for (void *refused : {KRV_OsalMemAlloc(0), KRV_OsalMemCalloc(0, 4), KRV_OsalMemCalloc(4, 0),
                          KRV_OsalMemCalloc(1ull << 32, 1ull << 32), KRV_OsalMemCalloc((1ull << 63) + 1, 2),
                          KRV_OsalMemDump(nullptr, 5), KRV_OsalMemDump(text, 0), KRV_OsalMemRealloc(nullptr, 8, 8)}) {
        EXPECT_EQ(nullptr, refused) << "call " << call++;
    }
    void *one = KRV_OsalMemAlloc(1);
    auto *zeros = static_cast<char *>(KRV_OsalMemCalloc(7, 9));
    auto *p = static_cast<char *>(KRV_OsalMemDump(text, 16));
    ASSERT_TRUE(one != nullptr && zeros != nullptr && p != nullptr);
    EXPECT_EQ(std::string(63, '\0'), std::string(zeros, 63));
    EXPECT_EQ(0, std::memcmp(p, text, 16));
    {
        krvtest::AllocFailure fault(0, 1);
        EXPECT_EQ(nullptr, KRV_OsalMemRealloc(p, 32, 16));
    }
    EXPECT_EQ(0, std::memcmp(p, text, 16)) << "a failed realloc keeps the old block";

    // Always a new block, even for the same size; the old one is freed only after the copy.
    auto *shrunk = static_cast<char *>(KRV_OsalMemRealloc(p, 4, 16));
    ASSERT_NE(nullptr, shrunk);
    EXPECT_EQ((std::vector<uint64_t>{9, 63 + 8, 4 + 8}), (std::vector<uint64_t>{HeaderWord(one), HeaderWord(zeros),
                                                                                 HeaderWord(shrunk)}));
    auto *same = static_cast<char *>(KRV_OsalMemRealloc(shrunk, 4, 4));
    ASSERT_NE(nullptr, same);
    EXPECT_NE(shrunk, same);
    EXPECT_EQ(0, std::memcmp(same, "abcd", 4));
    for (void *block : {one, static_cast<void *>(zeros), static_cast<void *>(same)}) {
        KRV_OsalMemFree(block);
    }
}

TEST(OsalInfo, VersionTextsAndTheStoredDumpHook)
{
    EXPECT_STREQ("Merilux_2.22.0.104-build.0100", KRV_VersionGet());
    EXPECT_STREQ("2022-12-03 10:00", KRV_VersionReleaseTimeGet());
    EXPECT_STREQ("Merilux_UGM_2.22.0.104-build.0100", KRV_VersionUgmVersionGet());
    EXPECT_EQ(nullptr, KRV_OsalMemDmgDumpFuncGet());
    KRV_OsalDlmSliceDumpFuncReg(reinterpret_cast<KrvOsalDumpFunc>(&KRV_OsalPageSizeGet));
    EXPECT_EQ(reinterpret_cast<KrvOsalDumpFunc>(&KRV_OsalPageSizeGet), KRV_OsalDlmSliceDumpFuncGet());
    EXPECT_EQ(sysconf(_SC_PAGESIZE), KRV_OsalPageSizeGet());
    int64_t tids[2] = {KRV_OsalTaskTidGet(), 0};
    std::thread([&tids] { tids[1] = KRV_OsalTaskTidGet() - syscall(SYS_gettid); }).join();
    EXPECT_EQ((std::vector<int64_t>{syscall(SYS_gettid), 0}), (std::vector<int64_t>(tids, tids + 2)));
}

TEST(OsalDelay, ASignalRestartsTheWholeInterval)
{
    using Clock = std::chrono::steady_clock;
    struct sigaction action = {}, previous = {};
    action.sa_handler = [](int) {};  // no SA_RESTART: select() fails with EINTR
    ASSERT_EQ(0, sigaction(SIGALRM, &action, &previous));
    itimerval halfway = {{0, 0}, {0, 500000}};
    auto start = Clock::now();
    setitimer(ITIMER_REAL, &halfway, nullptr);
    KRV_OsalTaskDelay(1, 0);
    sigaction(SIGALRM, &previous, nullptr);
    // Interrupted at 500 ms, then a fresh full second: well beyond the second asked for.
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(1400));
}

}  // namespace
