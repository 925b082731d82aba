// CPU tick: the shared state's lifecycle, the counter read and the read-function registration.
#include "krv_cputick.h"

#include <atomic>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "time/krv_cputick_internal.h"

namespace {

constexpr char kKrvSource[] = "krv_cputick";
// Bases up to this keep base * 100 within 32 bits.
constexpr uint32_t kMsBaseProductLimit = 42949672u;

std::atomic<KrvCpuTickState *> g_state{nullptr};
uint32_t g_refCount = 0;  // init and fini run from one thread at a time

// Unpublishes and frees the state (or one that failed its checks before being published).
void StateFree(KrvCpuTickState *state)
{
    g_state.store(nullptr, std::memory_order_release);
    KRV_OsalMemFree(state);
}

}  // namespace

namespace krv::cputick {

std::atomic<KrvCpuTickGetFunc> g_readFunc{nullptr};

const KrvCpuTickState *StateGet()
{
    return g_state.load(std::memory_order_acquire);
}

}  // namespace krv::cputick

extern "C" {

uint32_t KRV_CpuTickInit(void)
{
    if (g_state.load(std::memory_order_acquire) != nullptr) {
        ++g_refCount;
        return KRV_OK;
    }
    auto *state = static_cast<KrvCpuTickState *>(KRV_OsalMemAlloc(sizeof(KrvCpuTickState)));
    if (state == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "[MERILUX-KRV_CpuTickInit]:alloc memory(%lu) failed",
                 static_cast<unsigned long>(sizeof(KrvCpuTickState)));
        return KRV_ERR_NOMEM;
    }
    krv::memset_s(state, sizeof *state, 0, sizeof *state);
    state->magic = krv::cputick::kCpuTickMagic;
    state->jiffyMs = krv::cputick::kJiffyMs;
    uint32_t base = 0;
    (void)KRV_OsalCpuTickBaseGet(&base);  // a failed calibration leaves the base at 0
    state->cpuTickBase = base;
    if (base == 0) {
        KRV_DIAG(KRV_CPUTICK_ERR_BASE_ZERO, "Cpu Tick Init failed");
        StateFree(state);
        return KRV_CPUTICK_ERR_BASE_ZERO;
    }
    if (base <= kMsBaseProductLimit) {
        state->cpuTick2msBase = base * 100u / 1000u;
        if (state->cpuTick2msBase == 0) {
            KRV_DIAG(KRV_CPUTICK_ERR_MS_BASE_ZERO, "cpu tick is zero");
            StateFree(state);
            return KRV_CPUTICK_ERR_MS_BASE_ZERO;
        }
    } else {
        state->cpuTick2msBase = base / state->jiffyMs;
    }
    g_state.store(state, std::memory_order_release);
    ++g_refCount;
    return KRV_OK;
}

void KRV_CpuTickFini(void)
{
    KrvCpuTickState *state = g_state.load(std::memory_order_acquire);
    if (state == nullptr) {
        return;
    }
    if (g_refCount-- == 1) {
        StateFree(state);
    }
}

/* One indirect call or one unserialised counter read: callers stamp hot paths with it. */
uint64_t KRV_CpuTickGet(void)
{
    return krv::cputick::TickRead();
}

uint32_t KRV_CpuTickGetFuncReg(KrvCpuTickGetFunc func)
{
    if (func == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "param invalid");
        return KRV_ERR_INVALID;
    }
    KrvCpuTickGetFunc expected = nullptr;
    if (!krv::cputick::g_readFunc.compare_exchange_strong(expected, func, std::memory_order_acq_rel)) {
        KRV_DIAG(KRV_ERR_REGISTERED, "cputick get func is already registered");
        return KRV_ERR_REGISTERED;
    }
    return KRV_OK;
}

KrvCpuTickGetFunc KRV_CpuTickGetFuncGet(void)
{
    return krv::cputick::g_readFunc.load(std::memory_order_acquire);
}

}  // extern "C"
