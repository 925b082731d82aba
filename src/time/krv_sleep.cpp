// Sleep registry: up to ten hook pairs, removed last in, first out.
#include "krv_sleep.h"

#include <cassert>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"

namespace {

constexpr char kKrvSource[] = "krv_sleep";

// Pairs occupy slots 0 .. count - 1.
struct KrvSleepRegistry {
    KrvSleepFunc startFuncs[KRV_SLEEP_MAX_PAIRS];
    KrvSleepFunc endFuncs[KRV_SLEEP_MAX_PAIRS];
    uint32_t count;
    uint8_t sleeping;  // 1 between KRV_SleepStart and KRV_SleepEnd
};

// Registration happens at start-up and shut-down, the sleep calls on one controlling thread: no lock.
KrvSleepRegistry *g_registry = nullptr;

void RunHooks(const KrvSleepFunc (&hooks)[KRV_SLEEP_MAX_PAIRS])
{
    for (KrvSleepFunc hook : hooks) {
        if (hook != nullptr) {
            (void)hook();
        }
    }
}

}  // namespace

extern "C" {

uint32_t KRV_SleepFuncReg(KrvSleepFunc startFunc, KrvSleepFunc endFunc)
{
    if (startFunc == nullptr || endFunc == nullptr) {
        return KRV_ERR_INVALID;
    }
    if (g_registry == nullptr) {
        auto *registry = static_cast<KrvSleepRegistry *>(KRV_OsalMemAlloc(sizeof(KrvSleepRegistry)));
        if (registry == nullptr) {
            // Reported as an invalid parameter, not as out of memory: established behaviour.
            KRV_DIAG(KRV_ERR_INVALID, "param invalid");
            return KRV_ERR_INVALID;
        }
        krv::memset_s(registry, sizeof *registry, 0, sizeof *registry);
        g_registry = registry;
    }
    if (g_registry->count >= KRV_SLEEP_MAX_PAIRS) {
        KRV_DIAG(KRV_ERR_INVALID, "SleepFunc register failed, idx:%u", g_registry->count);
        return KRV_ERR_INVALID;
    }
    g_registry->startFuncs[g_registry->count] = startFunc;
    g_registry->endFuncs[g_registry->count] = endFunc;
    ++g_registry->count;
    return KRV_OK;
}

uint32_t KRV_SleepFuncUnRegister(KrvSleepFunc startFunc, KrvSleepFunc endFunc)
{
    if (startFunc == nullptr || endFunc == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "SleepFunc unRegister failed");
        return KRV_ERR_INVALID;
    }
    if (g_registry == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "Base Sleep Module not Initialize");
        return KRV_ERR_NOT_INIT;
    }
    assert(g_registry->count > 0 && "the registry is freed with its last pair");
    uint32_t last = g_registry->count - 1;
    if (g_registry->startFuncs[last] != startFunc || g_registry->endFuncs[last] != endFunc) {
        KRV_DIAG(KRV_ERR_INVALID, "Sleep Func UnReg failed, idx = %u", last);
        KRV_DIAG(KRV_ERR_INVALID, "SleepFunc unRegister failed");
        return KRV_ERR_INVALID;
    }
    g_registry->startFuncs[last] = nullptr;
    g_registry->endFuncs[last] = nullptr;
    g_registry->count = last;
    if (last == 0) {
        KRV_OsalMemFree(g_registry);
        g_registry = nullptr;
    }
    return KRV_OK;
}

/* The mark goes up before the hooks run, so a hook that calls back in does not start a second round. */
void KRV_SleepStart(void)
{
    if (g_registry == nullptr || g_registry->sleeping == 1) {
        return;
    }
    g_registry->sleeping = 1;
    RunHooks(g_registry->startFuncs);
}

void KRV_SleepEnd(void)
{
    if (g_registry == nullptr || g_registry->sleeping == 0) {
        return;
    }
    RunHooks(g_registry->endFuncs);
    g_registry->sleeping = 0;
}

}  // extern "C"
