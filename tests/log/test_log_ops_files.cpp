// File log backend with real files: names and permissions, rotation over the ring of three,
// continuing an earlier run, directory scanning and a full queue behind a stalled writer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "krv_log_ops.h"
#include "support/krv_test_support.h"

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class LogOpsFiles : public ::testing::Test {
protected:
    void SetUp() override { umask(022); }

    uint32_t Init(uint32_t size = 5120)
    {
        KrvLogOpsCfg cfg = {};
        std::strcpy(cfg.appId, "app");
        cfg.logDir = base_.c_str();
        cfg.logMode = KRV_LOG_MODE_FILE;
        cfg.logSize = size;
        cfg.logLevel = 2;
        return KRV_LogOpsInit(&cfg);
    }

    // Init with the printing path admitting warnings, returning what the start printed.
    std::string InitPrinted(uint32_t expectRc)
    {
        KRV_LogFilter(3);  // the backend's reports are printed until its hook is installed
        krvtest::StdoutCapture capture;
        EXPECT_EQ(expectRc, Init());
        KRV_LogFilter(2);
        return capture.Finish();
    }

    std::vector<std::string> Files() const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(app_)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    bool Has(const std::string &name) const { return fs::exists(app_ + "/" + name); }

    std::string All() const
    {
        std::string all;
        for (const std::string &name : Files()) {
            all += ReadFile(app_ + "/" + name);
        }
        return all;
    }

    // Polls for up to 10 s: the writer sleeps 50 ms when idle.
    bool Written(const std::string &text) const
    {
        for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
            if (All().find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    // Starts the application directory afresh with the given files and sizes.
    void Populate(std::initializer_list<std::pair<const char *, size_t>> files) const
    {
        fs::remove_all(app_);
        fs::create_directory(app_);
        for (const auto &[name, bytes] : files) {
            std::ofstream(app_ + "/" + name) << std::string(bytes, 'p');
        }
    }

    // Logs "line NNN <pad>": 205 bytes with stamp and prefix, so eight fit in 1706.
    static void Numbered(int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            KRV_LogWrite(0, 2, "rot.c", 1, "line %03d %s", i, std::string(150, 'x').c_str());
        }
    }

    krvtest::TempDir dir_;
    std::string base_ = dir_.Path();
    std::string app_ = dir_.Path() + "/app";
};

TEST_F(LogOpsFiles, CreatesANamedPrivateFileAndRotatesOverThree)
{
    ASSERT_EQ(0u, Init());
    EXPECT_EQ(fs::perms(0755), fs::status(app_).permissions());
    ASSERT_EQ(1u, Files().size());
    const std::string first = Files()[0];
    EXPECT_TRUE(std::regex_match(first, std::regex("app_\\d{4}_\\d{2}_\\d{2}_\\d{2}_\\d{2}_\\d{2}_\\d{1,6}\\.log")));
    EXPECT_EQ(fs::perms(0600), fs::status(app_ + "/" + first).permissions());
    KRV_LogWrite(0x16, 2, "main.cpp", 42, "first %s", "line");
    KRV_LogWrite(0, 3, "main.cpp", 43, "filtered out");
    ASSERT_TRUE(Written("first line"));
    EXPECT_TRUE(std::regex_match(ReadFile(app_ + "/" + first),
                                 std::regex("\\[\\d{4}\\.\\d{2}\\.\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6}\\]"
                                            "\\[2\\]\\[0x16\\]\\[main\\.cpp:42\\]first line\n")));

    Numbered(0, 39);  // 61 + 8 * 205 still fit the first file; four more files of eight follow
    ASSERT_TRUE(Written("line 039"));
    KRV_LogOpsFini();
    ASSERT_EQ(3u, Files().size());
    EXPECT_FALSE(Has(first));
    for (const std::string &name : Files()) {
        EXPECT_EQ(8u * 205u, fs::file_size(app_ + "/" + name)) << "1706 would be exceeded by a ninth line";
    }
    const std::string all = All();
    for (int i = 0; i < 40; ++i) {  // the ring keeps an unbroken tail of 24 lines
        char text[16];
        std::snprintf(text, sizeof(text), "]line %03d ", i);
        EXPECT_EQ(i >= 16, all.find(text) != std::string::npos) << text;
    }
}

TEST_F(LogOpsFiles, ContinuesTheNewestFileAndDeletesTheOldestOnRotation)
{
    ASSERT_EQ(0u, Init());
    KRV_LogWrite(0, 2, "run.c", 1, "first run");
    ASSERT_TRUE(Written("first run"));
    KRV_LogOpsFini();
    ASSERT_EQ(0u, Init());
    KRV_LogWrite(0, 2, "run.c", 2, "second run");
    ASSERT_TRUE(Written("second run"));
    KRV_LogOpsFini();
    EXPECT_EQ(1u, Files().size()) << "the second run appended to the first run's file";

    // The newer file continues with its size counted: 1600 + 205 > 1706 rotates into the empty
    // third slot, and the following rotations delete the older files in name order.
    Populate({{"app_a.log", 10}, {"app_b.log", 1600}});
    ASSERT_EQ(0u, Init());
    Numbered(0, 0);
    ASSERT_TRUE(Written("line 000"));
    EXPECT_EQ(3u, Files().size());
    EXPECT_EQ(1600u, fs::file_size(app_ + "/app_b.log"));
    Numbered(1, 8);
    ASSERT_TRUE(Written("line 008"));
    EXPECT_EQ(3u, Files().size());
    EXPECT_FALSE(Has("app_a.log"));
    EXPECT_TRUE(Has("app_b.log"));
    Numbered(9, 16);
    ASSERT_TRUE(Written("line 016"));
    EXPECT_EQ(3u, Files().size());
    EXPECT_FALSE(Has("app_b.log"));
    KRV_LogOpsFini();
}

TEST_F(LogOpsFiles, ScanningCopesWithCrowdedEmptyAndUnusableDirectories)
{
    // Six entries with "." and "..": the last three names form the ring, the first stays unmanaged.
    Populate({{"app_1.log", 1}, {"app_2.log", 1}, {"app_3.log", 1}, {"app_4.log", 1}});
    std::string out = InitPrinted(0);
    EXPECT_TRUE(std::regex_search(out, std::regex("\\]\\[3\\]\\[0x0\\]\\[krv_log_ops:\\d+\\]log num err, num: 6\n")))
        << out;
    KRV_LogWrite(0, 2, "scan.c", 1, "into the newest");
    ASSERT_TRUE(Written("into the newest"));
    EXPECT_NE(std::string::npos, ReadFile(app_ + "/app_4.log").find("into the newest"));
    Numbered(0, 8);  // one rotation: into the slot of app_2.log
    ASSERT_TRUE(Written("line 008"));
    EXPECT_TRUE(Has("app_1.log"));
    EXPECT_FALSE(Has("app_2.log"));
    KRV_LogOpsFini();

    // An existing but empty directory fails the scan; a fresh file is made and the start succeeds.
    Populate({});
    out = InitPrinted(0);
    EXPECT_TRUE(std::regex_search(out, std::regex("\\]\\[2\\]\\[0x1\\]\\[krv_log_ops:\\d+\\]file scan failed\n")))
        << out;
    EXPECT_EQ(1u, Files().size());
    KRV_LogOpsFini();

    // The application directory is a plain file: scanning and creating both fail, nothing stays up.
    fs::remove_all(app_);
    std::ofstream(app_).put('x');
    out = InitPrinted(1);
    for (const char *text : {"][3][0x1][krv_log_ops:", "]scandir failed, errno: 20\n", "]file scan failed\n",
                             "log open failed, errno: 20\r\n", "]log file create failed\n", "]log prepare failed\n"}) {
        EXPECT_NE(std::string::npos, out.find(text)) << text << " in\n" << out;
    }
    EXPECT_EQ(2u, KRV_LogOpsFilterGet()) << "a failed start leaves the backend down";

    // A base directory that does not exist passes the path check, but its subdirectory cannot be made.
    base_ += "/missing";
    out = InitPrinted(1);
    EXPECT_NE(std::string::npos, out.find("]mkdir failed, errno:2, dir:" + base_ + "/app\n")) << out;
    EXPECT_NE(std::string::npos, out.find("]log prepare failed\n")) << out;
}

// The current file is a FIFO nobody reads, so the writer blocks on it with its line still queued.
// Lines in the pipe are counted, so the queue's occupancy is known exactly.
TEST_F(LogOpsFiles, AFullQueueDropsTheNewLine)
{
    Populate({});
    const std::string fifo = app_ + "/app_fifo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    int probe = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(probe, 0);
    if (fcntl(probe, F_SETPIPE_SZ, 4096) != 4096) {
        close(probe);
        GTEST_SKIP() << "cannot shrink the pipe to one page";
    }
    ASSERT_EQ(0u, Init(UINT32_MAX));
    const int lineLen = 54;  // "[stamp][2][0x0][q.c:1]line 00000\n"
    int logged = 0;
    auto logOne = [&] { KRV_LogWrite(0, 2, "q.c", 1, "line %05d", logged++); };
    while (logged < 4096 / lineLen + 10) {
        logOne();
    }
    int inPipe = 0;
    for (int i = 0; i < 1000 && inPipe + lineLen <= 4096; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ioctl(probe, FIONREAD, &inPipe);
    }
    ASSERT_GT(inPipe + lineLen, 4096) << "the writer never filled the pipe";
    ASSERT_EQ(0, inPipe % lineLen);
    krvtest::StdoutCapture filling;
    for (int queued = logged - inPipe / lineLen; queued < 300; ++queued) {  // counts the line being written
        logOne();
    }
    EXPECT_EQ("", filling.Finish());
    krvtest::StdoutCapture overflow;
    logOne();
    EXPECT_EQ("log buf add failed, buffer is full\r\n", overflow.Finish());

    std::atomic<bool> stop{false};
    std::thread drain([&] {  // let the writer go so that it can see the stop request
        char buf[4096];
        while (!stop.load()) {
            if (read(probe, buf, sizeof(buf)) <= 0) {
                usleep(1000);
            }
        }
    });
    KRV_LogOpsFini();
    stop = true;
    drain.join();
    close(probe);
}

}  // namespace
