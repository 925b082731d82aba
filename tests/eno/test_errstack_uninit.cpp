// The error stack before the module is initialised, and the init/de-init lifecycle. Kept in a
// process of its own because it needs the state as the process starts.
#include <gtest/gtest.h>

#include <thread>

#include "krv_osaleno.h"
#include "support/krv_test_support.h"

TEST(ErrStackLifecycle, UnlockedBeforeInitThenResetByInit)
{
    // Unlocked and with a limit of 0, which still admits exactly one thread.
    EXPECT_EQ(0u, KRV_EnoMaxErrorLimitGet());
    KRV_EnoErrorWrapperPush(0, 2, 3);
    krvtest::DiagCapture diags;
    std::thread([] { KRV_EnoErrorWrapperPush(0, 2, 4); }).join();
    EXPECT_EQ(std::vector<std::string>{"New Avl Node failed, avlNodeCount:1, maxAvlNodes:"}, diags.Messages());
    EXPECT_EQ(0x203u, KRV_EnoLastErrorGet());
    KRV_EnoErrorWrapperPush(0, 2, 5);

    EXPECT_EQ(22u, KRV_EnoErrCodeDeInit());
    {
        krvtest::AllocFailure failMutex(0, 1);
        EXPECT_EQ(12u, KRV_EnoErrCodeInit());
    }
    EXPECT_EQ(0u, KRV_EnoMaxErrorLimitSet(300));
    EXPECT_EQ(0u, KRV_EnoErrCodeInit());  // releases the early stack and resets the limit
    EXPECT_EQ(65535u, KRV_EnoMaxErrorLimitGet());
    EXPECT_EQ(0u, KRV_EnoLastErrorGet());
    KRV_EnoErrorWrapperPush(0, 2, 6);
    EXPECT_EQ(0x206u, KRV_EnoLastErrorGet());
    KRV_EnoErrorStackRemove(true);
    EXPECT_EQ(0u, KRV_EnoErrCodeDeInit());
    EXPECT_EQ(22u, KRV_EnoErrCodeDeInit());
}
