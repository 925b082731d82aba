// Many threads logging through a logger into the file ring: lines stay whole, the ring never grows
// past three files, and every line is either written once or reported as dropped.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hok_log.h"
#include "krv_log_ops.h"
#include "support/krv_test_support.h"

using namespace Hok::Log;
namespace fs = std::filesystem;

namespace {

constexpr int kThreads = 4;
constexpr int kLines = 20000;  // per thread

// Every file's contents (the last tailBytes of each, when given), counting the files.
std::string RingText(const std::string &dir, size_t *files, std::streamoff tailBytes = 0)
{
    std::string text;
    *files = 0;
    for (const auto &entry : fs::directory_iterator(dir)) {
        std::ifstream in(entry.path(), std::ios::binary | std::ios::ate);
        std::streamoff size = in.tellg();
        in.seekg(tailBytes > 0 && size > tailBytes ? size - tailBytes : 0);
        text.append(std::istreambuf_iterator<char>(in), {});
        ++*files;
    }
    return text;
}

// Logs kThreads x kLines lines "t<thread> n<seq>" into a fresh ring, waits for the writer to catch
// up (lines still queued at FiniLogging are discarded) and checks every line written: its layout,
// and that none comes twice; every drop is both reported and counted. Returns written lines +
// dropped lines - lines logged.
long LogUnderLoad(const std::string &root, uint32_t logSize)
{
    krvtest::StdoutCapture out;
    const auto started = std::chrono::steady_clock::now();
    InitLogging("stress", root, logSize, LOG_LEVEL_INFO, LOG_MODE_FILE);
    Logger *logger = CreateLogger("stress", "load test");
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([logger, t] {
            for (int n = 0; n < kLines; ++n) {
                logger->LogInfo("stress.cpp", 7) << "t" << t << " n" << n;
                if (n % 25 == 24) {  // let the writer through now and then: drops and writes both happen
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }
        });
    }
    for (std::thread &p : producers) {
        p.join();
    }
    // The queue is first in, first out: once a sentinel (thread kThreads) is in a file, all lines
    // before it are too. A sentinel may meet a full queue itself, so more follow (30 s at most).
    long balance = -kThreads * kLines;
    size_t files = 0;
    bool drained = false;
    for (int sentinel = 0; sentinel < 60 && !drained; ++sentinel, --balance) {
        logger->LogInfo("stress.cpp", 7) << "t" << kThreads << " n" << sentinel;
        const std::string expected = "] > t" + std::to_string(kThreads) + " n" + std::to_string(sentinel) + "\n";
        for (int poll = 0; poll < 25 && !drained; ++poll) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            drained = RingText(root + "/stress", &files, 256).find(expected) != std::string::npos;
        }
    }
    EXPECT_TRUE(drained);
    const uint64_t dropped = KRV_LogOpsDropCountGet();
    const long logged = -balance;
    logger->Destroy();
    FiniLogging();
    krvtest::CloseFilesUnder(root);
    const std::string printed = out.Finish(), text = RingText(root + "/stress", &files);
    EXPECT_LE(files, 3u);
    uint64_t reported = 0;
    for (size_t at = 0; (at = printed.find("log buf add failed, buffer is full\r\n", at)) != std::string::npos; ++at) {
        ++reported;
    }
    EXPECT_EQ(reported, dropped);
    balance += static_cast<long>(dropped);
    EXPECT_TRUE(text.empty() || text.back() == '\n') << "the ring ends in the middle of a line";
    std::vector<bool> seen((kThreads + 1) * kLines, false);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); ++balance) {
        int thread = -1, seq = -1, end = 0;
        if (line.compare(27, 38, "][4][0x0][stress.cpp:7][stress][I] > t") != 0 ||
            std::sscanf(line.c_str() + 65, "%d n%d%n", &thread, &seq, &end) != 2 || line[65 + end] != '\0' ||
            thread < 0 || thread > kThreads || seq < 0 || seq >= kLines) {
            ADD_FAILURE() << "malformed line: " << line;
            break;
        }
        EXPECT_FALSE(seen[thread * kLines + seq]) << "written twice: " << line;
        seen[thread * kLines + seq] = true;
    }
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    std::printf("log backend: %d threads, %ld lines logged, %ld in the ring, %llu dropped, in %lld ms (ring of %u bytes)\n",
                kThreads, logged, balance + logged - static_cast<long>(dropped), static_cast<unsigned long long>(dropped),
                static_cast<long long>(ms.count()), logSize);
    return balance;
}

TEST(HokLogStress, LinesStayWholeTheRingSmallAndEveryLineIsWrittenOnceOrReportedDropped)
{
    krvtest::TempDir small, large;
    LogUnderLoad(small.Path(), 60000);  // about 260 lines per file: most lines are deleted again
    EXPECT_EQ(LogUnderLoad(large.Path(), 3u * 64u * 1024u * 1024u), 0) << "nothing is ever deleted";
    // A soak run (KRV_SOAK_SECONDS) repeats both until its time is up.
    const auto soakEnd = std::chrono::steady_clock::now() + krvtest::SoakDuration(std::chrono::milliseconds(0));
    while (std::chrono::steady_clock::now() < soakEnd) {
        krvtest::TempDir again, againLarge;
        LogUnderLoad(again.Path(), 60000);
        ASSERT_EQ(LogUnderLoad(againLarge.Path(), 3u * 64u * 1024u * 1024u), 0);
    }
}

}  // namespace
