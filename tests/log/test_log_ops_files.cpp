// File log backend with real files: names and permissions, rotation over the ring of three,
// continuing an earlier run, directory scanning and a full queue behind a stalled writer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "krv_log_ops.h"
#include "log/test_log_ops_util.h"
#include "support/krv_test_support.h"

namespace {

using logopstest::Cfg;
using logopstest::ListDir;
using logopstest::ReadAll;
using logopstest::ReadFile;
using logopstest::WaitFor;

constexpr uint32_t kFile = KRV_LOG_MODE_FILE;
const std::string kPad(150, 'x');

class LogOpsFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        umask(022);
        app_ = dir_.Path() + "/app";
    }

    // Logs the numbered line "line NNN <pad>": 205 bytes with its stamp and prefix.
    static void LogNumbered(int i) { KRV_LogWrite(0, 2, "rot.c", 1, "line %03d %s", i, kPad.c_str()); }

    bool Written(const std::string &text) const
    {
        return WaitFor([&] { return ReadAll(app_).find(text) != std::string::npos; });
    }

    void Touch(const std::string &name, size_t bytes) const
    {
        int fd = open((app_ + "/" + name).c_str(), O_CREAT | O_WRONLY, 0600);
        std::string body(bytes, 'p');
        ASSERT_EQ(static_cast<ssize_t>(bytes), write(fd, body.data(), bytes));
        close(fd);
    }

    krvtest::TempDir dir_;
    std::string app_;
};

// Line numbers found in the files of dir, in ascending order.
std::vector<int> LineNumbers(const std::string &dir)
{
    std::vector<int> numbers;
    std::string all = ReadAll(dir);
    std::regex line("\\]line (\\d{3}) ");
    for (auto it = std::sregex_iterator(all.begin(), all.end(), line); it != std::sregex_iterator(); ++it) {
        numbers.push_back(std::stoi((*it)[1]));
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

TEST_F(LogOpsFiles, CreatesANamedPrivateFileInTheApplicationDirectory)
{
    KrvLogOpsCfg cfg = Cfg("app", dir_.Path().c_str(), kFile, 5120, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    EXPECT_EQ(0755u, logopstest::ModeOf(app_));
    std::vector<std::string> files = ListDir(app_);
    ASSERT_EQ(1u, files.size());
    EXPECT_TRUE(std::regex_match(files[0], std::regex("app_\\d{4}_\\d{2}_\\d{2}_\\d{2}_\\d{2}_\\d{2}_\\d{1,6}\\.log")))
        << files[0];
    EXPECT_EQ(0600u, logopstest::ModeOf(app_ + "/" + files[0]));

    KRV_LogWrite(0x16, 2, "main.cpp", 42, "first %s", "line");
    KRV_LogWrite(0, 3, "main.cpp", 43, "filtered out");
    ASSERT_TRUE(Written("first line"));
    KRV_LogOpsFini();
    EXPECT_TRUE(std::regex_match(ReadFile(app_ + "/" + files[0]),
                                 std::regex("\\[\\d{4}\\.\\d{2}\\.\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6}\\]"
                                            "\\[2\\]\\[0x16\\]\\[main\\.cpp:42\\]first line\n")));
}

TEST_F(LogOpsFiles, RotatesAtAThirdOfTheBudgetKeepingThreeFiles)
{
    KrvLogOpsCfg cfg = Cfg("app", dir_.Path().c_str(), kFile, 5120, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    const int total = 40;  // eight 205-byte lines fit in 1706 bytes: five files in all
    for (int i = 0; i < total; ++i) {
        LogNumbered(i);
    }
    ASSERT_TRUE(Written("line 039"));
    KRV_LogOpsFini();

    std::vector<std::string> files = ListDir(app_);
    ASSERT_EQ(3u, files.size());
    size_t bytes = 0;
    for (const std::string &name : files) {
        size_t size = ReadFile(app_ + "/" + name).size();
        EXPECT_LE(size, 1706u) << name;
        EXPECT_EQ(0u, size % 205) << "whole lines only";
        bytes += size;
    }
    // The ring holds an unbroken tail of the lines: two full files and the current one.
    std::vector<int> numbers = LineNumbers(app_);
    ASSERT_EQ(bytes / 205, numbers.size());
    EXPECT_EQ(24u, numbers.size());
    for (size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(total - static_cast<int>(numbers.size()) + static_cast<int>(i), numbers[i]);
    }
}

TEST_F(LogOpsFiles, ContinuesTheNewestFileAndDeletesTheOldestOnRotation)
{
    // A run appends to the file the previous run left.
    KrvLogOpsCfg cfg = Cfg("app", dir_.Path().c_str(), kFile, 5120, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    KRV_LogWrite(0, 2, "run.c", 1, "first run");
    ASSERT_TRUE(Written("first run"));
    KRV_LogOpsFini();
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    KRV_LogWrite(0, 2, "run.c", 2, "second run");
    ASSERT_TRUE(Written("second run"));
    KRV_LogOpsFini();
    ASSERT_EQ(1u, ListDir(app_).size());
    EXPECT_NE(std::string::npos, ReadAll(app_).find("first run"));

    // With two files present the newer continues and its size counts: 1600 + 205 > 1706 rotates
    // into the empty third slot; the next rotations delete the older files in name order.
    for (const std::string &name : ListDir(app_)) {
        std::remove((app_ + "/" + name).c_str());
    }
    Touch("app_a.log", 10);
    Touch("app_b.log", 1600);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    LogNumbered(0);
    ASSERT_TRUE(Written("line 000"));
    EXPECT_EQ(3u, ListDir(app_).size());
    EXPECT_EQ(1600u, ReadFile(app_ + "/app_b.log").size());
    for (int i = 1; i <= 8; ++i) {
        LogNumbered(i);
    }
    ASSERT_TRUE(Written("line 008"));
    std::vector<std::string> files = ListDir(app_);
    EXPECT_EQ(3u, files.size());
    EXPECT_EQ(0u, std::count(files.begin(), files.end(), "app_a.log"));
    EXPECT_EQ(1u, std::count(files.begin(), files.end(), "app_b.log"));
    for (int i = 9; i <= 16; ++i) {
        LogNumbered(i);
    }
    ASSERT_TRUE(Written("line 016"));
    files = ListDir(app_);
    EXPECT_EQ(3u, files.size());
    EXPECT_EQ(0u, std::count(files.begin(), files.end(), "app_b.log"));
    KRV_LogOpsFini();
}

TEST_F(LogOpsFiles, ScanningReportsCrowdedEmptyAndUnusableDirectories)
{
    KrvLogOpsCfg cfg = Cfg("app", dir_.Path().c_str(), kFile, 5120, 2);
    auto initPrinting = [&](uint32_t expectRc) {
        KRV_LogFilter(3);  // the backend's own reports are printed until its hook is installed
        krvtest::StdoutCapture capture;
        EXPECT_EQ(expectRc, KRV_LogOpsInit(&cfg));
        std::string out = capture.Finish();
        KRV_LogFilter(2);
        return out;
    };

    // Six entries with "." and "..": the last three names form the ring, the first stays unmanaged.
    ASSERT_EQ(0, mkdir(app_.c_str(), 0755));
    for (const char *name : {"app_1.log", "app_2.log", "app_3.log", "app_4.log"}) {
        Touch(name, 1);
    }
    std::string out = initPrinting(0);
    EXPECT_NE(std::string::npos, out.find("][3][0x0][krv_log_ops:")) << out;
    EXPECT_NE(std::string::npos, out.find("]log num err, num: 6\n")) << out;
    KRV_LogWrite(0, 2, "scan.c", 1, "into the newest");
    ASSERT_TRUE(Written("into the newest"));
    EXPECT_NE(std::string::npos, ReadFile(app_ + "/app_4.log").find("into the newest"));
    for (int i = 0; i < 9; ++i) {  // first rotation: into the slot of app_2.log
        LogNumbered(i);
    }
    ASSERT_TRUE(Written("line 008"));
    std::vector<std::string> files = ListDir(app_);
    EXPECT_EQ(1u, std::count(files.begin(), files.end(), "app_1.log"));
    EXPECT_EQ(0u, std::count(files.begin(), files.end(), "app_2.log"));
    KRV_LogOpsFini();

    // An existing but empty directory: the scan fails, a fresh file is made, the start succeeds.
    for (const std::string &name : ListDir(app_)) {
        std::remove((app_ + "/" + name).c_str());
    }
    out = initPrinting(0);
    EXPECT_NE(std::string::npos, out.find("][2][0x1][krv_log_ops:")) << out;
    EXPECT_NE(std::string::npos, out.find("]file scan failed\n")) << out;
    EXPECT_EQ(1u, ListDir(app_).size());
    KRV_LogOpsFini();

    // The application directory is a plain file: scanning and creating both fail.
    for (const std::string &name : ListDir(app_)) {
        std::remove((app_ + "/" + name).c_str());
    }
    ASSERT_EQ(0, rmdir(app_.c_str()));
    int fd = open(app_.c_str(), O_CREAT | O_WRONLY, 0600);
    close(fd);
    out = initPrinting(1);
    EXPECT_NE(std::string::npos, out.find("]scandir failed, errno: 20\n")) << out;
    EXPECT_NE(std::string::npos, out.find("log open failed, errno: 20\r\n")) << out;
    EXPECT_NE(std::string::npos, out.find("][0x1][krv_log_ops:")) << out;
    for (const char *text : {"]file scan failed\n", "]log file create failed\n", "]log prepare failed\n"}) {
        EXPECT_NE(std::string::npos, out.find(text)) << text;
    }
    EXPECT_EQ(124u, KRV_LogOpsReg("net", nullptr)) << "a failed start leaves the backend down";

    // A base directory that does not exist passes the path check, but its subdirectory cannot be made.
    std::string missing = dir_.Path() + "/missing";
    cfg.logDir = missing.c_str();
    out = initPrinting(1);
    EXPECT_NE(std::string::npos, out.find("]mkdir failed, errno:2, dir:" + missing + "/app\n")) << out;
    EXPECT_NE(std::string::npos, out.find("]log prepare failed\n")) << out;
}

// The writer's current file is a FIFO nobody reads, so the writer blocks on it with its line still
// queued; what it has written can be counted in the pipe, and so can the queue's occupancy.
TEST_F(LogOpsFiles, AFullQueueDropsTheNewLine)
{
    ASSERT_EQ(0, mkdir(app_.c_str(), 0755));
    std::string fifo = app_ + "/app_fifo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    int probe = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(probe, 0);
    if (fcntl(probe, F_SETPIPE_SZ, 4096) != 4096) {
        close(probe);
        GTEST_SKIP() << "cannot shrink the pipe to one page";
    }
    KrvLogOpsCfg cfg = Cfg("app", dir_.Path().c_str(), kFile, UINT32_MAX, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));

    const int lineLen = 54;  // "[stamp][2][0x0][q.c:1]line 00000\n"
    int logged = 0;
    auto logOne = [&] { KRV_LogWrite(0, 2, "q.c", 1, "line %05d", logged++); };
    while (logged < 4096 / lineLen + 10) {
        logOne();
    }
    int inPipe = 0;
    ASSERT_TRUE(WaitFor([&] {
        ioctl(probe, FIONREAD, &inPipe);
        return inPipe + lineLen > 4096;
    }));
    ASSERT_EQ(0, inPipe % lineLen);
    int queued = logged - inPipe / lineLen;  // includes the line the writer is stuck on

    krvtest::StdoutCapture capture;
    while (queued < 300) {
        logOne();
        ++queued;
    }
    std::string filling = capture.Finish();
    EXPECT_EQ("", filling);
    krvtest::StdoutCapture overflow;
    logOne();
    EXPECT_EQ("log buf add failed, buffer is full\r\n", overflow.Finish());

    // Let the writer go so that it can see the stop request.
    std::atomic<bool> stop{false};
    std::thread drain([&] {
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
