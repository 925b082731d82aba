// File log backend without files: configuration checks, reference counting, the module registry,
// routing by tag, the line format on standard output, and allocation failures.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "krv_log_ops.h"
#include "log/krv_log_ops_internal.h"
#include "support/krv_test_support.h"

namespace {

constexpr uint32_t kModule = KRV_LOG_MODE_MODULE;
constexpr uint32_t kFile = KRV_LOG_MODE_FILE;
constexpr uint32_t kStdout = KRV_LOG_MODE_STDOUT;

KrvLogOpsCfg Cfg(const char *appId, const char *logDir, uint32_t mode, uint32_t size = 5120, uint32_t level = 2)
{
    KrvLogOpsCfg cfg = {};
    std::strncpy(cfg.appId, appId, sizeof(cfg.appId));
    cfg.logDir = logDir;
    cfg.logMode = mode;
    cfg.logSize = size;
    cfg.logLevel = level;
    return cfg;
}

std::vector<std::string> g_seen;  // "<module>:<code>:<level>:<file>:<line>:<msg>"
void Record(const char *module, uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    g_seen.push_back(std::string(module) + ":" + std::to_string(code) + ":" + std::to_string(level) + ":" + file +
                     ":" + std::to_string(line) + ":" + msg);
}
void Net(uint32_t c, uint32_t lv, const char *f, uint32_t ln, const char *m) { Record("net", c, lv, f, ln, m); }
void Ne(uint32_t c, uint32_t lv, const char *f, uint32_t ln, const char *m) { Record("ne", c, lv, f, ln, m); }

template <typename Fn>
std::string Printed(Fn fn)
{
    krvtest::StdoutCapture capture;
    fn();
    return capture.Finish();
}

// The backend's own reports in printed lines, as "<hex code> <message>".
std::vector<std::string> Reports(const std::string &out)
{
    std::vector<std::string> reports;
    std::regex report("\\[2\\]\\[(0x[0-9a-f]+)\\]\\[krv_log_ops:\\d+\\]([^\n]*)\n");
    for (auto it = std::sregex_iterator(out.begin(), out.end(), report); it != std::sregex_iterator(); ++it) {
        reports.push_back((*it)[1].str() + " " + (*it)[2].str());
    }
    return reports;
}

TEST(LogOpsInit, RefusesBadConfigurationWithItsMessages)
{
    krvtest::TempDir dir;
    const std::string slashed = dir.Path() + "/";
    KrvLogOpsCfg unterminated = Cfg("", nullptr, kStdout);
    std::memset(unterminated.appId, 'a', sizeof(unterminated.appId));
    const KrvLogOpsCfg cfgs[] = {
        Cfg("app", nullptr, kFile),
        Cfg("app", dir.Path().c_str(), kFile | kStdout, 5119),
        Cfg("app", slashed.c_str(), kFile),
        Cfg("", dir.Path().c_str(), kFile),
        Cfg("", nullptr, kStdout, 0),  // without the file bit only the appId is checked
        unterminated,
    };
    const std::vector<std::string> expected[] = {
        {"parameter is NULL"},
        {"logDir is null or log size is valid, log size:5120, log mode:2"},
        {"logDir is null or log size is valid, log size:5119, log mode:6"},
        {"strcmp fail, realpath:" + dir.Path() + ", path:" + slashed, "logDir realpath check failed, path: " + slashed},
        {"appId is invalid, len: 0"},
        {"appId is invalid, len: 0"},
        {"appId is invalid, len: 32"},
    };
    for (size_t i = 0; i < std::size(expected); ++i) {
        krvtest::DiagCapture diags;
        EXPECT_EQ(22u, KRV_LogOpsInit(i == 0 ? nullptr : &cfgs[i - 1]));
        std::vector<std::string> msgs;
        for (const krvtest::Diag &d : diags.Take()) {
            EXPECT_EQ(22u, d.code);
            EXPECT_EQ(2u, d.level);
            msgs.push_back(d.msg);
        }
        std::vector<std::string> want = expected[i];
        want.push_back("param check failed");
        EXPECT_EQ(want, msgs);
    }
    KRV_LogFilter(3);
    EXPECT_EQ(3u, KRV_LogOpsFilterGet()) << "nothing started: the printing path's level shows";
    KRV_LogFilter(2);
}

TEST(LogOpsInit, CountsUsersAndKeepsTheFirstConfiguration)
{
    KRV_LogOpsFilterSet(5);  // ignored while not initialised
    EXPECT_EQ(2u, KRV_LogOpsFilterGet());
    const std::string id31(31, 'x');
    KrvLogOpsCfg first = Cfg(id31.c_str(), nullptr, kStdout, 0, 4);
    KrvLogOpsCfg invalid = Cfg("", nullptr, kStdout, 0, 6);
    ASSERT_EQ(0u, KRV_LogOpsInit(&first));
    EXPECT_EQ(0u, KRV_LogOpsInit(&invalid)) << "later calls only count";
    EXPECT_EQ(4u, KRV_LogOpsFilterGet());
    KRV_LogOpsFilterSet(5);
    EXPECT_EQ(5u, KRV_LogOpsFilterGet());
    EXPECT_EQ(22u, KRV_LogHookReg(Net)) << "the backend's hook is installed";
    KRV_LogOpsFini();
    EXPECT_EQ(5u, KRV_LogOpsFilterGet()) << "the first fini only lowers the count";
    KRV_LogOpsFini();
    EXPECT_EQ(2u, KRV_LogOpsFilterGet());
    EXPECT_EQ(1u, KRV_LogHookUnReg()) << "the last fini removed the hook";
    KRV_LogOpsFini();
    EXPECT_EQ(124u, KRV_LogOpsReg("net", Net));
    EXPECT_EQ(124u, KRV_LogOpsUnreg("net"));
}

TEST(LogOpsRegistry, ReturnsAndReportsItsCodes)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kModule | kStdout);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    std::string out = Printed([] {
        EXPECT_EQ(22u, KRV_LogOpsReg(nullptr, Net));
        EXPECT_EQ(22u, KRV_LogOpsReg("net", nullptr));
        EXPECT_EQ(22u, KRV_LogOpsReg(std::string(33, 'n').c_str(), Net));
        EXPECT_EQ(0u, KRV_LogOpsReg(std::string(32, 'n').c_str(), Net));
        EXPECT_EQ(0u, KRV_LogOpsReg("net", Net));
        EXPECT_EQ(113u, KRV_LogOpsReg("net", Ne));
        EXPECT_EQ(60u, KRV_LogOpsUnreg("nat"));
        EXPECT_EQ(22u, KRV_LogOpsUnreg(nullptr));
        EXPECT_EQ(0u, KRV_LogOpsUnreg("net"));
        EXPECT_EQ(60u, KRV_LogOpsUnreg("net"));
        EXPECT_EQ(0u, KRV_LogOpsReg("net", Ne)) << "a removed name can be taken again";
    });
    EXPECT_EQ((std::vector<std::string>{"0x16 invalid param", "0x16 invalid param", "0x16 invalid param",
                                        "0x71 module already reg", "0x3c module name(nat) not reg",
                                        "0x16 invalid param", "0x3c module name(net) not reg"}),
              Reports(out))
        << out;
    KRV_LogOpsFini();  // entries still registered go with the backend
}

TEST(LogOpsRouting, TaggedLinesGoToTheFirstModuleMatchingByPrefix)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kModule | kStdout);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", Net));
    g_seen.clear();
    std::string out = Printed([] {
        KRV_LogWrite(7, 6, "main.cpp", 42, "[net][V] > retry %d", 3);  // routed whatever the level
        KRV_LogWrite(0, 2, "m.c", 1, "[ne] short tag");                // "ne" is a prefix of "net"
        KRV_LogWrite(0, 2, "m.c", 2, "[nett] longer tag");             // compared over 4 characters
        KRV_LogWrite(0, 2, "m.c", 3, "untagged");
    });
    EXPECT_EQ((std::vector<std::string>{"net:7:6:main.cpp:42:[net][V] > retry 3", "net:0:2:m.c:1:[ne] short tag"}),
              g_seen);
    EXPECT_EQ(std::string::npos, out.find("retry"));
    EXPECT_NE(std::string::npos, out.find("[m.c:2][nett] longer tag\n"));
    EXPECT_NE(std::string::npos, out.find("[m.c:3]untagged\n"));

    // A shorter module name does not take a longer tag; an empty tag matches the first module.
    ASSERT_EQ(0u, KRV_LogOpsUnreg("net"));
    ASSERT_EQ(0u, KRV_LogOpsReg("ne", Ne));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", Net));
    g_seen.clear();
    out = Printed([] {
        KRV_LogWrite(0, 2, "m.c", 4, "[net] for net");
        KRV_LogWrite(0, 2, "m.c", 5, "[] anything");
    });
    EXPECT_EQ((std::vector<std::string>{"net:0:2:m.c:4:[net] for net", "ne:0:2:m.c:5:[] anything"}), g_seen);
    KRV_LogOpsFini();

    cfg.logMode = kStdout;  // without the module bit nothing is routed
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", Net));
    g_seen.clear();
    out = Printed([] { KRV_LogWrite(0, 2, "m.c", 6, "[net] printed"); });
    EXPECT_TRUE(g_seen.empty());
    EXPECT_NE(std::string::npos, out.find("[m.c:6][net] printed\n"));
    KRV_LogOpsFini();
}

TEST(LogOpsHook, FormatsFiltersAndReportsFormattingFailure)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kStdout, 0, 4);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    std::string out = Printed([] {
        KRV_LogWrite(22, 3, "krv_x", 103, "param %s", "invalid");
        KRV_LogWrite(540741635, 4, nullptr, 7, "no file");
        KRV_LogWrite(1, 5, "krv_x", 1, "too verbose");
    });
    EXPECT_TRUE(std::regex_match(
        out, std::regex("\\[\\d{4}\\.\\d{2}\\.\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6}\\]\\[3\\]\\[0x16\\]\\[krv_x:103\\]"
                        "param invalid\n\\[[0-9. :]{26}\\]\\[4\\]\\[0x203b1003\\]\\[\\(null\\):7\\]no file\n")))
        << out;
    KRV_LogOpsFilterSet(5);
    EXPECT_NE(std::string::npos, Printed([] { KRV_LogWrite(1, 5, "x", 1, "admitted"); }).find("][5][0x1][x:1]admitted\n"));

    // Ten-digit numbers overflow the 60 bytes reserved around file and message.
    KRV_LogOpsFilterSet(UINT32_MAX);
    EXPECT_EQ("log sprintf failed\r\nlog joint failed, log:hello\r\n",
              Printed([] { KRV_LogWrite(UINT32_MAX, UINT32_MAX, "f", UINT32_MAX, "hello"); }));
    KRV_LogOpsFini();

    cfg.logMode = kModule;  // with neither the file nor the output bit lines go nowhere
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    EXPECT_EQ("", Printed([] { KRV_LogWrite(1, 2, "x", 1, "dropped"); }));
    KRV_LogOpsFini();
}

TEST(LogOpsAlloc, StartFailuresAreReportedAndUndone)
{
    KRV_LogWrite(0, 2, "warm.c", 1, "load the time zone before allocations fail");
    const std::vector<std::vector<std::string>> expected = {
        {"malloc fail, size: " + std::to_string(sizeof(krv::logops::Context)), "log pre init failed",
         "log resource init failed"},
        {"mem alloc failed, num:300", "log resource init failed", "log pre init failed"},
        {"lock create failed", "log resource init failed", "log pre init failed"},
        {"malloc fail, size: 4096", "log config get failed", "log resource init failed"},
        {"list malloc fail, size: 24", "log resource init failed"},
        {"listLock create failed", "log resource init failed"},
    };
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kStdout);
    for (unsigned skip = 0; skip < expected.size(); ++skip) {
        std::string out = Printed([&] {
            krvtest::AllocFailure failure(skip, 1);
            EXPECT_EQ(12u, KRV_LogOpsInit(&cfg));
        });
        std::vector<std::string> reports;
        for (const std::string &msg : expected[skip]) {
            reports.push_back("0xc " + msg);
        }
        EXPECT_EQ(reports, Reports(out)) << out;
        EXPECT_EQ(124u, KRV_LogOpsReg("net", Net)) << "nothing left initialised";
    }

    // With files every allocation of the scan, the paths and the thread may fail as well.
    krvtest::TempDir dir;
    const std::string app = dir.Path() + "/app";
    cfg = Cfg("app", dir.Path().c_str(), kFile);
    const auto fds = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto descriptors = fds();
    unsigned skip = 0;
    for (unsigned refused = 1; refused != 0; ++skip) {
        ASSERT_LT(skip, 200u);
        std::filesystem::remove_all(app);
        mkdir(app.c_str(), 0755);
        for (const char *name : {"/app_1.log", "/app_2.log"}) {  // same scan every round
            close(open((app + name).c_str(), O_CREAT | O_WRONLY, 0600));
        }
        uint32_t rc = 0;
        Printed([&] {
            krvtest::AllocFailure failure(skip, 1);
            rc = KRV_LogOpsInit(&cfg);
            refused = failure.Failed();
        });
        EXPECT_TRUE(rc == 0 || rc == 1 || rc == 12) << rc;
        EXPECT_EQ(rc == 0 ? 0u : 124u, KRV_LogOpsReg("net", Net));
        KRV_LogOpsFini();
        EXPECT_EQ(descriptors, fds()) << skip;
    }
    EXPECT_GT(skip, 8u) << "the scan and the paths allocate too";
}

TEST(LogOpsAlloc, HookAndRegistryDropOnlyWhatTheyCouldNotAllocate)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kModule | kStdout);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    EXPECT_EQ("malloc fail, size: 8\r\nlog joint failed, log:lost line\r\n", Printed([] {
                  krvtest::AllocFailure failure(0, 1);
                  KRV_LogWrite(0, 2, "f.c", 1, "lost line");
              }));
    const char *expected[] = {"0xc name malloc fail, size: 3", "0xc module malloc fail, size: 32"};
    for (unsigned skip = 0; skip < 2; ++skip) {
        std::string out = Printed([&] {
            krvtest::AllocFailure failure(skip, 1);
            EXPECT_EQ(12u, KRV_LogOpsReg("net", Net));
        });
        EXPECT_EQ(std::vector<std::string>{expected[skip]}, Reports(out)) << out;
        EXPECT_EQ(60u, KRV_LogOpsUnreg("net")) << "nothing half-registered";
    }
    EXPECT_EQ(0u, KRV_LogOpsReg("net", Net));
    KRV_LogOpsFini();
}

}  // namespace
