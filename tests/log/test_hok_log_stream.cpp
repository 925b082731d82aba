// Log streams: the prefix, every insertion's text, and exactly one write per stream.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "hok_log.h"
#include "krv_log.h"
#include "support/krv_test_support.h"

using namespace Hok::Log;

namespace {

// Records every KRV_LogWrite without allocating, so it stays usable while allocations fail.
struct Caught {
    int count;
    uint32_t code;
    uint32_t level;
    char file[64];
    uint32_t line;
    char msg[2048];
};
Caught g_caught;

void CatchLine(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    ++g_caught.count;
    g_caught.code = code;
    g_caught.level = level;
    std::strncpy(g_caught.file, file != nullptr ? file : "(null)", sizeof(g_caught.file) - 1);
    g_caught.line = line;
    std::strncpy(g_caught.msg, msg, sizeof(g_caught.msg) - 1);
}

class LogStreamTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_caught = {};
        ASSERT_EQ(KRV_LogHookReg(CatchLine), 0u);
        logger_ = CreateLogger("net", "network layer");
        ASSERT_NE(logger_, nullptr);
    }
    void TearDown() override
    {
        logger_->Destroy();
        KRV_LogHookUnReg();
    }
    // The text one insertion of value appends after the prefix "[net][I] > ".
    template <typename T>
    std::string Inserted(const T &value)
    {
        g_caught = {};
        logger_->LogInfo("f.cpp", 1) << value;
        EXPECT_EQ(g_caught.count, 1);
        std::string msg = g_caught.msg;
        EXPECT_EQ(msg.rfind("[net][I] > ", 0), 0u) << msg;
        return msg.size() >= 11 ? msg.substr(11) : msg;
    }

    Logger *logger_ = nullptr;
};

TEST_F(LogStreamTest, WholeLineReachesLogWriteOnceWithPrefixLevelFileAndLine)
{
    logger_->LogWarn("main.cpp", 42) << "retry " << 3 << " of " << LogHex16Pre(31);
    EXPECT_EQ(g_caught.count, 1);
    EXPECT_STREQ(g_caught.msg, "[net][W] > retry 3 of 0x001F");
    EXPECT_EQ(g_caught.code, 0u);
    EXPECT_EQ(g_caught.level, 3u);
    EXPECT_STREQ(g_caught.file, "main.cpp");
    EXPECT_EQ(g_caught.line, 42u);

    // Every line maker carries its own level and letter.
    const std::pair<LogStream (Logger::*)(const std::string &, uint32_t) const, const char *> makers[] = {
        {&Logger::LogSec, "S"},  {&Logger::LogFatal, "F"}, {&Logger::LogError, "E"},   {&Logger::LogWarn, "W"},
        {&Logger::LogInfo, "I"}, {&Logger::LogDebug, "D"}, {&Logger::LogVerbose, "V"},
    };
    for (uint32_t level = 0; level < 7; ++level) {
        g_caught = {};
        (logger_->*makers[level].first)("x.cpp", level) << "m";
        EXPECT_EQ(g_caught.count, 1);
        EXPECT_EQ(g_caught.level, level);
        EXPECT_EQ(std::string(g_caught.msg), std::string("[net][") + makers[level].second + "] > m");
    }

    // No insertion: an empty message, without the prefix.
    g_caught = {};
    { LogStream silent("e.cpp", 7, LOG_LEVEL_ERROR, *logger_); }
    EXPECT_EQ(g_caught.count, 1);
    EXPECT_STREQ(g_caught.msg, "");

    // A level without a name gets "unknown level" in the prefix too.
    g_caught = {};
    LogStream("u.cpp", 9, static_cast<LogLevel>(9), *logger_) << "odd";
    EXPECT_STREQ(g_caught.msg, "[net][unknown level] > odd");
    EXPECT_EQ(g_caught.level, 9u);
}

TEST_F(LogStreamTest, NumbersAndTextsAreFormattedAsPrintfWould)
{
    EXPECT_EQ(Inserted(true), "true");
    EXPECT_EQ(Inserted(false), "false");
    EXPECT_EQ(Inserted(static_cast<unsigned char>(65)), "65");
    EXPECT_EQ(Inserted(static_cast<signed char>(-1)), "-1");
    EXPECT_EQ(Inserted(static_cast<unsigned short>(65535)), "65535");
    EXPECT_EQ(Inserted(static_cast<short>(-32768)), "-32768");
    EXPECT_EQ(Inserted(4294967295u), "4294967295");
    EXPECT_EQ(Inserted(-2147483647 - 1), "-2147483648");
    EXPECT_EQ(Inserted(18446744073709551615ul), "18446744073709551615");
    EXPECT_EQ(Inserted(-9223372036854775807l - 1), "-9223372036854775808");
    EXPECT_EQ(Inserted(0.5f), "0.500000");
    EXPECT_EQ(Inserted(-2.25), "-2.250000");
    EXPECT_EQ(Inserted(1e20), "100000000000000000000.000000");
    EXPECT_EQ(Inserted("plain text"), "plain text");
    EXPECT_EQ(Inserted(std::string("std text")), "std text");
    EXPECT_EQ(Inserted(std::string()), "");
    EXPECT_EQ(Inserted(LOG_LEVEL_SEC), "S");
    EXPECT_EQ(Inserted(LOG_LEVEL_VERBOSE), "V");
    EXPECT_EQ(Inserted(static_cast<LogLevel>(9)), "unknown level");
    EXPECT_EQ(Inserted(static_cast<LogLevel>(255)), "unknown level");
}

TEST_F(LogStreamTest, HexWrappersAreUpperCaseZeroPaddedAtFullWidth)
{
    EXPECT_EQ(Inserted(LogHex8Pre(0xab)), "0xAB");
    EXPECT_EQ(Inserted(LogHex8Pre(0)), "0x00");
    EXPECT_EQ(Inserted(LogHex16Pre(31)), "0x001F");
    EXPECT_EQ(Inserted(LogHex32Pre(0xdeadbeef)), "0xDEADBEEF");
    EXPECT_EQ(Inserted(LogHex32Pre(1)), "0x00000001");
    EXPECT_EQ(Inserted(LogHex64Pre(0x0123456789ABCDEFull)), "0x0123456789ABCDEF");
    EXPECT_EQ(Inserted(LogHex64Pre(0xFFFFFFFFull)), "0x00000000FFFFFFFF");
    EXPECT_EQ(Inserted(LogHex8(10)), "0A");
    EXPECT_EQ(Inserted(LogHex16(0xbeef)), "BEEF");
    EXPECT_EQ(Inserted(LogHex32(0x1234)), "00001234");
    EXPECT_EQ(Inserted(LogHex64(1)), "0000000000000001");
    EXPECT_EQ(Inserted(LogHex64(0xFEDCBA9876543210ull)), "FEDCBA9876543210");
    LogHex16 defaulted;
    EXPECT_EQ(Inserted(defaulted), "0000");
}

TEST_F(LogStreamTest, BinaryWrappersPrintEveryBitMostSignificantFirst)
{
    EXPECT_EQ(Inserted(LogBin8(128)), "10000000");
    EXPECT_EQ(Inserted(LogBin8(0)), "00000000");
    EXPECT_EQ(Inserted(LogBin16(5)), "0000000000000101");
    EXPECT_EQ(Inserted(LogBin32(0x80000001u)), "10000000000000000000000000000001");
    EXPECT_EQ(Inserted(LogBin64(0x8000000000000003ull)), "1" + std::string(61, '0') + "11");
    EXPECT_EQ(Inserted(LogBin64(~0ull)), std::string(64, '1'));
}

LogStream MadeElsewhere(const Logger &logger)
{
    LogStream stream = logger.LogDebug("made.cpp", 5);
    stream << "built in a helper ";
    return stream;
}

TEST_F(LogStreamTest, StreamsHandedOnByValueWriteOnlyOnce)
{
    MadeElsewhere(*logger_) << "and finished here";
    EXPECT_EQ(g_caught.count, 1);
    EXPECT_STREQ(g_caught.msg, "[net][D] > built in a helper and finished here");

    g_caught = {};
    {
        LogStream first = logger_->LogInfo("m.cpp", 1);
        first << "a";
        LogStream second(std::move(first));
        first << "lost on the moved-from stream";
        second << "b";
        EXPECT_EQ(g_caught.count, 0);  // nothing is written before destruction
    }
    EXPECT_EQ(g_caught.count, 1);
    EXPECT_STREQ(g_caught.msg, "[net][I] > ab");
}

TEST_F(LogStreamTest, StreamOutlivesItsLoggerAndOverlongLinesAreDropped)
{
    Logger *shortLived = CreateLogger("tmp", "short lived");
    ASSERT_NE(shortLived, nullptr);
    {
        LogStream stream = shortLived->LogError("t.cpp", 3);
        shortLived->Destroy();
        stream << "after destroy";
    }
    EXPECT_STREQ(g_caught.msg, "[tmp][E] > after destroy");

    // 11 prefix characters plus 1012 make the largest line KRV_LogWrite accepts.
    g_caught = {};
    logger_->LogInfo("l.cpp", 1) << std::string(1012, 'x');
    EXPECT_EQ(g_caught.count, 1);
    EXPECT_EQ(std::strlen(g_caught.msg), 1023u);

    g_caught = {};
    krvtest::StdoutCapture out;
    logger_->LogInfo("l.cpp", 1) << std::string(1013, 'x');
    EXPECT_EQ(out.Finish(), "log string is over flow or input is NULL.\n");
    EXPECT_EQ(g_caught.count, 0);
}

TEST_F(LogStreamTest, NullTextEndsTheProcess)
{
    const char *missing = nullptr;
    EXPECT_DEATH(logger_->LogInfo("n.cpp", 1) << "x" << missing, "");
}

TEST_F(LogStreamTest, LinesThatRunOutOfMemoryAreDroppedWhole)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's operator new does not go through the failing malloc";
#else
    std::string piece(100, 'p');
    {
        LogStream stream = logger_->LogInfo("o.cpp", 1);
        stream << "start ";
        {
            krvtest::AllocFailure fail(0);
            stream << piece;
            EXPECT_GT(fail.Failed(), 0u);
        }
        stream << "end";
    }
    EXPECT_EQ(g_caught.count, 0);

    {
        krvtest::AllocFailure fail(0);
        LogStream stream("o.cpp", 2, LOG_LEVEL_INFO, *logger_);
        stream << 1;
    }
    EXPECT_EQ(g_caught.count, 0);

    // A later stream works normally again.
    logger_->LogInfo("o.cpp", 3) << "fine";
    EXPECT_STREQ(g_caught.msg, "[net][I] > fine");
#endif
}

}  // namespace
