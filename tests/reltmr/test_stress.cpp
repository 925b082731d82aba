// Three application threads and the callbacks themselves start, restart and stop thousands of timers
// on two pools and a group; afterwards every timer is accounted for. KRV_SOAK_SECONDS repeats the
// whole run until that time is up.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "krv_reltmr.h"
#include "reltmr/krv_reltmr_internal.h"
#include "support/krv_test_support.h"

namespace {

// One record per start. Once stopped, a timer may make `limit` calls: those made when its stop
// returned, plus one already under way when the stop came from outside the callbacks.
struct Record {
    std::atomic<uint32_t> calls{0};
    std::atomic<uint32_t> limit{UINT32_MAX};
    std::atomic<bool> cancelled{false};
    bool periodic = false;
};
Record g_rec[100000];
std::atomic<uint32_t> g_nextRec{0};
std::atomic<int> g_unexpected{0};
std::atomic<bool> g_shutdown{false};
KrvRelTmrPool *g_pools[2];
KrvRelTmrGrpInfo *g_grp;

void Fired(uint64_t id, uint32_t chain);
void GroupFired(uint64_t, uint32_t id) { ++g_rec[id].calls; }

// The timers of one owner: slots 0..15 plain handles, 16..23 its eight serial numbers of the group.
// Every eighth slot runs periodic timers; they and the group use the first pool only, so the second
// one must always come back empty.
struct Owner {
    KrvRelTmrNode *handle[16] = {};
    int64_t rec[24];
    uint32_t slack;  // 1 unless the owner is a callback
    uint64_t firstSn;
    std::mt19937 rng;
    Owner(uint32_t s, uint64_t sn) : slack(s), firstSn(sn), rng(static_cast<uint32_t>(sn + 1)) { std::fill_n(rec, 24, -1); }

    // Called once a stop or restart of slot s returned: its old record may run on only up to its limit.
    void Retire(int s, int64_t next)
    {
        if (rec[s] >= 0) {
            g_rec[rec[s]].cancelled = true;
            g_rec[rec[s]].limit = g_rec[rec[s]].calls + slack;
        }
        rec[s] = next;
    }
    void Stop(int s)
    {
        g_unexpected += (s < 16 ? KRV_RelTimerStop(&handle[s]) : KRV_RelTimerofGrpStop(g_grp, firstSn + s - 16)) != 0;
        Retire(s, -1);
    }
    // One random stop, start or restart, or start of a one-shot without a handle (which must fire exactly once).
    void Operate()
    {
        uint32_t r = rng();
        uint32_t q = rng();
        int s = static_cast<int>(r % 24);
        if (r / 24 % 4 == 0) {
            return Stop(s);
        }
        bool periodic = s % 8 == 7 && r / 768 % 5 != 0;
        uint32_t ms = periodic ? 10 + q % 100 : (q % 10 == 0 ? 41000 + q / 16 % 20000 : q / 16 % 300);
        uint32_t id = g_nextRec++;
        g_rec[id].periodic = periodic;
        KrvRelTmrFuncInfo info = {Fired, id, r / 192 % 4 == 0};  // some callbacks operate in turn
        KrvRelTmrPool *pool = g_pools[periodic ? 0 : r / 96 % 2];
        uint32_t ret;
        if (r / 768 % 5 == 0) {
            ret = KRV_CallBackRelTimerStart(nullptr, pool, ms % 300, 0, &info);
        } else {
            ret = s < 16 ? KRV_CallBackRelTimerStart(&handle[s], pool, ms, periodic, &info)
                         : KRV_RelTimerofGrpStart(g_grp, firstSn + s - 16, ms, id, periodic);
            Retire(s, ret == 0 ? id : -1);
        }
        g_unexpected += ret != 0 && ret != 12;  // a pool running dry is fine: that record never runs
        g_rec[id].cancelled = ret != 0;
    }
};

// Touched only on the trigger thread, where callbacks run one at a time.
Owner g_cbOwner(0, 16);
KrvRelTmrNode *g_driver = nullptr;
std::atomic<bool> g_driverDone{false};

void Fired(uint64_t id, uint32_t chain)
{
    ++g_rec[id].calls;
    if (chain != 0 && !g_shutdown) {
        g_cbOwner.Operate();
    }
}

// A periodic timer that churns from inside the callbacks and at shutdown stops all they started, and itself.
void Driver(uint64_t, uint32_t)
{
    if (!g_shutdown) {
        return g_cbOwner.Operate();
    }
    for (int s = 0; s < 24; ++s) {
        g_cbOwner.Stop(s);
    }
    g_unexpected += KRV_RelTimerStop(&g_driver) != 0;
    g_driverDone = true;
}

// Fresh records, owners and flags: a repeated run must not find the previous one's pools or handles.
void Reset()
{
    for (Record &r : g_rec) {
        r.calls = 0;
        r.limit = UINT32_MAX;
        r.cancelled = false;
        r.periodic = false;
    }
    g_nextRec = 0;
    g_unexpected = 0;
    g_shutdown = false;
    g_pools[0] = g_pools[1] = nullptr;
    g_grp = nullptr;
    g_cbOwner = Owner(0, 16);
    g_driver = nullptr;
    g_driverDone = false;
}

// A periodic node stopped while awaiting its call: by established behaviour never returned to its pool.
bool Stranded(const KrvRelTmrNode &node)
{
    return node.status == KRV_RELTMR_STATUS_STOPPED && (node.mode & KRV_RELTMR_MODE_PERIODIC) != 0;
}

// Whether the first pool's used count equals its periodic nodes stopped while awaiting their call (by
// established behaviour never returned, so counted as used) and the second pool, free of periodic
// timers, is empty.
bool Accounted(uint32_t *stranded)
{
    krv::reltmr::TmrLock(krv::reltmr::Ctrl());
    *stranded = 0;
    for (uint32_t i = 0; i <= 3000; ++i) {
        const KrvRelTmrNode &node = g_pools[0]->nodes[i];
        *stranded += Stranded(node);
    }
    bool accounted = g_pools[0]->usedCount == *stranded && g_pools[1]->usedCount == 0;
    krv::reltmr::TmrUnlock(krv::reltmr::Ctrl());
    return accounted;
}

void Churn()
{
    krvtest::DiagCapture diags;  // keeps refused starts off standard output
    Reset();
    ASSERT_EQ(KRV_RelTimerInit(3000, &g_pools[0]), 0u);
    ASSERT_EQ(KRV_RelTimerInit(3000, &g_pools[1]), 0u);
    ASSERT_EQ(KRV_RelTimerGrpCreate(&g_grp, g_pools[0], 32, GroupFired), 0u);
    KrvRelTmrFuncInfo driver = {Driver, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&g_driver, g_pools[0], 10, 1, &driver), 0u);
    Owner apps[3] = {Owner(1, 0), Owner(1, 8), Owner(1, 24)};
    // At least 1.5 s and 10,000 timers; a loaded machine gets up to 20 s to reach the count, and the
    // record table's headroom caps a fast one.
    const auto start = std::chrono::steady_clock::now();
    auto application = [start](Owner *owner) {
        for (auto ran = std::chrono::steady_clock::duration{};
             ran < std::chrono::seconds(20) && g_nextRec < 90000 &&
             (ran < std::chrono::milliseconds(1500) || g_nextRec <= 10000);
             ran = std::chrono::steady_clock::now() - start) {
            for (int i = 0; i < 8; ++i) {
                owner->Operate();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    std::thread first(application, &apps[0]);
    std::thread second(application, &apps[1]);
    std::thread third(application, &apps[2]);
    first.join();
    second.join();
    third.join();
    const auto churned = std::chrono::steady_clock::now() - start;
    g_shutdown = true;
    for (int s = 0; s < 72; ++s) {
        apps[s / 24].Stop(s % 24);
    }
    // A periodic node stopped inside its own call looks stranded until the call returns: count again
    // after a pause once the callbacks are quiet.
    uint32_t stranded = 0;
    for (int i = 0; i < 1000 && !(g_driverDone && Accounted(&stranded)); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // room for a late call to show up
    EXPECT_TRUE(g_driverDone && Accounted(&stranded));
    EXPECT_EQ(g_unexpected, 0);
    uint32_t records = g_nextRec;
    EXPECT_GT(records, 10000u);
    uint64_t calls = 0;
    for (uint32_t id = 0; id < records; ++id) {
        const Record &r = g_rec[id];
        calls += r.calls;
        ASSERT_LE(r.calls, r.limit) << "record " << id << " ran on after its stop";
        ASSERT_TRUE(r.periodic || r.calls == 1 || (r.cancelled && r.calls == 0)) << "one-shot record " << id;
    }
    EXPECT_EQ(KRV_RelTimerGrpFree(g_grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(g_pools[1]), 0u);
    ASSERT_EQ(KRV_RelTimerFini(g_pools[0]), stranded == 0 ? 0u : 9u);
    if (stranded != 0) {
        // Nothing ever returns a stranded node; hand them back so the module goes and the next case
        // starts without one.
        krv::reltmr::TmrLock(krv::reltmr::Ctrl());
        for (uint32_t i = 0; i <= 3000; ++i) {
            KrvRelTmrNode &node = g_pools[0]->nodes[i];
            if (Stranded(node)) {
                krv::reltmr::KrvRelTmrFree(&node);
            }
        }
        krv::reltmr::TmrUnlock(krv::reltmr::Ctrl());
        EXPECT_EQ(KRV_RelTimerFini(g_pools[0]), 0u);
    }
    std::printf("timers: 3 threads and the callbacks started %u timers in %lld ms, %llu callbacks\n", records,
                static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(churned).count()),
                static_cast<unsigned long long>(calls));
}

TEST(RelTimerStress, EveryTimerIsAccountedForAfterConcurrentChurn)
{
    const auto soakEnd = std::chrono::steady_clock::now() + krvtest::SoakDuration(std::chrono::milliseconds(0));
    do {
        Churn();
    } while (!HasFatalFailure() && std::chrono::steady_clock::now() < soakEnd);
}

}  // namespace
