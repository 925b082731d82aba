// File log backend under allocation failure: every failed allocation of a start is reported and
// undone, and the hook and the registry drop only what they could not allocate.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "krv_log_ops.h"
#include "log/krv_log_ops_internal.h"
#include "log/test_log_ops_util.h"
#include "support/krv_test_support.h"

namespace {

using logopstest::Cfg;

void Sink(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

// Messages of the backend's own reports in printed output.
std::vector<std::string> Reports(const std::string &out)
{
    std::vector<std::string> msgs;
    std::regex report("\\[krv_log_ops:\\d+\\]([^\n]*)\n");
    for (auto it = std::sregex_iterator(out.begin(), out.end(), report); it != std::sregex_iterator(); ++it) {
        msgs.push_back((*it)[1]);
    }
    return msgs;
}

size_t OpenDescriptors()
{
    return logopstest::ListDir("/proc/self/fd").size();
}

class LogOpsAlloc : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Load the time zone and the output buffer before any allocation is refused.
        KRV_LogWrite(0, 2, "warm.c", 1, "warm up");
    }
};

TEST_F(LogOpsAlloc, EachStartAllocationFailureIsReportedAndUndone)
{
    const std::vector<std::vector<std::string>> expected = {
        {"malloc fail, size: " + std::to_string(sizeof(krv::logops::Context)), "log pre init failed",
         "log resource init failed"},
        {"mem alloc failed, num:300", "log resource init failed", "log pre init failed"},
        {"lock create failed", "log resource init failed", "log pre init failed"},
        {"malloc fail, size: 4096", "log config get failed", "log resource init failed"},
        {"list malloc fail, size: 24", "log resource init failed"},
        {"listLock create failed", "log resource init failed"},
    };
    KrvLogOpsCfg cfg = Cfg("app", nullptr, KRV_LOG_MODE_STDOUT);
    for (unsigned skip = 0; skip < expected.size(); ++skip) {
        krvtest::StdoutCapture capture;
        uint32_t rc = 0;
        {
            krvtest::AllocFailure failure(skip, 1);
            rc = KRV_LogOpsInit(&cfg);
        }
        std::string out = capture.Finish();
        EXPECT_EQ(12u, rc) << skip;
        EXPECT_EQ(expected[skip], Reports(out)) << out;
        EXPECT_NE(std::string::npos, out.find("][2][0xc][krv_log_ops:")) << out;
        EXPECT_EQ(124u, KRV_LogOpsReg("net", Sink)) << "nothing left initialised";
    }
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    KRV_LogOpsFini();
}

TEST_F(LogOpsAlloc, FileStartSurvivesOrUndoesEveryFailure)
{
    krvtest::TempDir dir;
    std::string app = dir.Path() + "/app";
    // Every round starts from the same two files, so the number of allocations stays the same.
    auto resetAppDir = [&] {
        for (const std::string &name : logopstest::ListDir(app)) {
            std::remove((app + "/" + name).c_str());
        }
        mkdir(app.c_str(), 0755);
        for (const char *name : {"/app_1.log", "/app_2.log"}) {
            close(open((app + name).c_str(), O_CREAT | O_WRONLY, 0600));
        }
    };
    KrvLogOpsCfg cfg = Cfg("app", dir.Path().c_str(), KRV_LOG_MODE_FILE);
    const size_t descriptors = OpenDescriptors();
    unsigned skip = 0;
    for (;; ++skip) {
        ASSERT_LT(skip, 200u);
        resetAppDir();
        uint32_t rc = 0;
        unsigned refused = 0;
        {
            krvtest::StdoutCapture quiet;
            krvtest::AllocFailure failure(skip, 1);
            rc = KRV_LogOpsInit(&cfg);
            refused = failure.Failed();
        }
        if (rc == 0) {
            KRV_LogOpsFini();
            if (refused == 0) {
                break;
            }
        } else {
            EXPECT_TRUE(rc == 1 || rc == 12) << rc;
            EXPECT_EQ(124u, KRV_LogOpsReg("net", Sink));
        }
        EXPECT_EQ(descriptors, OpenDescriptors()) << skip;
    }
    EXPECT_GT(skip, 8u) << "the scan and the paths allocate too";
}

TEST_F(LogOpsAlloc, HookAndRegistryDropOnlyWhatTheyCouldNotAllocate)
{
    KrvLogOpsCfg cfg = Cfg("app", nullptr, KRV_LOG_MODE_MODULE | KRV_LOG_MODE_STDOUT, 0, 2);
    ASSERT_EQ(0u, KRV_LogOpsInit(&cfg));
    KRV_LogWrite(0, 2, "warm.c", 1, "hook warm up");
    std::string out;
    {
        krvtest::StdoutCapture capture;
        {
            krvtest::AllocFailure failure(0, 1);
            KRV_LogWrite(0, 2, "f.c", 1, "lost line");
        }
        out = capture.Finish();
    }
    EXPECT_EQ("malloc fail, size: 8\r\nlog joint failed, log:lost line\r\n", out);

    const std::vector<std::string> expected = {"name malloc fail, size: 3", "module malloc fail, size: 32"};
    for (unsigned skip = 0; skip < expected.size(); ++skip) {
        krvtest::StdoutCapture capture;
        uint32_t rc = 0;
        {
            krvtest::AllocFailure failure(skip, 1);
            rc = KRV_LogOpsReg("net", Sink);
        }
        out = capture.Finish();
        EXPECT_EQ(12u, rc);
        EXPECT_EQ(std::vector<std::string>{expected[skip]}, Reports(out)) << out;
        EXPECT_NE(std::string::npos, out.find("][0xc][krv_log_ops:")) << out;
        EXPECT_EQ(60u, KRV_LogOpsUnreg("net")) << "nothing half-registered";
    }
    EXPECT_EQ(0u, KRV_LogOpsReg("net", Sink));
    KRV_LogOpsFini();
}

}  // namespace
