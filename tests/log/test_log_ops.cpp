// The diagnostic hook, and the file backend without files: configuration checks, reference
// counting, the module registry, routing by tag, the line format, and allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <string>

#include "krv_log_ops.h"
#include "support/krv_test_support.h"

namespace {

constexpr uint32_t kModule = KRV_LOG_MODE_MODULE, kFile = KRV_LOG_MODE_FILE, kStdout = KRV_LOG_MODE_STDOUT;

KrvLogOpsCfg Cfg(const char *appId, const char *logDir, uint32_t mode, uint32_t size = 5120, uint32_t level = 2)
{
    KrvLogOpsCfg cfg = {"", logDir, mode, size, level};
    // Unterminated when the name fills the field, as a caller's record may be.
    std::memcpy(cfg.appId, appId, std::min(std::strlen(appId), sizeof(cfg.appId)));
    return cfg;
}

// Module functions print what they receive, so that one transcript shows routed and printed lines.
void Show(const char *module, uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    std::printf("%s<%u,%u,%s:%u>%s\n", module, code, level, file, line, msg);
}
void Net(uint32_t c, uint32_t lv, const char *f, uint32_t ln, const char *m) { Show("net", c, lv, f, ln, m); }
void Ne(uint32_t c, uint32_t lv, const char *f, uint32_t ln, const char *m) { Show("ne", c, lv, f, ln, m); }

// What fn printed, every stamp replaced by "[stamp]" and the library's own line numbers cut.
std::string Printed(const std::function<void()> &fn)
{
    krvtest::StdoutCapture capture;
    fn();
    std::string out = std::regex_replace(capture.Finish(), std::regex("(krv_[a-z_]+):\\d+\\]"), "$1]");
    const std::regex stamp(R"(\[\d{4}\.\d\d\.\d\d [ \d]\d:\d\d:\d\d\.[ \d]{5}\d?\])");
    return std::regex_replace(out, stamp, "[stamp]");
}

// Without the backend: the printing path with its own stamp and filter, or the one hook.
TEST(LogHook, PrintsThroughItsFilterOrHandsEveryLevelToTheOneHook)
{
    const auto raw = [](uint32_t level, const char *file, const std::string &msg) {
        krvtest::StdoutCapture out;
        KRV_LogWrite(540741635, level, file, 103, "%s", msg.c_str());
        return out.Finish();
    };
    const std::string overflow = "log string is over flow or input is NULL.\n", exact(1023, 'a');
    EXPECT_EQ(KRV_LogLevelGet(), 2u);
    std::string line = raw(2, "krv_x", "param invalid");
    // Hour padded with a blank, microseconds to five places only; the code in lower-case hex.
    EXPECT_TRUE(std::regex_match(line, std::regex(R"(\[\d{4}\.\d\d\.\d\d [ 12]\d:\d\d:\d\d\.[ \d]{4}\d+\])"
                                                  R"(\[2\]\[0x203b1003\]\[krv_x:103\]param invalid\n)")))
        << line;
    EXPECT_EQ(raw(2, nullptr, exact), exact) << "without a file name the text alone is printed";
    EXPECT_EQ(raw(6, "f", exact + "a"), overflow) << "dropped before the level test";
    KRV_LogFilter(6);  // a line shows when its level is at most the filter
    EXPECT_NE(raw(6, "f", "m"), "");
    EXPECT_EQ(raw(7, "f", "m"), "");
    KRV_LogFilter(2);
    ASSERT_EQ(KRV_LogHookReg(Net), 0u);
    EXPECT_EQ(KRV_LogHookReg(Ne), 22u);
    EXPECT_EQ(KRV_LogHookReg(nullptr), 22u);
    EXPECT_EQ(Printed([&] {
                  KRV_LogWrite(1, 6, "krv_json", 42, "verbose %d", 6);
                  KRV_LogWrite(1, 2, nullptr, 43, "no file");
                  KRV_LogWrite(0, 2, "f", 1, "%s", (exact + "a").c_str());
                  KRV_LogWrite(0, 2, "f", 1, nullptr);
              }),
              "net<1,6,krv_json:42>verbose 6\nnet<1,2,(null):43>no file\n" + overflow + overflow);
    EXPECT_EQ(KRV_LogHookUnReg(), 0u);
    EXPECT_EQ(KRV_LogHookUnReg(), 1u);
}

TEST(LogOpsInit, RefusesBadConfigurationWithItsMessages)
{
    krvtest::TempDir dir;
    const std::string slashed = dir.Path() + "/";
    KrvLogOpsCfg unterminated = Cfg("", nullptr, kStdout);  // no file bit: only appId counts
    std::memset(unterminated.appId, 'a', sizeof(unterminated.appId));
    const KrvLogOpsCfg cfgs[] = {Cfg("app", nullptr, kFile), Cfg("app", slashed.c_str(), kFile), unterminated};
    const std::string expected[] = {
        "krv_log_ops]parameter is NULL",
        "krv_log_ops]logDir is null or log size is valid, log size:5120, log mode:2",
        "krv_osalfs]strcmp fail, realpath:" + dir.Path() + ", path:" + slashed +
            "\n[stamp][2][0x16][krv_log_ops]logDir realpath check failed, path: " + slashed,
        "krv_log_ops]appId is invalid, len: 32",
    };
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(Printed([&] { EXPECT_EQ(22u, KRV_LogOpsInit(i == 0 ? nullptr : &cfgs[i - 1])); }),
                  "[stamp][2][0x16][" + expected[i] + "\n[stamp][2][0x16][krv_log_ops]param check failed\n");
    }
}

TEST(LogOpsInit, CountsUsersAndKeepsTheFirstConfiguration)
{
    KrvLogOpsCfg first = Cfg(std::string(31, 'x').c_str(), nullptr, kStdout, 0, 4);
    KrvLogOpsCfg invalid = Cfg("", nullptr, kStdout, 0, 6);
    ASSERT_EQ(0u, KRV_LogOpsInit(&first));
    EXPECT_EQ(0u, KRV_LogOpsInit(&invalid)) << "later calls only count";
    EXPECT_EQ(4u, KRV_LogOpsFilterGet());
    EXPECT_EQ(KRV_ERR_NOT_INIT, KRV_LogOpsFlush(0)) << "no files, nothing to wait for";
    EXPECT_EQ(0u, KRV_LogOpsDropCountGet());
    KRV_LogOpsFilterSet(5);
    EXPECT_EQ(22u, KRV_LogHookReg(Net)) << "the backend's hook is installed";
    KRV_LogOpsFini();
    EXPECT_EQ(5u, KRV_LogOpsFilterGet()) << "the first fini only lowers the count";
    KRV_LogOpsFini();
    KRV_LogOpsFini();  // nothing left to undo
    EXPECT_EQ(2u, KRV_LogOpsFilterGet());
    EXPECT_EQ(1u, KRV_LogHookUnReg()) << "the last fini removed the hook";
}

// Registration compares names exactly; routing hands a line, whatever its level, to the first
// module whose name matches the line's tag over the tag's length. Other lines are filtered and printed.
TEST(LogOpsHook, RegistryCodesRoutingByTagPrefixAndTheLineFormat)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kModule | kStdout, 0, 4);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    EXPECT_EQ(Printed([] {
                  EXPECT_EQ(22u, KRV_LogOpsReg(nullptr, Net));
                  EXPECT_EQ(22u, KRV_LogOpsReg(std::string(33, 'n').c_str(), Net));
                  EXPECT_EQ(0u, KRV_LogOpsReg(std::string(32, 'n').c_str(), Ne));
                  EXPECT_EQ(0u, KRV_LogOpsReg("net", Net));
                  EXPECT_EQ(KRV_ERR_REGISTERED, KRV_LogOpsReg("net", Ne));
                  EXPECT_EQ(60u, KRV_LogOpsUnreg("ne"));
                  KRV_LogWrite(7, 6, "main.cpp", 42, "[net][V] > retry %d", 3);
                  KRV_LogWrite(0, 2, "m.c", 1, "[ne] short tag");
                  KRV_LogWrite(22, 3, "x.c", 103, "untagged %s", "warning");
                  KRV_LogWrite(540741635, 4, nullptr, 7, "no file");
                  KRV_LogWrite(1, 5, "krv_x", 1, "too verbose");
              }),
              "[stamp][2][0x16][krv_log_ops]invalid param\n[stamp][2][0x16][krv_log_ops]invalid param\n"
              "[stamp][2][0x71][krv_log_ops]module already reg\n"
              "[stamp][2][0x3c][krv_log_ops]module name(ne) not reg\nnet<7,6,main.cpp:42>[net][V] > retry 3\n"
              "net<0,2,m.c:1>[ne] short tag\n[stamp][3][0x16][x.c:103]untagged warning\n"
              "[stamp][4][0x203b1003][(null):7]no file\n");
    ASSERT_EQ(0u, KRV_LogOpsUnreg("net"));
    ASSERT_EQ(0u, KRV_LogOpsReg("ne", Ne));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", Net)) << "a removed name can be taken again";
    KRV_LogOpsFilterSet(UINT32_MAX);  // ten-digit numbers overflow the 60 bytes kept for the frame
    EXPECT_EQ(Printed([] {
                  KRV_LogWrite(0, 2, "m.c", 4, "[net] not for ne");
                  KRV_LogWrite(UINT32_MAX, UINT32_MAX, "f", UINT32_MAX, "hello");
              }),
              "net<0,2,m.c:4>[net] not for ne\nlog sprintf failed\r\nlog joint failed, log:hello\r\n");
    KRV_LogOpsFini();
    cfg.logMode = kStdout;  // without the module bit nothing is routed
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", Net));
    EXPECT_EQ(Printed([] { KRV_LogWrite(0, 2, "m.c", 6, "[net] tagged"); }),
              "[stamp][2][0x0][m.c:6][net] tagged\n");
    KRV_LogOpsFini();
}

// Every allocation of a start may fail, those of the scan, the paths and the thread included: the
// start is refused and no block is left behind (the sanitizer build checks the blocks). The file a
// start opened stays open, after a failed start as after a stop.
TEST(LogOpsAlloc, EveryFailedAllocationIsUndone)
{
    KRV_LogWrite(0, 2, "warm.c", 1, "load the time zone before allocations fail");
    krvtest::TempDir dir;
    const std::string app = dir.Path() + "/app";
    KrvLogOpsCfg cfg = Cfg("app", dir.Path().c_str(), kFile);
    const auto fds = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto descriptors = fds();
    unsigned skip = 0;
    for (unsigned refused = 1; refused != 0; ++skip) {
        ASSERT_LT(skip, 200u);
        std::filesystem::remove_all(app);
        std::filesystem::create_directory(app);
        std::ofstream(app + "/app_1.log").put('x');  // the same scan every round
        uint32_t rc = 0;
        Printed([&] {
            krvtest::AllocFailure failure(skip, 1);
            rc = KRV_LogOpsInit(&cfg);
            refused = failure.Failed();
        });
        EXPECT_TRUE(rc == 0 || rc == 1 || rc == 12) << rc;
        EXPECT_EQ(rc == 0 ? 0u : 124u, KRV_LogOpsReg("net", Net));
        KRV_LogOpsFini();
        const size_t leftOpen = krvtest::CloseFilesUnder(app).size();
        EXPECT_EQ(rc == 0 ? 1u : leftOpen, leftOpen) << skip;
        EXPECT_LE(leftOpen, 1u) << skip;
        EXPECT_EQ(descriptors, fds()) << skip;
    }
    EXPECT_GT(skip, 8u) << "the scan and the paths allocate too";
    // The writer thread is the one thing a start needs after opening its file.
    std::string printed = Printed([&] {
        krvtest::ThreadFailure refuse(0);
        EXPECT_EQ(1u, KRV_LogOpsInit(&cfg));
    });
    EXPECT_NE(std::string::npos, printed.find("[krv_log_ops]create thread error, err is 11\n")) << printed;
    EXPECT_EQ(1u, krvtest::CloseFilesUnder(app).size()) << "the refused start keeps its file open";
    EXPECT_EQ(descriptors, fds());
}

}  // namespace
