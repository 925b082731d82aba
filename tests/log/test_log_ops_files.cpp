// File log backend with real files: names and permissions, rotation over the ring of three,
// continuing an earlier run, directory scanning, a failed rotation, a full queue and flushing.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "krv_log_ops.h"
#include "support/krv_test_support.h"

std::atomic<int> g_burstPauses{0};

// The writer pauses with KRV_OsalTaskDelay, which sleeps in select: this binary supplies select and
// counts the 100-microsecond pauses that follow a burst of lines.
extern "C" int select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, struct timeval *timeout)
{
    using Select = int (*)(int, fd_set *, fd_set *, fd_set *, struct timeval *);
    static const Select real = reinterpret_cast<Select>(dlsym(RTLD_NEXT, "select"));
    if (timeout != nullptr && timeout->tv_sec == 0 && timeout->tv_usec == 100) {
        ++g_burstPauses;
    }
    return real(nfds, readfds, writefds, exceptfds, timeout);
}

namespace {

namespace fs = std::filesystem;

class LogOpsFiles : public ::testing::Test {
protected:
    void SetUp() override { umask(022); }
    // A stopped backend leaves its current file open; the process gets its descriptors back here.
    void TearDown() override { krvtest::CloseFilesUnder(base_); }

    // Starts the "app" ring. What the start printed (its reports, warnings included, are printed
    // until its hook is installed) is kept in printed_, stamps and the backend's lines cut.
    uint32_t Init(uint32_t size = 5120)
    {
        KrvLogOpsCfg cfg = {"app", base_.c_str(), KRV_LOG_MODE_FILE, size, 2};
        KRV_LogFilter(3);
        krvtest::StdoutCapture capture;
        uint32_t rc = KRV_LogOpsInit(&cfg);
        KRV_LogFilter(2);
        printed_ = std::regex_replace(capture.Finish(), std::regex("\\[[0-9. :]{25,26}\\]|:\\d+\\]"), "]");
        return rc;
    }

    std::vector<std::string> Files() const  // in name order
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(app_)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string All() const { return krvtest::ReadAll(app_); }

    // Polls for text in any file: the writer sleeps 50 ms when idle.
    bool Written(const std::string &text) const
    {
        return krvtest::WaitFor([&] { return All().find(text) != std::string::npos; });
    }

    // Logs "line NNN <pad>": 205 bytes with stamp and frame, so eight fit in 1706.
    static void Numbered(int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            KRV_LogWrite(0, 2, "rot.c", 1, "line %03d %s", i, std::string(150, 'x').c_str());
        }
    }

    size_t Size(const std::string &name) const { return fs::file_size(app_ + "/" + name); }

    krvtest::TempDir dir_;
    std::string base_ = dir_.Path();
    std::string app_ = base_ + "/app";
    std::string printed_;
};

TEST_F(LogOpsFiles, RotatesOverARingOfThreeAndARestartContinuesIt)
{
    ASSERT_EQ(0u, Init());
    EXPECT_EQ(fs::perms(0755), fs::status(app_).permissions());
    ASSERT_EQ(1u, Files().size());
    const std::string first = Files()[0];
    EXPECT_TRUE(std::regex_match(first, std::regex("app_\\d{4}(_\\d{2}){5}_\\d{1,6}\\.log"))) << first;
    EXPECT_EQ(fs::perms(0600), fs::status(app_ + "/" + first).permissions());
    KRV_LogWrite(0x16, 2, "main.cpp", 42, "first %s", "line");
    KRV_LogWrite(0, 3, "main.cpp", 43, "filtered out");
    Numbered(0, 39);  // 61 + 8 * 205 still fit the first file; four more files of eight follow
    ASSERT_TRUE(Written("line 039"));
    KRV_LogOpsFini();
    const std::vector<std::string> ring = Files();
    ASSERT_EQ(3u, ring.size());
    EXPECT_EQ(std::vector<std::string>{app_ + "/" + ring[2]}, krvtest::CloseFilesUnder(base_))
        << "the stop leaves the current file open, and only that one";
    EXPECT_EQ(ring.end(), std::find(ring.begin(), ring.end(), first));
    for (const std::string &name : ring) {
        EXPECT_EQ(8u * 205u, Size(name)) << "a ninth line would pass 1706";
    }
    const std::string all = All();
    for (int i = 0; i < 40; ++i) {  // the ring keeps an unbroken tail of 24 lines
        EXPECT_EQ(i >= 16, all.find("]line " + std::to_string(1000 + i).substr(1) + " ") != std::string::npos) << i;
    }
    // The last name continues with its size counted, so a 61-byte line fits and the next rotates,
    // deleting the first name.
    ASSERT_EQ(0u, Init());
    KRV_LogWrite(0x16, 2, "main.cpp", 42, "second %s", "run");
    Numbered(40, 40);
    ASSERT_TRUE(Written("line 040"));
    KRV_LogOpsFini();
    EXPECT_TRUE(std::regex_search(krvtest::ReadFile(app_ + "/" + ring[2]),
                                  std::regex("\n\\[\\d{4}\\.\\d{2}\\.\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6}\\]"
                                             "\\[2\\]\\[0x16\\]\\[main\\.cpp:42\\]second run\n$")));
    EXPECT_EQ(8u * 205u + 61u, Size(ring[2]));
    EXPECT_EQ(3u, Files().size());
    EXPECT_FALSE(fs::exists(app_ + "/" + ring[0]));
}

TEST_F(LogOpsFiles, CrowdedAndEmptyDirectories)
{
    // Six entries with "." and "..": the last three names form the ring, the first stays unmanaged.
    fs::create_directory(app_);
    for (const char *name : {"app_1.log", "app_2.log", "app_3.log", "app_4.log"}) {
        std::ofstream(app_ + "/" + name) << 'p';
    }
    ASSERT_EQ(0u, Init());
    EXPECT_EQ(printed_, "][3][0x0][krv_log_ops]log num err, num: 6\n");
    Numbered(0, 8);  // eight continue app_4.log, the ninth rotates into the slot of app_2.log
    ASSERT_TRUE(Written("line 008"));
    KRV_LogOpsFini();
    EXPECT_EQ(1u + 8u * 205u, Size("app_4.log"));
    EXPECT_TRUE(fs::exists(app_ + "/app_1.log"));
    EXPECT_FALSE(fs::exists(app_ + "/app_2.log"));

    // An existing but empty directory fails the scan; a fresh file is made and the start succeeds.
    fs::remove_all(app_);
    fs::create_directory(app_);
    ASSERT_EQ(0u, Init());
    EXPECT_EQ(printed_, "][2][0x1][krv_log_ops]file scan failed\n");
    EXPECT_EQ(1u, Files().size());
    KRV_LogOpsFini();
}

// The current file is a FIFO nobody reads, so the writer blocks on it with its line still queued.
// Lines in the pipe are counted, so the queue's occupancy is known exactly.
TEST_F(LogOpsFiles, AFullQueueDropsTheNewLine)
{
    fs::create_directory(app_);
    ASSERT_EQ(0, mkfifo((app_ + "/app_fifo").c_str(), 0600));
    int probe = open((app_ + "/app_fifo").c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_EQ(4096, fcntl(probe, F_SETPIPE_SZ, 4096));
    ASSERT_EQ(0u, Init(UINT32_MAX));
    const int lineLen = 54;  // "[stamp][2][0x0][q.c:1]line 00000\n"
    int logged = 0;
    const auto logOne = [&] { KRV_LogWrite(0, 2, "q.c", 1, "line %05d", logged++); };
    int inPipe = 0;
    for (int i = 0; i < 1000 && inPipe + lineLen <= 4096; ++i, ioctl(probe, FIONREAD, &inPipe)) {
        logOne();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GT(inPipe + lineLen, 4096) << "the writer never filled the pipe";
    krvtest::StdoutCapture out;
    for (int queued = logged - inPipe / lineLen; queued < 300; ++queued) {  // counts the line being written
        logOne();
    }
    EXPECT_EQ("", out.Finish());
    EXPECT_EQ(0u, KRV_LogOpsDropCountGet());
    krvtest::StdoutCapture overflow;
    for (int dropped = 0; dropped < 3; ++dropped) {
        logOne();
    }
    EXPECT_EQ(3u, KRV_LogOpsDropCountGet());
    EXPECT_EQ(KRV_ERR_PLATFORM, KRV_LogOpsFlush(20)) << "the writer is stuck in the pipe";
    const std::string notice = "log buf add failed, buffer is full\r\n";
    EXPECT_EQ(notice + notice + notice, overflow.Finish());
    ASSERT_EQ(1 << 20, fcntl(probe, F_SETPIPE_SZ, 1 << 20));  // the writer goes on and sees the stop request
    KRV_LogOpsFini();
    EXPECT_EQ(0u, KRV_LogOpsDropCountGet());
    close(probe);
}

// With the application directory gone, every rotation fails and loses its line; such a line is
// not followed by the pause that a burst of twenty written lines earns.
TEST_F(LogOpsFiles, ALineLostToAFailedRotationEarnsNoPause)
{
    ASSERT_EQ(0u, Init());
    KRV_LogOpsFilterSet(1);  // keeps the writer's own reports about the missing files out of the queue
    fs::remove_all(app_);
    g_burstPauses = 0;
    krvtest::StdoutCapture out;
    for (int i = 0; i < 100; ++i) {  // about 8 still fit the open file; the rest rotate and fail
        KRV_LogWrite(0, 1, "lost.c", 1, "lost %03d %s", i, std::string(150, 'x').c_str());
    }
    const uint32_t lostFlushed = KRV_LogOpsFlush(10000);
    const int pauses = g_burstPauses.load();
    fs::create_directory(app_);
    KRV_LogWrite(0, 1, "lost.c", 2, "sentinel %s", std::string(150, 'x').c_str());  // long enough to rotate
    const uint32_t sentinelFlushed = KRV_LogOpsFlush(10000);
    KRV_LogOpsFini();
    const std::string printed = out.Finish();
    EXPECT_EQ(KRV_OK, lostFlushed);
    EXPECT_EQ(KRV_OK, sentinelFlushed);
    EXPECT_EQ(0, pauses);
    EXPECT_NE(std::string::npos, All().find("]sentinel x"));
    EXPECT_NE(std::string::npos, printed.find("log file create failed\r\nlog file check failed\r\n"));
}

TEST_F(LogOpsFiles, FlushWaitsForEveryLineQueuedBeforeIt)
{
    EXPECT_EQ(KRV_ERR_NOT_INIT, KRV_LogOpsFlush(0));
    ASSERT_EQ(0u, Init(UINT32_MAX));
    for (int i = 0; i < 250; ++i) {  // fewer than the queue holds: none is dropped
        KRV_LogWrite(0, 2, "f.c", 1, "flushed %03d", i);
    }
    ASSERT_EQ(KRV_OK, KRV_LogOpsFlush(10000));
    const std::string all = All();  // read once, without waiting
    int found = 0;
    for (int i = 0; i < 250; ++i) {
        char text[32];
        std::snprintf(text, sizeof(text), "]flushed %03d\n", i);
        found += all.find(text) != std::string::npos;
    }
    EXPECT_EQ(250, found);
    EXPECT_EQ(0u, KRV_LogOpsDropCountGet());
    KRV_LogOpsFini();
}

}  // namespace
