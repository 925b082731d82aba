// The diagnostic hook and the direct printing path every module reports through.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "krv_log.h"
#include "support/krv_test_support.h"

namespace {

class LogHook : public ::testing::Test {
protected:
    void SetUp() override { KRV_LogFilter(2); }
    void TearDown() override
    {
        KRV_LogHookUnReg();
        KRV_LogFilter(2);
    }
};

std::string PrintedBy(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    krvtest::StdoutCapture out;
    KRV_LogWrite(code, level, file, line, "%s", msg);
    return out.Finish();
}

TEST_F(LogHook, PrintsStampedLinesThroughTheFilter)
{
    EXPECT_EQ(KRV_LogLevelGet(), 2u);
    EXPECT_EQ(PrintedBy(22, 3, "krv_x", 103, "quiet"), "");
    std::string line = PrintedBy(22, 2, "krv_x", 103, "param invalid");
    // Hour padded with a blank, microseconds padded to five places only.
    std::regex shape(R"(^\[\d{4}\.\d\d\.\d\d [ 12]\d:\d\d:\d\d\.[ \d]{4}\d+\]\[2\]\[0x16\]\[krv_x:103\]param invalid\n$)");
    EXPECT_TRUE(std::regex_match(line, shape)) << line;

    KRV_LogFilter(6);
    EXPECT_NE(PrintedBy(0, 3, "f", 1, "now shown"), "");
    KRV_LogFilter(0);
    EXPECT_EQ(PrintedBy(0, 1, "f", 1, "fatal hidden"), "");
    EXPECT_NE(PrintedBy(0, 0, "f", 1, "security shown"), "");
    KRV_LogFilter(100);
    EXPECT_EQ(KRV_LogLevelGet(), 100u);
    EXPECT_NE(PrintedBy(0, 99, "f", 1, "everything shown"), "");
}

TEST_F(LogHook, CodesPrintInLowerCaseHexAndNullFileNamesPrintBareText)
{
    std::string line = PrintedBy(540741635, 2, "krv_cputick", 7, "m");
    EXPECT_NE(line.find("[2][0x203b1003][krv_cputick:7]m\n"), std::string::npos) << line;
    EXPECT_EQ(PrintedBy(1, 2, nullptr, 7, "bare text"), "bare text");
}

TEST_F(LogHook, OverlongMessagesAndNullFormatsAreDroppedWhole)
{
    std::string exact(1023, 'a');
    EXPECT_NE(PrintedBy(0, 2, nullptr, 1, exact.c_str()), "log string is over flow or input is NULL.\n");
    EXPECT_EQ(PrintedBy(0, 2, nullptr, 1, exact.c_str()), exact);
    std::string over(1024, 'a');
    EXPECT_EQ(PrintedBy(0, 6, "f", 1, over.c_str()), "log string is over flow or input is NULL.\n");

    krvtest::DiagCapture hook;
    {
        krvtest::StdoutCapture out;
        KRV_LogWrite(0, 2, "f", 1, "%s", over.c_str());
        KRV_LogWrite(0, 2, "f", 1, nullptr);
        EXPECT_EQ(out.Finish(), "log string is over flow or input is NULL.\nlog string is over flow or input is NULL.\n");
    }
    EXPECT_TRUE(hook.Take().empty());
}

TEST_F(LogHook, AHookReceivesEveryLevelAndPrintsNothing)
{
    krvtest::DiagCapture hook;
    krvtest::StdoutCapture out;
    KRV_LogWrite(0x16, 6, "krv_json", 42, "verbose %d %s", 7, "x");
    KRV_LogWrite(1, 2, nullptr, 43, "no file");
    EXPECT_EQ(out.Finish(), "");
    auto diags = hook.Take();
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(diags[0].code, 0x16u);
    EXPECT_EQ(diags[0].level, 6u);
    EXPECT_EQ(diags[0].file, "krv_json");
    EXPECT_EQ(diags[0].line, 42u);
    EXPECT_EQ(diags[0].msg, "verbose 7 x");
    EXPECT_EQ(diags[1].file, "(null)");
}

void OtherHook(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

TEST_F(LogHook, RegistrationRefusesNullAndSecondHooks)
{
    EXPECT_EQ(KRV_LogHookReg(nullptr), 22u);
    EXPECT_EQ(KRV_LogHookUnReg(), 1u);
    EXPECT_EQ(KRV_LogHookReg(OtherHook), 0u);
    EXPECT_EQ(KRV_LogHookReg(OtherHook), 22u);
    EXPECT_EQ(KRV_LogHookReg(nullptr), 22u);
    EXPECT_EQ(KRV_LogHookUnReg(), 0u);
    EXPECT_EQ(KRV_LogHookUnReg(), 1u);
}

}  // namespace
