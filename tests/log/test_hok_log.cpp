// Logging lifecycle, the logger registry, routing a context's lines to a module, and log streams:
// the prefix, every insertion's text, and exactly one write per stream.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "hok_log.h"
#include "krv_log_ops.h"
#include "support/krv_test_support.h"

// A plain build's operator new allocates with malloc, a sanitizer build's does not. Here it always
// does, so that the failing malloc (krvtest::AllocFailure) reaches the class interface in every build.
void *operator new(size_t size)
{
    void *block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}
void *operator new[](size_t size) { return operator new(size); }
void operator delete(void *block) noexcept { std::free(block); }
void operator delete[](void *block) noexcept { std::free(block); }
void operator delete(void *block, size_t) noexcept { std::free(block); }
void operator delete[](void *block, size_t) noexcept { std::free(block); }

using namespace Hok::Log;

namespace {

std::string g_routed;  // what the module function received, as "code level file:line message"
void Routed(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    g_routed += std::to_string(code) + " " + std::to_string(level) + " " + file + ":" + std::to_string(line) + " ";
    g_routed += msg;
}

TEST(HokLogLifecycle, CountsUsersKeepsFailedAppIdsRoutesContextsAndStaysUpWhileLoggersLive)
{
    g_routed.clear();
    EXPECT_EQ(FlushLogging(0), KRV_ERR_NOT_INIT);
    KRV_LogFilter(3);
    SetLogLevel(LOG_LEVEL_VERBOSE);  // ignored until initialised: the printing filter shows
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_WARN);
    KRV_LogFilter(2);
    EXPECT_EQ(MdlLogReg("net", Routed), 124u);
    EXPECT_EQ(MdlLogUnreg("net"), 124u);
    krvtest::TempDir dir;
    krvtest::StdoutCapture out;
    InitLogging(std::string(32, 'a'), "", 0, LOG_LEVEL_INFO, LOG_MODE_STDOUT);
    InitLogging("abcdef", dir.Path(), 5119, LOG_LEVEL_INFO, LOG_MODE_FILE);  // below the backend's minimum
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "abcdef");
    // The failed start left its characters in the record; the next, shorter id is copied over them.
    InitLogging("xyz", dir.Path(), 6000, LOG_LEVEL_INFO, LOG_MODE_FILE | LOG_MODE_STDOUT);
    InitLogging("other", "", 0, LOG_LEVEL_SEC, LOG_MODE_STDOUT);  // only counted
    EXPECT_EQ(GetLogAppId(), "xyzdef");
    EXPECT_TRUE(std::filesystem::is_directory(dir.Path() + "/xyzdef"));
    EXPECT_FALSE(IsLogEnabled(LOG_LEVEL_DEBUG));
    // Routing is always added: a module takes its context's lines whatever their level.
    EXPECT_EQ(MdlLogReg("net", Routed), 0u);
    Logger *net = CreateLogger("net", "kept across fini");
    net->LogVerbose("net.cpp", 12) << "retry " << 3;
    EXPECT_EQ(MdlLogUnreg("net"), 0u);
    net->LogError("net.cpp", 13) << "back to the backend";
    net->LogDebug("net.cpp", 14) << "filtered out";
    EXPECT_EQ(FlushLogging(10000), KRV_OK);
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(dir.Path() + "/xyzdef")) {
        files += krvtest::ReadFile(entry.path()).find("> back to the backend\n") != std::string::npos;
    }
    EXPECT_EQ(files, 1u) << "flushed into the file";
    SetLogLevel(LOG_LEVEL_VERBOSE);
    EXPECT_EQ(KRV_LogOpsFilterGet(), 6u);
    FiniLogging();  // only counted
    FiniLogging();  // refused while a logger lives
    EXPECT_TRUE(IsLogInited());
    net->Destroy();
    FiniLogging();
    FiniLogging();  // nothing left to undo
    EXPECT_FALSE(IsLogInited());
    EXPECT_EQ(GetLogAppId(), "") << "the record is cleared for the next start";
    EXPECT_EQ(GetLogLevel(), LOG_LEVEL_ERROR);
    EXPECT_EQ(krvtest::CloseFilesUnder(dir.Path()).size(), 1u) << "the stopped backend keeps its file open";
    EXPECT_EQ(g_routed, "0 6 net.cpp:12 [net][V] > retry 3");
    EXPECT_EQ(std::regex_replace(out.Finish(), std::regex("[^\n]*krv_log_ops[^\n]*\n|\\[[0-9. :]{26}\\]"), ""),
              "param invalid, appId length: 32\nlog ops init failed, ret: 22\n"
              "[2][0x0][net.cpp:13][net][E] > back to the backend\nsome loggers are not destroy\n");
}

TEST(HokLogRegistry, CreateFindDestroyWithExactReports)
{
    krvtest::StdoutCapture out;
    const std::string widestId(32, 'c');
    Logger *widest = CreateLogger(widestId, std::string(128, 'd'));
    ASSERT_NE(widest, nullptr);
    EXPECT_EQ(CreateLogger(widestId + "c", "x"), nullptr);
    EXPECT_EQ(CreateLogger("ok", std::string(129, 'd')), nullptr);
    Logger *unnamed = CreateLogger("", "empty ids are fine");
    EXPECT_EQ(CreateLogger("", "ignored description"), unnamed);
    EXPECT_EQ(GetLogger(widestId), widest);
    EXPECT_EQ(GetLogger("ccc"), nullptr);  // lookups are by equality, not by prefix
    widest->Destroy();
    EXPECT_EQ(GetLogger(widestId), nullptr);
    unnamed->Destroy();
    EXPECT_EQ(out.Finish(), "param invalid, ctx id length: 33\nparam invalid, ctx description length: 129\n"
                            "ctxId: had created\nctxId:ccc not reg\nctxId:" + widestId + " not reg\n");
}

class LogStreamTest : public ::testing::Test {
protected:
    void SetUp() override { net_ = CreateLogger("net", "network layer"); }
    void TearDown() override { net_->Destroy(); }
    // The only line written since the last call, as "code level file:line message".
    std::string Line()
    {
        std::vector<krvtest::Diag> lines = diags_.Take();
        EXPECT_EQ(lines.size(), 1u);
        return lines.empty() ? "" : std::to_string(lines[0].code) + " " + std::to_string(lines[0].level) + " " +
                                        lines[0].file + ":" + std::to_string(lines[0].line) + " " + lines[0].msg;
    }

    krvtest::DiagCapture diags_;
    Logger *net_ = nullptr;
};

TEST_F(LogStreamTest, EachStreamWritesOnceWithPrefixLevelFileAndLine)
{
    LogStream (Logger::*const makers[])(const std::string &, uint32_t) const = {
        &Logger::LogSec,  &Logger::LogFatal, &Logger::LogError,  &Logger::LogWarn,
        &Logger::LogInfo, &Logger::LogDebug, &Logger::LogVerbose};
    for (uint32_t level = 0; level < 7; ++level) {
        (net_->*makers[level])("x.cpp", 5) << "m";
        EXPECT_EQ(Line(), "0 " + std::to_string(level) + " x.cpp:5 [net][" + "SFEWIDV"[level] + "] > m");
    }
    { LogStream silent("e.cpp", 7, LOG_LEVEL_ERROR, *net_); }
    EXPECT_EQ(Line(), "0 2 e.cpp:7 ");  // no insertion, no prefix
    LogStream("u.cpp", 9, static_cast<LogLevel>(9), *net_) << "odd";
    EXPECT_EQ(Line(), "0 9 u.cpp:9 [net][unknown level] > odd");
    Logger *temporary = CreateLogger("tmp", "short lived");
    {
        LogStream first = temporary->LogError("m.cpp", 1);
        first << "a";
        temporary->Destroy();
        LogStream second(std::move(first));
        first << "ignored by the moved-from stream";
        second << "b";
        EXPECT_TRUE(diags_.Take().empty());
    }
    EXPECT_EQ(Line(), "0 2 m.cpp:1 [tmp][E] > ab");  // once, though moved and its logger gone
}

TEST_F(LogStreamTest, EveryInsertionFormatsAsPrintfWould)
{
    net_->LogInfo("f.cpp", 1) << true << false << static_cast<unsigned char>(65) << static_cast<signed char>(-1)
                              << 18446744073709551615ul << (-9223372036854775807l - 1) << 0.5f << 1e20
                              << std::string("std") << LOG_LEVEL_VERBOSE << static_cast<LogLevel>(9);
    EXPECT_EQ(Line(), "0 4 f.cpp:1 [net][I] > truefalse65-118446744073709551615-92233720368547758080.500000"
                      "100000000000000000000.000000stdVunknown level");
    net_->LogInfo("f.cpp", 2) << LogHex8Pre(0xab) << LogHex16Pre(31) << LogHex32Pre(1)
                              << LogHex64Pre(0x0A23456789ABCDEFull) << LogHex8(10) << LogHex16(0xbeef)
                              << LogHex32(0x1234) << LogHex64(0x0000000AFEDCBA98ull) << LogBin8(128) << LogBin16(5)
                              << LogBin32(0x80000001u) << LogBin64(0x8000000000000003ull);
    EXPECT_EQ(Line(), "0 4 f.cpp:2 [net][I] > 0xAB0x001F0x000000010x0A23456789ABCDEF0ABEEF000012340000000AFEDCBA98"
                      "100000000000000000000101" "1" + std::string(30, '0') + "11" + std::string(61, '0') + "11");
}

TEST_F(LogStreamTest, OverlongLinesAndNullTexts)
{
    net_->LogInfo("l.cpp", 1) << std::string(1012, 'x');  // 11 prefix characters: 1023 in all
    EXPECT_EQ(Line().size(), 12 + 1023u);
    krvtest::StdoutCapture out;
    net_->LogInfo("l.cpp", 1) << std::string(1013, 'x');
    EXPECT_EQ(out.Finish(), "log string is over flow or input is NULL.\n");
    EXPECT_TRUE(diags_.Take().empty());
    const char *missing = nullptr;
    EXPECT_DEATH(net_->LogInfo("n.cpp", 1) << "x" << missing, "");
}

// No exception leaves the class interface: where memory runs out, the process ends rather than
// losing a line, a logger or the application id without a word.
TEST(HokLogAlloc, ARefusedAllocationEndsTheProcess)
{
    Logger *net = CreateLogger("net", "network layer");
    const auto starved = [](unsigned skip, const std::function<void()> &fn) {
        krvtest::AllocFailure failure(skip);
        fn();
    };
    const std::string longText(100, 'x');
    EXPECT_DEATH(starved(0, [net] { net->LogInfo("a.cpp", 1) << "made"; }), "bad_alloc");
    EXPECT_DEATH(starved(1, [&] { net->LogInfo("a.cpp", 1) << longText; }), "bad_alloc");
    EXPECT_DEATH(starved(0, [] { CreateLogger("other", "unused"); }), "bad_alloc");
    EXPECT_DEATH(
        {
            InitLogging(std::string(20, 'a'), "/nonexistent", 5120, LOG_LEVEL_INFO, LOG_MODE_FILE);  // keeps the id
            starved(0, [] { GetLogAppId(); });
        },
        "bad_alloc");
    net->Destroy();
}

}  // namespace
