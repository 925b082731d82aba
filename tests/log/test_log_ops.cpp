// File log backend without files: configuration checks, reference counting, the module registry,
// routing by tag and the exact line format on standard output.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "krv_log_ops.h"
#include "log/test_log_ops_util.h"
#include "support/krv_test_support.h"

namespace {

using logopstest::Cfg;

constexpr uint32_t kModule = KRV_LOG_MODE_MODULE;
constexpr uint32_t kStdout = KRV_LOG_MODE_STDOUT;
constexpr uint32_t kFile = KRV_LOG_MODE_FILE;

struct Received {
    uint32_t code;
    uint32_t level;
    std::string file;
    uint32_t line;
    std::string msg;
};

std::vector<Received> g_netSeen;
std::vector<Received> g_otherSeen;

void NetModule(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    g_netSeen.push_back({code, level, file, line, msg});
}

void OtherModule(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    g_otherSeen.push_back({code, level, file, line, msg});
}

// Runs fn with standard output captured and returns what it printed.
template <typename Fn>
std::string Printed(Fn fn)
{
    krvtest::StdoutCapture capture;
    fn();
    return capture.Finish();
}

TEST(LogOpsInit, RefusesBadConfigurationWithItsMessages)
{
    krvtest::TempDir dir;
    struct Case {
        KrvLogOpsCfg cfg;
        bool nullCfg;
        uint32_t rc;
        std::vector<std::string> msgs;
    };
    std::string slashed = dir.Path() + "/";
    const std::string longId(32, 'a');
    std::vector<Case> cases = {
        {{}, true, 22, {"parameter is NULL", "param check failed"}},
        {Cfg("app", nullptr, kFile), false, 22,
         {"logDir is null or log size is valid, log size:5120, log mode:2", "param check failed"}},
        {Cfg("app", dir.Path().c_str(), kFile | kStdout, 5119), false, 22,
         {"logDir is null or log size is valid, log size:5119, log mode:6", "param check failed"}},
        {Cfg("app", slashed.c_str(), kFile), false, 22,
         {"strcmp fail, realpath:" + dir.Path() + ", path:" + slashed,
          "logDir realpath check failed, path: " + slashed, "param check failed"}},
        {Cfg("", dir.Path().c_str(), kFile), false, 22, {"appId is invalid, len: 0", "param check failed"}},
        // Without the file bit neither the directory nor the size matter, but the appId does.
        {Cfg("", nullptr, kStdout, 0), false, 22, {"appId is invalid, len: 0", "param check failed"}},
    };
    KrvLogOpsCfg unterminated = Cfg("", nullptr, kStdout);
    std::memcpy(unterminated.appId, longId.data(), sizeof(unterminated.appId));
    cases.push_back({unterminated, false, 22, {"appId is invalid, len: 32", "param check failed"}});

    for (const Case &c : cases) {
        krvtest::DiagCapture diags;
        EXPECT_EQ(c.rc, KRV_LogOpsInit(c.nullCfg ? nullptr : &c.cfg));
        std::vector<krvtest::Diag> got = diags.Take();
        ASSERT_EQ(c.msgs.size(), got.size()) << c.msgs.back();
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(c.msgs[i], got[i].msg);
            EXPECT_EQ(2u, got[i].level);
            EXPECT_EQ(c.rc, got[i].code);
        }
        EXPECT_EQ("krv_log_ops", got.back().file);
    }
    // Nothing was started: the filter is still the printing path's.
    KRV_LogFilter(3);
    EXPECT_EQ(3u, KRV_LogOpsFilterGet());
    KRV_LogFilter(2);
    EXPECT_EQ(124u, KRV_LogOpsReg("net", NetModule));
}

TEST(LogOpsInit, CountsUsersAndKeepsTheFirstConfiguration)
{
    KRV_LogOpsFilterSet(5);  // ignored while not initialised
    EXPECT_EQ(2u, KRV_LogOpsFilterGet());

    const std::string id31(31, 'x');
    KrvLogOpsCfg first = Cfg(id31.c_str(), nullptr, kStdout, 0, 4);
    KrvLogOpsCfg second = Cfg("", nullptr, kStdout, 0, 6);  // invalid, but only counted
    ASSERT_EQ(0u, KRV_LogOpsInit(&first));
    EXPECT_EQ(0u, KRV_LogOpsInit(&second));
    EXPECT_EQ(4u, KRV_LogOpsFilterGet());
    KRV_LogOpsFilterSet(5);
    EXPECT_EQ(5u, KRV_LogOpsFilterGet());
    EXPECT_NE(0u, KRV_LogHookReg(NetModule)) << "the backend's hook is installed";

    KRV_LogOpsFini();
    EXPECT_EQ(5u, KRV_LogOpsFilterGet()) << "the first fini only lowers the count";
    KRV_LogOpsFini();
    EXPECT_EQ(2u, KRV_LogOpsFilterGet());
    EXPECT_EQ(1u, KRV_LogHookUnReg()) << "the last fini removed the hook";
    KRV_LogOpsFini();  // nothing left to undo
    EXPECT_EQ(124u, KRV_LogOpsUnreg("net"));
}

TEST(LogOpsRegistry, ReturnsItsCodesAndReportsThem)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kModule | kStdout, 0, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    const std::string name32(32, 'n');
    const std::string name33(33, 'n');
    std::string out = Printed([&] {
        EXPECT_EQ(22u, KRV_LogOpsReg(nullptr, NetModule));
        EXPECT_EQ(22u, KRV_LogOpsReg("net", nullptr));
        EXPECT_EQ(22u, KRV_LogOpsReg(name33.c_str(), NetModule));
        EXPECT_EQ(0u, KRV_LogOpsReg(name32.c_str(), NetModule));
        EXPECT_EQ(0u, KRV_LogOpsReg("net", NetModule));
        EXPECT_EQ(113u, KRV_LogOpsReg("net", OtherModule));
        EXPECT_EQ(60u, KRV_LogOpsUnreg("nat"));
        EXPECT_EQ(22u, KRV_LogOpsUnreg(nullptr));
        EXPECT_EQ(0u, KRV_LogOpsUnreg("net"));
        EXPECT_EQ(60u, KRV_LogOpsUnreg("net"));
        EXPECT_EQ(0u, KRV_LogOpsReg("net", OtherModule)) << "a removed name can be taken again";
    });
    const std::vector<std::string> expected = {
        "[2][0x16][krv_log_ops:", "]invalid param\n",     "[2][0x16][krv_log_ops:", "]invalid param\n",
        "[2][0x16][krv_log_ops:", "]invalid param\n",     "[2][0x71][krv_log_ops:", "]module already reg\n",
        "[2][0x3c][krv_log_ops:", "]module name(nat) not reg\n", "[2][0x16][krv_log_ops:", "]invalid param\n",
        "[2][0x3c][krv_log_ops:", "]module name(net) not reg\n",
    };
    size_t at = 0;
    for (const std::string &piece : expected) {
        at = out.find(piece, at);
        ASSERT_NE(std::string::npos, at) << piece << " in\n" << out;
        at += piece.size();
    }
    KRV_LogOpsFini();  // entries still registered go with the backend
}

TEST(LogOpsRouting, TaggedLinesGoToTheModuleByPrefix)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, kModule | kStdout, 0, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", NetModule));
    g_netSeen.clear();
    std::string out = Printed([] {
        KRV_LogWrite(7, 6, "main.cpp", 42, "[net][V] > retry %d", 3);  // routed whatever the level
        KRV_LogWrite(0, 2, "main.cpp", 43, "[ne] short tag");          // "ne" is a prefix of "net"
        KRV_LogWrite(0, 2, "main.cpp", 44, "[nett] longer tag");       // compared over 4 characters
        KRV_LogWrite(0, 2, "main.cpp", 45, "untagged");
    });
    ASSERT_EQ(2u, g_netSeen.size());
    EXPECT_EQ(7u, g_netSeen[0].code);
    EXPECT_EQ(6u, g_netSeen[0].level);
    EXPECT_EQ("main.cpp", g_netSeen[0].file);
    EXPECT_EQ(42u, g_netSeen[0].line);
    EXPECT_EQ("[net][V] > retry 3", g_netSeen[0].msg);
    EXPECT_EQ("[ne] short tag", g_netSeen[1].msg);
    EXPECT_EQ(std::string::npos, out.find("retry"));
    EXPECT_NE(std::string::npos, out.find("[main.cpp:44][nett] longer tag\n"));
    EXPECT_NE(std::string::npos, out.find("[main.cpp:45]untagged\n"));

    // The other way round a shorter module name does not take a longer tag.
    ASSERT_EQ(0u, KRV_LogOpsUnreg("net"));
    ASSERT_EQ(0u, KRV_LogOpsReg("ne", OtherModule));
    g_otherSeen.clear();
    out = Printed([] { KRV_LogWrite(0, 2, "main.cpp", 46, "[net] not for ne"); });
    EXPECT_TRUE(g_otherSeen.empty());
    EXPECT_NE(std::string::npos, out.find("[net] not for ne"));

    // An empty tag matches over zero characters: the first registered module takes it.
    ASSERT_EQ(0u, KRV_LogOpsReg("net", NetModule));
    g_netSeen.clear();
    KRV_LogWrite(0, 2, "main.cpp", 47, "[] anything");
    EXPECT_EQ(1u, g_otherSeen.size());
    EXPECT_TRUE(g_netSeen.empty());
    KRV_LogOpsFini();

    // Without the module bit nothing is routed.
    cfg.logMode = kStdout;
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    ASSERT_EQ(0u, KRV_LogOpsReg("net", NetModule));
    g_netSeen.clear();
    out = Printed([] { KRV_LogWrite(0, 2, "main.cpp", 48, "[net] printed"); });
    EXPECT_TRUE(g_netSeen.empty());
    EXPECT_NE(std::string::npos, out.find("[main.cpp:48][net] printed\n"));
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
    std::regex expected(
        "\\[\\d{4}\\.\\d{2}\\.\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6}\\]\\[3\\]\\[0x16\\]\\[krv_x:103\\]param invalid\n"
        "\\[[0-9. :]{26}\\]\\[4\\]\\[0x203b1003\\]\\[\\(null\\):7\\]no file\n");
    EXPECT_TRUE(std::regex_match(out, expected)) << out;

    KRV_LogOpsFilterSet(5);
    out = Printed([] { KRV_LogWrite(1, 5, "krv_x", 1, "now admitted"); });
    EXPECT_NE(std::string::npos, out.find("][5][0x1][krv_x:1]now admitted\n")) << out;

    // Ten-digit numbers overflow the 60 bytes reserved around file and message.
    KRV_LogOpsFilterSet(UINT32_MAX);
    out = Printed([] { KRV_LogWrite(UINT32_MAX, UINT32_MAX, "f", UINT32_MAX, "hello"); });
    EXPECT_EQ("log sprintf failed\r\nlog joint failed, log:hello\r\n", out);
    KRV_LogOpsFini();

    // With neither the file nor the standard-output bit, lines go nowhere.
    cfg.logMode = kModule;
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    EXPECT_EQ("", Printed([] { KRV_LogWrite(1, 2, "krv_x", 1, "dropped"); }));
    KRV_LogOpsFini();
}

}  // namespace
