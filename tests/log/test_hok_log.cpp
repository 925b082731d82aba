// Logging lifecycle, settings, the logger registry and routing of a context's lines to a module.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "hok_log.h"
#include "krv_log_ops.h"
#include "support/krv_test_support.h"

using namespace Hok::Log;

namespace {

std::vector<std::string> g_routed;  // "level|file:line|message"

void RecordRouted(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    g_routed.push_back(std::to_string(code) + "|" + std::to_string(level) + "|" + file + ":" +
                       std::to_string(line) + "|" + msg);
}

TEST(HokLogLifecycle, CountsUsersAndStaysUpWhileLoggersLive)
{
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "");
    SetLogLevel(LOG_LEVEL_VERBOSE);  // ignored until initialised: the printing filter's 2 shows
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_ERROR);
    EXPECT_FALSE(IsLogEnabled(LOG_LEVEL_DEBUG));

    krvtest::StdoutCapture quiet;
    InitLogging("app", "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    ASSERT_TRUE(IsLogInited());
    InitLogging("other", "", 0, LOG_LEVEL_SEC, LOG_MODE_STDOUT);  // only counted
    EXPECT_EQ(GetLogAppId(), "app");
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_INFO);
    EXPECT_TRUE(IsLogEnabled(LOG_LEVEL_INFO));
    EXPECT_FALSE(IsLogEnabled(LOG_LEVEL_DEBUG));
    SetLogLevel(LOG_LEVEL_VERBOSE);
    EXPECT_TRUE(IsLogEnabled(LOG_LEVEL_DEBUG));
    EXPECT_EQ(KRV_LogOpsFilterGet(), 6u);

    Logger *logger = CreateLogger("life", "kept across fini");
    FiniLogging();
    EXPECT_TRUE(IsLogInited());
    EXPECT_EQ(quiet.Finish(), "");

    krvtest::StdoutCapture refused;
    FiniLogging();
    EXPECT_EQ(refused.Finish(), "some loggers are not destroy\n");
    EXPECT_TRUE(IsLogInited());

    logger->Destroy();
    krvtest::StdoutCapture last;
    FiniLogging();
    FiniLogging();  // nothing left to undo
    EXPECT_EQ(last.Finish(), "");
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "");
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_ERROR);
}

TEST(HokLogLifecycle, AppIdIsCheckedHereAndByTheBackendAndNotClearedOnFailure)
{
    krvtest::StdoutCapture tooLong;
    InitLogging(std::string(32, 'a'), "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    EXPECT_EQ(tooLong.Finish(), "param invalid, appId length: 32\n");
    EXPECT_FALSE(IsLogInited());

    InitLogging(std::string(31, 'b'), "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    EXPECT_EQ(GetLogAppId(), std::string(31, 'b'));
    FiniLogging();

    krvtest::StdoutCapture empty;
    InitLogging("", "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    EXPECT_NE(empty.Finish().find("log ops init failed, ret: 22\n"), std::string::npos);
    EXPECT_FALSE(IsLogInited());

    // A failed start leaves its characters in the record; the next, shorter id is copied over them.
    krvtest::TempDir dir;
    krvtest::StdoutCapture failed;
    InitLogging("abcdef", dir.Path(), 5119, LOG_LEVEL_INFO, LOG_MODE_FILE);  // below the backend minimum
    EXPECT_NE(failed.Finish().find("log ops init failed, ret: 22\n"), std::string::npos);
    ASSERT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "abcdef");
    InitLogging("xyz", dir.Path(), 6000, LOG_LEVEL_INFO, LOG_MODE_FILE | LOG_MODE_STDOUT);
    ASSERT_TRUE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "xyzdef");
    EXPECT_TRUE(std::filesystem::is_directory(dir.Path() + "/xyzdef"));
    FiniLogging();

    InitLogging("xyz", dir.Path(), 6000, LOG_LEVEL_INFO, LOG_MODE_FILE);  // the record was zeroed
    EXPECT_TRUE(std::filesystem::is_directory(dir.Path() + "/xyz"));
    FiniLogging();
}

TEST(HokLogRegistry, CreateFindDestroyWithExactReports)
{
    krvtest::StdoutCapture out;
    Logger *widest = CreateLogger(std::string(32, 'c'), std::string(128, 'd'));
    EXPECT_NE(widest, nullptr);
    EXPECT_EQ(CreateLogger(std::string(33, 'c'), "x"), nullptr);
    EXPECT_EQ(CreateLogger("ok", std::string(129, 'd')), nullptr);
    widest->Destroy();

    Logger *first = CreateLogger("net", "first description");
    Logger *unnamed = CreateLogger("", "empty ids are fine");
    EXPECT_EQ(CreateLogger("net", "ignored description"), first);
    EXPECT_NE(unnamed, first);
    EXPECT_EQ(GetLogger("net"), first);
    EXPECT_EQ(GetLogger(""), unnamed);
    EXPECT_EQ(GetLogger("ne"), nullptr);  // lookups are by equality, not by prefix
    first->Destroy();
    EXPECT_EQ(GetLogger("net"), nullptr);
    unnamed->Destroy();
    EXPECT_EQ(out.Finish(),
              "param invalid, ctx id length: 33\n"
              "param invalid, ctx description length: 129\n"
              "ctxId:net had created\n"
              "ctxId:ne not reg\n"
              "ctxId:net not reg\n");
}

TEST(HokLogModules, ContextLinesGoToTheRegisteredModuleOnly)
{
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 124u);
    EXPECT_EQ(MdlLogUnreg("net"), 124u);
    krvtest::StdoutCapture out;
    InitLogging("route", "", 0, LOG_LEVEL_ERROR, LOG_MODE_STDOUT);
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 0u);
    EXPECT_EQ(MdlLogReg("net", RecordRouted), 113u);
    EXPECT_EQ(MdlLogReg(std::string(33, 'n'), RecordRouted), 22u);
    out.Finish();

    Logger *net = CreateLogger("net", "network");
    Logger *disk = CreateLogger("disk", "storage");
    krvtest::StdoutCapture lines;
    net->LogVerbose("net.cpp", 12) << "retry " << 3 << " of " << LogHex16Pre(31);  // routed whatever its level
    disk->LogError("disk.cpp", 34) << "full";
    disk->LogInfo("disk.cpp", 35) << "filtered out";
    EXPECT_TRUE(std::regex_match(lines.Finish(), std::regex(R"(\[\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d\.\d{6}\])"
                                                            R"(\[2\]\[0x0\]\[disk\.cpp:34\]\[disk\]\[E\] > full\n)")));
    EXPECT_EQ(g_routed, std::vector<std::string>{"0|6|net.cpp:12|[net][V] > retry 3 of 0x001F"});

    EXPECT_EQ(MdlLogUnreg("net"), 0u);
    krvtest::StdoutCapture after;
    net->LogError("net.cpp", 13) << "back to the backend";
    EXPECT_NE(after.Finish().find("[net.cpp:13][net][E] > back to the backend\n"), std::string::npos);
    EXPECT_EQ(g_routed.size(), 1u);

    net->Destroy();
    disk->Destroy();
    FiniLogging();
    EXPECT_FALSE(IsLogInited());
}

TEST(HokLogRegistry, CreationWithoutMemoryReturnsNullAndRegistersNothing)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's operator new does not go through the failing malloc";
#else
    const std::string ctxId(32, 'm');
    const std::string description(100, 'd');
    krvtest::StdoutCapture out;
    Logger *logger = nullptr;
    unsigned skip = 0;
    for (; logger == nullptr && skip < 10; ++skip) {
        {
            krvtest::AllocFailure fail(skip, 1);
            logger = CreateLogger(ctxId, description);
        }
        EXPECT_EQ(GetLogger(ctxId), logger);
    }
    EXPECT_GT(skip, 1u);  // at least one allocation was refused on the way
    ASSERT_NE(logger, nullptr);
    logger->Destroy();
#endif
}

}  // namespace
