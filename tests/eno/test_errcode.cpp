// Composed codes, string routing, and the module lifecycle: errno translation, bit accessors,
// registration, lookups, and stacks made before the module lock exists.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "krv_osaleno.h"
#include "support/krv_test_support.h"

namespace {

const char *RowZeroText(uint32_t) { return "row zero"; }
const char *RowOneText(uint32_t) { return "row one"; }
const char *RowFourText(uint32_t) { return "row four"; }
// Looks up a row-one code while its own lookup still holds the module lock.
const char *NestedText(uint32_t) { return KRV_EnoErrorStrGet(0x0A00); }

// Clears the string function of every row on scope exit: the table is process-wide.
struct RowsCleared {
    ~RowsCleared()
    {
        for (int32_t first = 0; first < 50; first += 10) {
            KRV_EnoErrorStrFuncRegister("", first, first + 9, nullptr);  // the empty name matches every row
        }
    }
};

TEST(EnoCode, TranslationAndAccessors)
{
    for (int64_t err = -3; err <= 130; ++err) {
        uint32_t expected = (err >= 1 && err <= 57 && err != 41) ? err : (err >= 59 && err <= 124) ? err - 1 : 255;
        EXPECT_EQ(expected, KRV_OsalEnoTransfer(err)) << err;
    }
    EXPECT_EQ(KRV_ERR_UNKNOWN, KRV_OsalEnoTransfer(0x100000001LL));  // not truncated to 1
    EXPECT_EQ(42u, KRV_EnoErrorModuleGet(0x12A05));
    EXPECT_EQ(5u, KRV_EnoErrorCodeGet(0x12A05));
    EXPECT_FALSE(KRV_EnoErrorCodeCheck(0x12A05, 42, 5));
    EXPECT_TRUE(KRV_EnoErrorCodeCheck(0x2BFF, 42, 0x1FF));  // arguments are not masked
}

TEST(EnoCode, RegistrationMatchesNamePrefixAndExactRange)
{
    RowsCleared cleared;
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

// The state before the first init (no lock, a limit of 0) exists once per process, so the lifecycle
// runs in a fresh copy of this program; the parent's module is never touched.
TEST(EnoCodeDeathTest, UnlockedBeforeInitThenLockedAndReset)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto lifecycle = [] {
        RowsCleared cleared;
        int mismatches = 0;
        auto expect = [&mismatches](uint32_t want, uint32_t got, const char *what) {
            if (want != got) {
                std::fprintf(stderr, "%s: want %#x, got %#x\n", what, want, got);
                ++mismatches;
            }
        };
        expect(0, KRV_EnoMaxErrorLimitGet(), "limit before init");
        KRV_EnoErrorWrapperPush(0, 2, 3);  // a limit of 0 still admits this thread
        expect(0x203, KRV_EnoLastErrorGet(), "pop before init");
        KRV_EnoErrorWrapperPush(0, 2, 5);
        expect(22, KRV_EnoErrCodeDeInit(), "de-init before init");
        {
            krvtest::AllocFailure failMutex(0, 1);
            expect(12, KRV_EnoErrCodeInit(), "init without memory");
        }
        expect(0, KRV_EnoMaxErrorLimitSet(300), "limit set");
        expect(0, KRV_EnoErrCodeInit(), "init");  // drops the early stack and resets the limit
        expect(65535, KRV_EnoMaxErrorLimitGet(), "limit after init");
        expect(0, KRV_EnoLastErrorGet(), "pop after init");
        expect(0, KRV_EnoErrorStrFuncRegister("FENRO", 20, 29, NestedText), "register nested");
        expect(0, KRV_EnoErrorStrFuncRegister("ZUD", 10, 19, RowOneText), "register row one");
        // Would deadlock on a non-recursive lock.
        expect(0, std::strcmp("row one", KRV_EnoErrorStrGet(0x1500)), "nested lookup");
        expect(0, KRV_EnoErrCodeDeInit(), "de-init");
        expect(22, KRV_EnoErrCodeDeInit(), "second de-init");
        return mismatches;
    };
    EXPECT_EXIT(std::exit(lifecycle()), ::testing::ExitedWithCode(0), "");
}

}  // namespace
