// Lock-free local time: an updater thread publishes a snapshot of the local time and the CPU tick
// every 5 seconds; readers carry the milliseconds the tick has advanced since into the date.
#include "krv_nolocktime.h"

#include <pthread.h>

#include <atomic>
#include <ctime>

#include "krv_cputick.h"
#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "time/krv_nolocktime_carry.h"
#include "time/krv_cputick_internal.h"
#include "time/krv_nolocktime_internal.h"
#include "util/krv_arith_divider.h"

namespace {

using krv::nolocktime::KrvNolockSnapStore;

constexpr char kKrvSource[] = "krv_nolocktime";
constexpr int32_t kUpdatePeriodSec = 5;

KrvNolockSnapStore g_store;
// Init and fini serialise on this lock, so racing first inits cannot start two updaters; readers
// never take it and look only at g_ready.
pthread_mutex_t g_lifecycleLock = PTHREAD_MUTEX_INITIALIZER;
uint32_t g_refCount = 0;  // under g_lifecycleLock
pthread_t g_updater;      // under g_lifecycleLock, valid while g_refCount > 0
std::atomic<uint32_t> g_running{0};
// Set once the first snapshot is published and the CPU tick is held; cleared by the last fini.
std::atomic<bool> g_ready{false};
// KRV_CpuTick2Ms's division by the ticks per millisecond, prepared before g_ready is set: the held CPU
// tick state keeps its base until the last fini, and a divide instruction is most of a read's arithmetic.
krv::Divider64By32 g_perMs;

// Publishes the local time of time(NULL) with the CPU tick read right after it; returns 0, or 1
// when the time cannot be broken down (nothing published). One caller at a time: the first init,
// then the updater thread.
uint32_t KrvNolockSnapUpdate()
{
    time_t now = time(nullptr);
    struct tm local {};
    if (localtime_r(&now, &local) == nullptr) {
        return KRV_ERR_FAILED;
    }
    g_store.Publish(KRV_CpuTickGet(), local);
    return KRV_OK;
}

void *KrvNolockUpdater(void *)
{
    while (g_running.load(std::memory_order_acquire) == 1) {
        KRV_OsalTaskDelay(kUpdatePeriodSec, 0);
        if (KrvNolockSnapUpdate() != KRV_OK) {
            KRV_DIAG(KRV_ERR_FAILED, "Update failed");
            if (g_running.load(std::memory_order_acquire) == 0) {
                return nullptr;
            }
        }
    }
    return nullptr;
}

// Starts the updater thread with default attributes; false (logged) when it cannot be created.
bool KrvNolockUpdaterStart()
{
    g_running.store(1, std::memory_order_release);
    int ret = pthread_create(&g_updater, nullptr, KrvNolockUpdater, nullptr);
    if (ret != 0) {
        g_running.store(0, std::memory_order_release);
        KRV_DIAG(static_cast<uint32_t>(ret), "thread create failed");
        return false;
    }
    return true;
}

class LifecycleLock {
public:
    LifecycleLock() { pthread_mutex_lock(&g_lifecycleLock); }
    ~LifecycleLock() { pthread_mutex_unlock(&g_lifecycleLock); }
    LifecycleLock(const LifecycleLock &) = delete;
    LifecycleLock &operator=(const LifecycleLock &) = delete;
};

}  // namespace

namespace krv::nolocktime {

const KrvNolockSnapStore &KrvNolockSnapStoreGet()
{
    return g_store;
}

}  // namespace krv::nolocktime

uint32_t KRV_NolockTimeInit(void)
{
    LifecycleLock lock;
    if (g_refCount != 0) {
        ++g_refCount;
        return KRV_OK;
    }
    uint32_t ret = KRV_CpuTickInit();
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "Cpu Tick init failed");
        return ret;
    }
    if (KrvNolockSnapUpdate() != KRV_OK || !KrvNolockUpdaterStart()) {
        KRV_DIAG(KRV_ERR_FAILED, "Nolock Time Cfg Init failed");
        KRV_CpuTickFini();
        return KRV_ERR_FAILED;
    }
    g_perMs = krv::Divider64By32::Make(krv::cputick::StateGet()->cpuTick2msBase);
    g_ready.store(true, std::memory_order_release);
    ++g_refCount;
    return KRV_OK;
}

void KRV_NolockTimeFini(void)
{
    LifecycleLock lock;
    if (g_refCount == 0 || --g_refCount != 0) {
        return;
    }
    g_ready.store(false, std::memory_order_release);
    g_running.store(0, std::memory_order_release);
    // The updater notices only when its 5 s sleep ends; callers were told the last fini may wait that long.
    pthread_join(g_updater, nullptr);
    KRV_CpuTickFini();
}

uint32_t KRV_LmtTimeGetNoLock(KrvDateTime *date)
{
    if (date == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "param invalid");
        return KRV_ERR_INVALID;
    }
    if (!g_ready.load(std::memory_order_acquire)) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "nolock time is not initialized");
        return KRV_ERR_NOT_INIT;
    }
    uint64_t snapTick = 0;
    struct tm snap {};
    g_store.Read(&snapTick, &snap);
    // A counter reading below the snapshot's (an unsynchronised core, a registered read function)
    // counts as no time elapsed rather than as a wrapped, centuries-long interval.
    uint64_t now = krv::cputick::TickRead();
    uint64_t ticks = now > snapTick ? now - snapTick : 0;
    krv::nolocktime::KrvNolockDateCarry(snap, g_perMs.Divide(ticks), date);
    return KRV_OK;
}
