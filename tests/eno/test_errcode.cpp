// Composed codes, string routing, and the module lifecycle: errno translation, bit accessors,
// registration, lookups, and stacks made before the module lock exists.
#include <gtest/gtest.h>

#include "krv_osaleno.h"
#include "support/krv_test_support.h"

namespace {

const char *RowZeroText(uint32_t) { return "row zero"; }
const char *RowOneText(uint32_t) { return "row one"; }
const char *RowFourText(uint32_t) { return "row four"; }
// Looks up a row-one code while its own lookup still holds the module lock.
const char *NestedText(uint32_t) { return KRV_EnoErrorStrGet(0x0A00); }

TEST(EnoCode, TranslationAndAccessors)
{
    for (int64_t err = -3; err <= 130; ++err) {
        uint32_t expected = (err >= 1 && err <= 57 && err != 41) ? err : (err >= 59 && err <= 124) ? err - 1 : 255;
        EXPECT_EQ(expected, KRV_OsalEnoTransfer(err)) << err;
    }
    EXPECT_EQ(255u, KRV_OsalEnoTransfer(0x100000001LL));  // not truncated to 1
    EXPECT_EQ(42u, KRV_EnoErrorModuleGet(0x12A05));
    EXPECT_EQ(5u, KRV_EnoErrorCodeGet(0x12A05));
    EXPECT_FALSE(KRV_EnoErrorCodeCheck(0x12A05, 42, 5));
    EXPECT_TRUE(KRV_EnoErrorCodeCheck(0x2BFF, 42, 0x1FF));  // arguments are not masked
}

TEST(EnoCode, RegistrationMatchesNamePrefixAndExactRange)
{
    for (const char *name : {static_cast<const char *>(nullptr), "KORALINE", "ZUD"}) {
        EXPECT_EQ(22u, KRV_EnoErrorStrFuncRegister(name, 0, 9, RowZeroText)) << (name ? name : "null");
    }
    EXPECT_EQ(22u, KRV_EnoErrorStrFuncRegister("KORALIN", 0, 10, RowZeroText));
    EXPECT_EQ(0u, KRV_EnoErrorStrFuncRegister("KOR", 0, 9, RowZeroText));
    EXPECT_EQ(0u, KRV_EnoErrorStrFuncRegister("", 10, 19, RowOneText));
    EXPECT_EQ(0u, KRV_EnoErrorStrFuncRegister("YIM", 40, 49, RowFourText));
    const std::pair<uint32_t, const char *> lookups[] = {
        {0xFFFF0500, "row zero"}, {0x1300, "row one"}, {0x1400, "Unknown"}, {0x3107, "row four"}, {0x3200, "Unknown"},
    };
    for (const auto &[code, text] : lookups) {
        EXPECT_STREQ(text, KRV_EnoErrorStrGet(code)) << std::hex << code;
    }
    EXPECT_EQ(0u, KRV_EnoErrorStrFuncRegister("K", 0, 9, nullptr));  // null clears
    EXPECT_STREQ("Unknown", KRV_EnoErrorStrGet(0x0500));
}

// Runs last and alone touches the module state: stacks made before init, init and de-init.
TEST(EnoCode, UnlockedBeforeInitThenLockedAndReset)
{
    // No lock yet, and a limit of 0 that still admits this thread.
    EXPECT_EQ(0u, KRV_EnoMaxErrorLimitGet());
    KRV_EnoErrorWrapperPush(0, 2, 3);
    EXPECT_EQ(0x203u, KRV_EnoLastErrorGet());
    KRV_EnoErrorWrapperPush(0, 2, 5);
    EXPECT_EQ(22u, KRV_EnoErrCodeDeInit());
    {
        krvtest::AllocFailure failMutex(0, 1);
        EXPECT_EQ(12u, KRV_EnoErrCodeInit());
    }
    EXPECT_EQ(0u, KRV_EnoMaxErrorLimitSet(300));
    EXPECT_EQ(0u, KRV_EnoErrCodeInit());  // drops the early stack and resets the limit
    EXPECT_EQ(65535u, KRV_EnoMaxErrorLimitGet());
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());
    ASSERT_EQ(0u, KRV_EnoErrorStrFuncRegister("FENRO", 20, 29, NestedText));
    ASSERT_EQ(0u, KRV_EnoErrorStrFuncRegister("ZUD", 10, 19, RowOneText));
    EXPECT_STREQ("row one", KRV_EnoErrorStrGet(0x1500));  // would deadlock on a non-recursive lock
    EXPECT_EQ(0u, KRV_EnoErrCodeDeInit());
    EXPECT_EQ(22u, KRV_EnoErrCodeDeInit());
}

}  // namespace
