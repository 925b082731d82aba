// Logging lifecycle, settings, the logger registry and routing of a context's lines to a module.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "hok_log.h"
#include "krv_log.h"
#include "krv_log_ops.h"
#include "support/krv_test_support.h"

using namespace Hok::Log;

namespace {

struct Routed {
    uint32_t code;
    uint32_t level;
    std::string file;
    uint32_t line;
    std::string msg;
};
std::vector<Routed> g_routed;

void RecordRouted(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    g_routed.push_back({code, level, file, line, msg});
}

TEST(HokLogLifecycle, CountsUsersAndStaysUpWhileLoggersLive)
{
    ASSERT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "");
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_ERROR);  // the printing filter's default
    SetLogLevel(LOG_LEVEL_VERBOSE);             // ignored until initialised
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_ERROR);
    EXPECT_TRUE(IsLogEnabled(LOG_LEVEL_ERROR));
    EXPECT_FALSE(IsLogEnabled(LOG_LEVEL_DEBUG));

    krvtest::StdoutCapture out;
    InitLogging("app", "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    ASSERT_TRUE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "app");
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_INFO);
    EXPECT_TRUE(IsLogEnabled(LOG_LEVEL_INFO));
    EXPECT_FALSE(IsLogEnabled(LOG_LEVEL_DEBUG));

    InitLogging("other", "", 0, LOG_LEVEL_SEC, LOG_MODE_STDOUT);  // only counted
    EXPECT_EQ(GetLogAppId(), "app");
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_INFO);
    SetLogLevel(LOG_LEVEL_VERBOSE);
    EXPECT_TRUE(IsLogEnabled(LOG_LEVEL_DEBUG));
    EXPECT_EQ(KRV_LogOpsFilterGet(), 6u);

    Logger *logger = CreateLogger("life", "kept across fini");
    ASSERT_NE(logger, nullptr);
    FiniLogging();
    EXPECT_TRUE(IsLogInited());
    EXPECT_EQ(out.Finish(), "");

    krvtest::StdoutCapture refused;
    FiniLogging();
    EXPECT_EQ(refused.Finish(), "some loggers are not destroy\n");
    EXPECT_TRUE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "app");

    logger->Destroy();
    krvtest::StdoutCapture last;
    FiniLogging();
    FiniLogging();  // nothing left to undo
    EXPECT_EQ(last.Finish(), "");
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "");
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_ERROR);
}

TEST(HokLogLifecycle, AppIdLengthIsCheckedHereAndByTheBackend)
{
    krvtest::StdoutCapture tooLong;
    InitLogging(std::string(32, 'a'), "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    EXPECT_EQ(tooLong.Finish(), "param invalid, appId length: 32\n");
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "");

    InitLogging(std::string(31, 'b'), "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    EXPECT_TRUE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), std::string(31, 'b'));
    FiniLogging();
    ASSERT_FALSE(IsLogInited());

    krvtest::StdoutCapture empty;
    InitLogging("", "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    std::string printed = empty.Finish();
    EXPECT_NE(printed.find("log ops init failed, ret: 22\n"), std::string::npos) << printed;
    EXPECT_FALSE(IsLogInited());
}

TEST(HokLogLifecycle, FailedInitLeavesItsAppIdUnderTheNextShorterOne)
{
    krvtest::TempDir dir;
    krvtest::StdoutCapture out;
    InitLogging("abcdef", dir.Path() + "/missing", 6000, LOG_LEVEL_INFO, LOG_MODE_FILE);
    std::string printed = out.Finish();
    ASSERT_FALSE(IsLogInited());
    EXPECT_NE(printed.find("log ops init failed, ret: 22\n"), std::string::npos) << printed;
    EXPECT_EQ(GetLogAppId(), "abcdef");

    InitLogging("xyz", dir.Path(), 6000, LOG_LEVEL_INFO, LOG_MODE_FILE | LOG_MODE_STDOUT);
    ASSERT_TRUE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "xyzdef");
    EXPECT_TRUE(std::filesystem::is_directory(dir.Path() + "/xyzdef"));
    FiniLogging();
    EXPECT_EQ(GetLogAppId(), "");

    // After a clean finalisation the record is zero again and a short id stays short.
    InitLogging("xyz", dir.Path(), 6000, LOG_LEVEL_INFO, LOG_MODE_FILE);
    EXPECT_EQ(GetLogAppId(), "xyz");
    EXPECT_TRUE(std::filesystem::is_directory(dir.Path() + "/xyz"));
    FiniLogging();
    EXPECT_EQ(static_cast<uint32_t>(LOG_MODE_FILE | LOG_MODE_STDOUT), 6u);
}

TEST(HokLogRegistry, CreateFindDestroyWithExactReports)
{
    krvtest::StdoutCapture limits;
    Logger *widest = CreateLogger(std::string(32, 'c'), std::string(128, 'd'));
    EXPECT_NE(widest, nullptr);
    EXPECT_EQ(CreateLogger(std::string(33, 'c'), "x"), nullptr);
    EXPECT_EQ(CreateLogger("ok", std::string(129, 'd')), nullptr);
    EXPECT_EQ(limits.Finish(),
              "param invalid, ctx id length: 33\n"
              "param invalid, ctx description length: 129\n");
    widest->Destroy();

    krvtest::StdoutCapture twice;
    Logger *first = CreateLogger("net", "first description");
    Logger *again = CreateLogger("net", "ignored description");
    Logger *unnamed = CreateLogger("", "empty ids are fine");
    EXPECT_EQ(twice.Finish(), "ctxId:net had created\n");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(again, first);
    ASSERT_NE(unnamed, nullptr);
    EXPECT_NE(unnamed, first);
    EXPECT_EQ(GetLogger("net"), first);
    EXPECT_EQ(GetLogger(""), unnamed);

    krvtest::StdoutCapture missing;
    EXPECT_EQ(GetLogger("nope"), nullptr);
    EXPECT_EQ(GetLogger("ne"), nullptr);  // lookups are by equality, not by prefix
    first->Destroy();
    EXPECT_EQ(GetLogger("net"), nullptr);
    unnamed->Destroy();
    EXPECT_EQ(missing.Finish(), "ctxId:nope not reg\nctxId:ne not reg\nctxId:net not reg\n");
}

TEST(HokLogRegistry, ConcurrentCreatorsShareOneLogger)
{
    constexpr int kThreads = 4;
    Logger *seen[kThreads] = {};
    krvtest::StdoutCapture out;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&seen, i] {
            for (int round = 0; round < 200; ++round) {
                Logger *own = CreateLogger("own" + std::to_string(i), "private");
                own->Destroy();
            }
            seen[i] = CreateLogger("shared", "one for all");
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    std::string printed = out.Finish();
    ASSERT_NE(seen[0], nullptr);
    for (Logger *logger : seen) {
        EXPECT_EQ(logger, seen[0]);
    }
    size_t reports = 0;
    for (size_t at = printed.find("had created"); at != std::string::npos; at = printed.find("had created", at + 1)) {
        ++reports;
    }
    EXPECT_EQ(reports, static_cast<size_t>(kThreads - 1));
    seen[0]->Destroy();
    EXPECT_EQ(GetLogger("own0"), nullptr);
}

TEST(HokLogModules, ContextLinesGoToTheRegisteredModuleOnly)
{
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 124u);
    EXPECT_EQ(MdlLogUnreg("net"), 124u);

    InitLogging("route", "", 0, LOG_LEVEL_ERROR, LOG_MODE_STDOUT);
    ASSERT_TRUE(IsLogInited());
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 0u);
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 113u);
    EXPECT_EQ(MdlLogReg(std::string(33, 'n'), RecordRouted), 22u);
    EXPECT_EQ(MdlLogReg("disk", nullptr), 22u);

    Logger *net = CreateLogger("net", "network");
    Logger *disk = CreateLogger("disk", "storage");
    g_routed.clear();
    krvtest::StdoutCapture out;
    net->LogVerbose("net.cpp", 12) << "retry " << 3 << " of " << LogHex16Pre(31);  // routed whatever its level
    disk->LogError("disk.cpp", 34) << "full";
    disk->LogInfo("disk.cpp", 35) << "filtered out";
    std::string printed = out.Finish();

    ASSERT_EQ(g_routed.size(), 1u);
    EXPECT_EQ(g_routed[0].msg, "[net][V] > retry 3 of 0x001F");
    EXPECT_EQ(g_routed[0].level, 6u);
    EXPECT_EQ(g_routed[0].code, 0u);
    EXPECT_EQ(g_routed[0].file, "net.cpp");
    EXPECT_EQ(g_routed[0].line, 12u);
    EXPECT_TRUE(std::regex_match(printed, std::regex(R"(\[\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d\.\d{6}\])"
                                                     R"(\[2\]\[0x0\]\[disk\.cpp:34\]\[disk\]\[E\] > full\n)")))
        << printed;

    EXPECT_EQ(MdlLogUnreg("net"), 0u);
    EXPECT_EQ(MdlLogUnreg("net"), 60u);
    g_routed.clear();
    krvtest::StdoutCapture after;
    net->LogError("net.cpp", 13) << "back to the backend";
    EXPECT_NE(after.Finish().find("[net.cpp:13][net][E] > back to the backend\n"), std::string::npos);
    EXPECT_TRUE(g_routed.empty());

    net->Destroy();
    disk->Destroy();
    FiniLogging();
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 124u);
}

TEST(HokLogRegistry, CreationWithoutMemoryReturnsNullAndRegistersNothing)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's operator new does not go through the failing malloc";
#else
    std::string ctxId = "a context id too long for inline storage";
    ctxId.resize(32);
    const std::string description = "a description that needs a heap block of its own";
    for (unsigned skip = 0; skip < 4; ++skip) {
        Logger *logger = nullptr;
        {
            krvtest::AllocFailure fail(skip, 1);
            logger = CreateLogger(ctxId, description);
        }
        if (logger != nullptr) {
            EXPECT_EQ(GetLogger(ctxId), logger);
            logger->Destroy();
            EXPECT_GT(skip, 0u);
            break;
        }
        krvtest::StdoutCapture out;
        EXPECT_EQ(GetLogger(ctxId), nullptr);
        out.Finish();
    }
#endif
}

}  // namespace
