// Error codes and the per-thread error stack: compose codes, turn them into text through a
// registered string function, and let a caller fetch the most recent errors of its own thread.
#include <cstdio>
#include <thread>

#include "krv.h"

namespace {

// Our codes live in module 42 of the "YIM" family (modules 40 to 49).
constexpr uint32_t kHigh = 0x0C0F;
constexpr uint32_t kModule = 42;
constexpr uint32_t kTimeout = 1;
constexpr uint32_t kRefused = 2;

const char *ErrorText(uint32_t code)
{
    switch (KRV_EnoErrorCodeGet(code)) {
        case kTimeout:
            return "peer timed out";
        case kRefused:
            return "connection refused";
        default:
            return "Unknown";
    }
}

// A function that reports failure through the stack, as a library layer of the application might.
bool Connect(bool refuse)
{
    KRV_EnoErrorWrapperPush(kHigh, kModule, kTimeout);
    if (refuse) {
        KRV_EnoErrorWrapperPush(kHigh, kModule, kRefused);
    }
    return false;
}

int Fail(const char *what)
{
    std::printf("FAILED: %s\n", what);
    return 1;
}

}  // namespace

int main()
{
    // The init creates the mutex that guards the string table and the stacks; without it they work
    // unlocked, so initialise before several threads use them.
    if (KRV_EnoErrCodeInit() != KRV_OK) {
        return Fail("init");
    }
    // A family is chosen by (a prefix of) its name and exactly its module range.
    if (KRV_EnoErrorStrFuncRegister("YIM", 40, 49, ErrorText) != KRV_OK) {
        return Fail("register");
    }

    // The code is high << 16 | module << 8 | number.
    const uint32_t refused = kHigh << 16 | kModule << 8 | kRefused;
    std::printf("0x%08X: module %u, number %u, \"%s\"\n", refused, KRV_EnoErrorModuleGet(refused),
                KRV_EnoErrorCodeGet(refused), KRV_EnoErrorStrGet(refused));

    // Each thread has its own ring of its 40 newest codes; KRV_EnoLastErrorGet pops the newest and
    // returns 0 once the stack is empty.
    Connect(true);
    uint32_t first = KRV_EnoLastErrorGet();
    uint32_t second = KRV_EnoLastErrorGet();
    uint32_t third = KRV_EnoLastErrorGet();
    std::printf("popped %s, then %s, then 0x%X\n", KRV_EnoErrorStrGet(first), KRV_EnoErrorStrGet(second), third);
    bool order = first == refused && KRV_EnoErrorCodeGet(second) == kTimeout && third == 0;

    // Another thread sees only its own stack: one without a stack reads 255 (KRV_ERR_UNKNOWN)
    // while other threads have stacks.
    uint32_t seenElsewhere = 0;
    std::thread([&] { seenElsewhere = KRV_EnoLastErrorGet(); }).join();

    // A referenced stack survives KRV_EnoErrorStackClear (a caller still reading it), not the forced clear.
    Connect(false);
    KRV_EnoErrorRefInc();
    KRV_EnoErrorStackClear();
    bool kept = KRV_EnoErrorCodeGet(KRV_EnoLastErrorGet()) == kTimeout;
    Connect(false);
    KRV_EnoErrorStackForceClear();
    bool cleared = KRV_EnoLastErrorGet() == 0;
    KRV_EnoErrorRefDec();

    // Stacks are not freed when their threads end: remove them before the module goes.
    KRV_EnoErrorStackRemove(true);
    KRV_EnoErrorStrFuncRegister("YIM", 40, 49, nullptr);
    if (KRV_EnoErrCodeDeInit() != KRV_OK) {
        return Fail("deinit");
    }
    return order && seenElsewhere == KRV_ERR_UNKNOWN && kept && cleared ? 0 : Fail("stack behaviour");
}
