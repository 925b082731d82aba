// Many threads logging through a logger into the file ring: lines stay whole, the ring never grows
// past three files, and every line is either written once or reported as dropped.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hok_log.h"
#include "support/krv_test_support.h"

using namespace Hok::Log;
namespace fs = std::filesystem;

namespace {

constexpr int kThreads = 4;
constexpr int kLinesPerThread = 20000;
constexpr int kBurstLines = 25;
constexpr char kDropReport[] = "log buf add failed, buffer is full\r\n";

struct RunOutcome {
    size_t logged = 0;     // lines handed to the logger, sentinels included
    size_t dropped = 0;    // "buffer is full" reports
    size_t mostFiles = 0;  // most files seen in the ring directory at once
    std::string text;      // every file's contents, concatenated
};

size_t CountFiles(const std::string &dir)
{
    std::error_code ec;
    size_t count = 0;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        ++count;
    }
    return count;
}

// Every file's contents, concatenated; with tailBytes, only the last tailBytes of each file.
std::string RingText(const std::string &dir, std::streamoff tailBytes = 0)
{
    std::string text;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        std::ifstream in(it->path(), std::ios::binary | std::ios::ate);
        std::streamoff size = in.tellg();
        in.seekg(tailBytes > 0 && size > tailBytes ? size - tailBytes : 0);
        text.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return text;
}

// Logs kThreads x kLinesPerThread lines "t<thread> n<seq>" into a fresh ring under root, waits for
// the writer to catch up (lines still queued at FiniLogging are discarded), and stops logging.
RunOutcome LogUnderLoad(const std::string &root, uint32_t logSize)
{
    RunOutcome run;
    const std::string ring = root + "/stress";
    krvtest::StdoutCapture out;
    InitLogging("stress", root, logSize, LOG_LEVEL_INFO, LOG_MODE_FILE);
    EXPECT_TRUE(IsLogInited());
    Logger *logger = CreateLogger("stress", "load test");
    std::atomic<int> running{kThreads};
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([logger, t, &running] {
            for (int n = 0; n < kLinesPerThread; ++n) {
                logger->LogInfo("stress.cpp", 7) << "t" << t << " n" << n;
                // Pause now and then so that the writer gets lines through as well as the queue
                // overflowing: both paths are under test.
                if (n % kBurstLines == kBurstLines - 1) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }
            running.fetch_sub(1);
        });
    }
    while (running.load() > 0) {
        run.mostFiles = std::max(run.mostFiles, CountFiles(ring));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::thread &p : producers) {
        p.join();
    }
    run.logged = kThreads * kLinesPerThread;

    // The queue is first in, first out: once a sentinel is in a file, all lines before it are too.
    // A sentinel may meet a full queue itself, so another follows until one lands (30 s at most).
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    bool drained = false;
    for (int sentinel = 0; sentinel < 60 && !drained; ++sentinel) {
        logger->LogInfo("stress.cpp", 7) << "t0 sentinel " << sentinel;
        ++run.logged;
        std::string expected = "> t0 sentinel " + std::to_string(sentinel) + "\n";
        for (int poll = 0; poll < 25 && !drained; ++poll) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            drained = RingText(ring, 256).find(expected) != std::string::npos;
        }
    }
    EXPECT_TRUE(drained);
    run.mostFiles = std::max(run.mostFiles, CountFiles(ring));
    logger->Destroy();
    FiniLogging();
    std::string printed = out.Finish();
    for (size_t at = printed.find(kDropReport); at != std::string::npos; at = printed.find(kDropReport, at + 1)) {
        ++run.dropped;
    }
    run.text = RingText(ring);
    return run;
}

// Checks every line of the ring for the exact layout and returns how many there are. Producer
// lines are marked in `seen` when given, which must not find any line twice.
size_t CheckLines(const std::string &text, std::vector<bool> *seen)
{
    static const std::regex kLine(R"(\[\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d\.\d{6}\]\[4\]\[0x0\]\[stress\.cpp:7\])"
                                  R"(\[stress\]\[I\] > t[0-3] (n\d+|sentinel \d+))");
    EXPECT_TRUE(text.empty() || text.back() == '\n') << "the ring ends in the middle of a line";
    std::istringstream lines(text);
    size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        // The full pattern is costly under the sanitizers: every line gets its fixed columns and
        // its tail checked, and a sample the whole pattern.
        int thread = 0;
        int seq = 0;
        char extra = 0;
        const char *tail = line.size() > 65 ? line.c_str() + 65 : "";
        bool producer = std::sscanf(tail, "%d n%d%c", &thread, &seq, &extra) == 2;
        bool wellFormed = line.size() > 66 && line[0] == '[' && line[27] == ']' &&
                          line.compare(28, 37, "[4][0x0][stress.cpp:7][stress][I] > t") == 0 &&
                          (producer || std::sscanf(tail, "0 sentinel %d%c", &seq, &extra) == 1) &&
                          (count % 64 != 0 || std::regex_match(line, kLine));
        if (!wellFormed) {
            ADD_FAILURE() << "malformed line: " << line;
            return count;
        }
        if (seen != nullptr && producer) {
            size_t slot = static_cast<size_t>(thread) * kLinesPerThread + static_cast<size_t>(seq);
            EXPECT_FALSE(seen->at(slot)) << "written twice: " << line;
            (*seen)[slot] = true;
        }
    }
    return count;
}

TEST(HokLogStress, SmallRingRotatesWithoutGrowingOrTearingLines)
{
    krvtest::TempDir root;
    RunOutcome run = LogUnderLoad(root.Path(), 60000);  // about 260 lines per file
    EXPECT_LE(run.mostFiles, 3u);
    EXPECT_GT(CheckLines(run.text, nullptr), 0u);
}

TEST(HokLogStress, EveryLineIsWrittenOnceOrReportedAsDropped)
{
    krvtest::TempDir root;
    RunOutcome run = LogUnderLoad(root.Path(), 3u * 64u * 1024u * 1024u);  // nothing is ever deleted
    std::vector<bool> seen(kThreads * kLinesPerThread, false);
    size_t written = CheckLines(run.text, &seen);
    EXPECT_EQ(written + run.dropped, run.logged) << written << " written, " << run.dropped << " dropped";
}

}  // namespace
