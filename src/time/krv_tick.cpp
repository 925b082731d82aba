// System tick: whole jiffies of the CPU tick, with the time between the sleep hooks left out.
#include "krv_tick.h"

#include <atomic>

#include "krv_cputick.h"
#include "krv_osal.h"
#include "krv_sleep.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "time/krv_cputick_internal.h"
#include "util/krv_arith_divider.h"

namespace {

constexpr char kKrvSource[] = "krv_tick";

struct KrvTickCtrl {
    uint32_t tickBase;     // CPU ticks per jiffy
    uint64_t accumulated;  // jiffies counted up to the reference point
    uint64_t reference;    // CPU tick at which the current counting interval began
};
static_assert(sizeof(KrvTickCtrl) == 24, "TickCtrl keeps its 24-byte layout");

std::atomic<KrvTickCtrl *> g_ctrl{nullptr};
uint32_t g_refCount = 0;  // init and fini run from one thread at a time
// Division by tickBase, prepared with it before the record is published.
krv::Divider64By32 g_perJiffy;

// accumulated and reference change only in the sleep hooks; a reader racing one may pair an old
// value with a new one, which is accepted. Relaxed atomics keep such reads defined.
uint64_t Load(const uint64_t &field)
{
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

void Store(uint64_t &field, uint64_t value)
{
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

uint32_t TickRead(const KrvTickCtrl *ctrl, uint64_t *tick)
{
    uint64_t reference = Load(ctrl->reference);
    uint64_t accumulated = Load(ctrl->accumulated);
    uint64_t now = krv::cputick::TickRead();  // inline: pools stamp every unit twice per pair
    if (reference > now) {
        return KRV_ERR_INVALID;
    }
    *tick = g_perJiffy.Divide(now - reference) + accumulated;
    return KRV_OK;
}

// Folds the whole jiffies so far into the count (dropping the part of a jiffy) and restarts the
// interval. A pair left registered after the tick has gone (another pair came after it) does nothing.
uint32_t OnSleepStart()
{
    KrvTickCtrl *ctrl = g_ctrl.load(std::memory_order_acquire);
    if (ctrl == nullptr) {
        return KRV_ERR_NOT_INIT;
    }
    uint64_t tick = 0;
    uint32_t rc = TickRead(ctrl, &tick);
    if (rc != KRV_OK) {
        return rc;
    }
    Store(ctrl->accumulated, tick);
    Store(ctrl->reference, KRV_CpuTickGet());
    return KRV_OK;
}

// Counting resumes from here: the sleep is never counted, even when the counter restarted.
uint32_t OnSleepEnd()
{
    KrvTickCtrl *ctrl = g_ctrl.load(std::memory_order_acquire);
    if (ctrl == nullptr) {
        return KRV_ERR_NOT_INIT;
    }
    Store(ctrl->reference, KRV_CpuTickGet());
    return KRV_OK;
}

}  // namespace

extern "C" {

uint32_t KRV_TickInit(void)
{
    if (g_ctrl.load(std::memory_order_acquire) != nullptr) {
        ++g_refCount;
        return KRV_OK;
    }
    uint32_t rc = KRV_CpuTickInit();
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "Cputick init failed");
        return rc;
    }
    auto *ctrl = static_cast<KrvTickCtrl *>(KRV_OsalMemAlloc(sizeof(KrvTickCtrl)));
    if (ctrl == nullptr) {
        KRV_CpuTickFini();
        KRV_DIAG(KRV_ERR_NOMEM, "TickCtrl Alloc Memory(%zu) Failed", sizeof(KrvTickCtrl));
        return KRV_ERR_NOMEM;
    }
    krv::memset_s(ctrl, sizeof *ctrl, 0, sizeof *ctrl);
    ctrl->reference = KRV_CpuTickGet();
    rc = KRV_SleepFuncReg(OnSleepStart, OnSleepEnd);
    if (rc != KRV_OK) {
        KRV_OsalMemFree(ctrl);
        KRV_CpuTickFini();
        KRV_DIAG(rc, "SleepFunc register failed");
        return rc;
    }
    uint32_t base = 0;
    rc = KRV_CpuTickBaseGet(&base);
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "CpuTick get failed, tickBase:%u", base);
        (void)KRV_SleepFuncUnRegister(OnSleepStart, OnSleepEnd);
        KRV_OsalMemFree(ctrl);
        KRV_CpuTickFini();
        return rc;
    }
    ctrl->tickBase = base;
    g_perJiffy = krv::Divider64By32::Make(base);
    g_refCount = 1;
    g_ctrl.store(ctrl, std::memory_order_release);
    return KRV_OK;
}

/* The record is read without a lock: one acquire load and two relaxed ones, then the counter read
   and a multiply in place of the division. */
uint32_t KRV_TickGet(uint64_t *tick)
{
    if (tick == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "param invalid");
        return KRV_ERR_INVALID;
    }
    const KrvTickCtrl *ctrl = g_ctrl.load(std::memory_order_acquire);
    if (ctrl == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "tick is not initialized");
        return KRV_ERR_NOT_INIT;
    }
    return TickRead(ctrl, tick);
}

/* The CPU tick is held once for all users of the system tick and released with the last. */
void KRV_TickFini(void)
{
    KrvTickCtrl *ctrl = g_ctrl.load(std::memory_order_acquire);
    if (ctrl == nullptr || g_refCount-- != 1) {
        return;
    }
    Store(ctrl->accumulated, 0);
    Store(ctrl->reference, 0);
    (void)KRV_SleepFuncUnRegister(OnSleepStart, OnSleepEnd);
    g_ctrl.store(nullptr, std::memory_order_release);
    KRV_OsalMemFree(ctrl);
    KRV_CpuTickFini();
}

}  // extern "C"
