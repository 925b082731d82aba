// Two application threads and the timer callbacks themselves start, restart and stop thousands of
// one-shot and periodic timers on two pools and a group; afterwards every timer is accounted for.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iterator>
#include <random>
#include <thread>

#include "krv_osalsync.h"
#include "krv_reltmr.h"
#include "reltmr/krv_reltmr_internal.h"
#include "support/krv_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;

// One record per start: how often its callback ran, whether it may have been cancelled, and (for
// periodic timers) the call count when its stop returned.
struct Record {
    std::atomic<uint32_t> calls{0};
    std::atomic<bool> stopRequested{false};
    std::atomic<uint32_t> callsAtStop{UINT32_MAX};
    bool periodic = false;
};
constexpr uint32_t kMaxRecords = 100000;
Record g_records[kMaxRecords];
std::atomic<uint32_t> g_nextRecord{0};
std::atomic<int> g_unexpected{0};
std::atomic<bool> g_shutdown{false};
std::atomic<bool> g_driverDone{false};
std::atomic<int> g_liveGrpPeriodics{0};
KrvRelTmrPool *g_pools[2];
KrvRelTmrGrpInfo *g_grp;
constexpr uint64_t kGrpOneShots = 32;  // serial numbers 0..15 belong to thread 0, 16..31 to thread 1
constexpr uint64_t kGrpSize = 48;      // 32..47 are periodic and look after themselves

uint32_t NewRecord(bool periodic)
{
    uint32_t id = g_nextRecord++;
    if (id >= kMaxRecords) {
        std::abort();
    }
    g_records[id].periodic = periodic;
    return id;
}

// Books a start's result: a refused start arms nothing.
void Started(uint32_t ret, uint32_t id)
{
    if (ret == 12) {
        g_records[id].stopRequested = true;
        g_records[id].callsAtStop = 0;
    } else if (ret != 0) {
        ++g_unexpected;
    }
}

// The handles one owner (a thread, or the callbacks) starts and stops, with the record of each.
struct Slots {
    KrvRelTmrNode *handle[48] = {};
    int64_t record[48];
    Slots() { std::fill(std::begin(record), std::end(record), -1); }

    // Before a restart or stop: a one-shot may now never fire.
    void Cancelling(int s) const
    {
        if (record[s] >= 0) {
            g_records[record[s]].stopRequested = true;
        }
    }
    // After a restart or stop returned: a periodic timer may run at most the call already under way.
    void Cancelled(int s)
    {
        if (record[s] >= 0 && g_records[record[s]].periodic) {
            g_records[record[s]].callsAtStop = g_records[record[s]].calls.load();
        }
        record[s] = -1;
    }
    void Start(int s, KrvRelTmrPool *pool, uint32_t ms, bool periodic, KrvRelTmrCallBack cb, uint32_t param);
    void Stop(int s)
    {
        Cancelling(s);
        if (KRV_RelTimerStop(&handle[s]) != 0) {
            ++g_unexpected;
        }
        Cancelled(s);
    }
};

void Slots::Start(int s, KrvRelTmrPool *pool, uint32_t ms, bool periodic, KrvRelTmrCallBack cb, uint32_t param)
{
    Cancelling(s);
    uint32_t id = NewRecord(periodic);
    KrvRelTmrFuncInfo info = {cb, id, param};
    uint32_t ret = KRV_CallBackRelTimerStart(&handle[s], pool, ms, periodic ? 1 : 0, &info);
    Cancelled(s);
    Started(ret, id);
    record[s] = ret == 0 ? id : -1;
}

void Fired(uint64_t id, uint32_t);
void FiredAndChains(uint64_t id, uint32_t chain);

// Null-handle one-shots can never be stopped, so each must fire exactly once.
void StartUnstoppable(KrvRelTmrPool *pool, uint32_t ms)
{
    uint32_t id = NewRecord(false);
    KrvRelTmrFuncInfo info = {Fired, id, 0};
    Started(KRV_CallBackRelTimerStart(nullptr, pool, ms, 0, &info), id);
}

// State touched only on the trigger thread, where callbacks run one at a time.
Slots g_cbSlots;
std::mt19937 g_cbRng(7);
KrvRelTmrNode *g_driver = nullptr;

void CallbackOperation()
{
    int s = static_cast<int>(g_cbRng() % 40);
    bool periodicSlot = s >= 32;
    switch (g_cbRng() % 4) {
        case 0:
        case 1:
            g_cbSlots.Start(s, periodicSlot ? g_pools[0] : g_pools[g_cbRng() % 2], g_cbRng() % 200, periodicSlot,
                            periodicSlot ? Fired : FiredAndChains, g_cbRng() % 4 == 0);
            break;
        case 2:
            g_cbSlots.Stop(s);
            break;
        default:
            StartUnstoppable(g_pools[g_cbRng() % 2], g_cbRng() % 200);
    }
}

void Fired(uint64_t id, uint32_t)
{
    ++g_records[id].calls;
}

void FiredAndChains(uint64_t id, uint32_t chain)
{
    ++g_records[id].calls;
    if (chain != 0 && !g_shutdown) {
        CallbackOperation();
    }
}

void Driver(uint64_t, uint32_t)
{
    if (!g_shutdown) {
        for (int i = 0; i < 3; ++i) {
            CallbackOperation();
        }
        return;
    }
    for (int s = 0; s < 40; ++s) {
        g_cbSlots.Stop(s);
    }
    if (KRV_RelTimerStop(&g_driver) != 0) {
        ++g_unexpected;
    }
    g_driverDone = true;
}

// Group timers: one-shots for the application threads, periodic ones that restart and finally stop themselves.
void GroupFired(uint64_t sn, uint32_t id)
{
    ++g_records[id].calls;
    if (sn < kGrpOneShots) {
        return;
    }
    thread_local std::mt19937 rng(11);
    uint32_t ret = 0;
    if (g_shutdown) {
        ret = KRV_RelTimerofGrpStop(g_grp, sn);
        g_records[id].callsAtStop = g_records[id].calls.load();
        --g_liveGrpPeriodics;
    } else if (rng() % 8 == 0) {
        ret = KRV_RelTimerofGrpStart(g_grp, sn, 10 + rng() % 90, id, 1);
    }
    g_unexpected += ret != 0;
}

void Application(int t, Clock::time_point deadline, Slots &slots, int64_t grpRecord[])
{
    std::mt19937 rng(t + 1);
    while (Clock::now() < deadline) {
        for (int i = 0; i < 8; ++i) {
            int s = static_cast<int>(rng() % 48);
            bool periodicSlot = s >= 40;
            KrvRelTmrPool *pool = periodicSlot ? g_pools[0] : g_pools[rng() % 2];
            uint32_t ms = rng() % 10 == 0 ? 41000 + rng() % 20000 : rng() % 300;  // some on the long lists
            uint64_t sn = t * 16 + rng() % 16;
            switch (rng() % 6) {
                case 0:
                case 1:
                    slots.Start(s, pool, periodicSlot ? 10 + ms % 100 : ms, periodicSlot, Fired, 0);
                    break;
                case 2:
                    slots.Stop(s);
                    break;
                case 3:
                    StartUnstoppable(pool, ms % 300);
                    break;
                default: {
                    if (grpRecord[sn] >= 0) {
                        g_records[grpRecord[sn]].stopRequested = true;
                    }
                    grpRecord[sn] = -1;
                    if (rng() % 2 == 0) {
                        g_unexpected += KRV_RelTimerofGrpStop(g_grp, sn) != 0;
                        break;
                    }
                    uint32_t id = NewRecord(false);
                    uint32_t ret = KRV_RelTimerofGrpStart(g_grp, sn, ms % 300, id, 0);
                    Started(ret, id);
                    grpRecord[sn] = ret == 0 ? id : -1;
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Nodes of a pool and how many of them are periodic ones stopped while waiting for their call:
// those are, by established behaviour, never returned and stay counted as used.
uint32_t Stranded(const KrvRelTmrPool *pool, uint32_t maxTimer, uint32_t *used)
{
    KrvMutex mutex = krv::reltmr::Ctrl()->tmrMutex;
    KRV_OsalMutexLock(mutex);
    uint32_t stranded = 0;
    for (uint32_t i = 0; i <= maxTimer; ++i) {
        const KrvRelTmrNode &node = pool->nodes[i];
        stranded += node.status == KRV_RELTMR_STATUS_STOPPED && (node.mode & 1) != 0;
    }
    *used = pool->usedCount;
    KRV_OsalMutexUnLock(mutex);
    return stranded;
}

TEST(RelTimerStress, EveryTimerIsAccountedForAfterConcurrentChurn)
{
    krvtest::DiagCapture diags;  // keeps refused starts ("no free reltimer") off standard output
    const uint32_t poolSize = 3000;
    ASSERT_EQ(KRV_RelTimerInit(poolSize, &g_pools[0]), 0u);
    ASSERT_EQ(KRV_RelTimerInit(poolSize, &g_pools[1]), 0u);
    ASSERT_EQ(KRV_RelTimerGrpCreate(&g_grp, g_pools[1], kGrpSize, GroupFired), 0u);
    for (uint64_t sn = kGrpOneShots; sn < kGrpSize; ++sn) {
        ++g_liveGrpPeriodics;
        ASSERT_EQ(KRV_RelTimerofGrpStart(g_grp, sn, 10 + sn, NewRecord(true), 1), 0u);
    }
    KrvRelTmrFuncInfo driver = {Driver, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&g_driver, g_pools[0], 10, 1, &driver), 0u);

    static Slots appSlots[2];
    static int64_t grpRecord[kGrpOneShots];
    std::fill(std::begin(grpRecord), std::end(grpRecord), -1);
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(1500);
    std::thread first(Application, 0, deadline, std::ref(appSlots[0]), grpRecord);
    std::thread second(Application, 1, deadline, std::ref(appSlots[1]), grpRecord);
    first.join();
    second.join();

    g_shutdown = true;
    for (Slots &slots : appSlots) {
        for (int s = 0; s < 48; ++s) {
            slots.Stop(s);
        }
    }
    for (uint64_t sn = 0; sn < kGrpOneShots; ++sn) {
        if (grpRecord[sn] >= 0) {
            g_records[grpRecord[sn]].stopRequested = true;
        }
        EXPECT_EQ(KRV_RelTimerofGrpStop(g_grp, sn), 0u);
    }
    uint32_t strandedA = 0;
    uint32_t usedA = 0;
    uint32_t usedB = 0;
    Clock::time_point limit = Clock::now() + std::chrono::seconds(20);
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        strandedA = Stranded(g_pools[0], poolSize, &usedA);
        EXPECT_EQ(Stranded(g_pools[1], poolSize, &usedB), 0u);
    } while ((!g_driverDone || g_liveGrpPeriodics != 0 || usedA != strandedA || usedB != 0) && Clock::now() < limit);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // room for a late call to show up

    EXPECT_TRUE(g_driverDone);
    EXPECT_EQ(g_liveGrpPeriodics, 0);
    EXPECT_EQ(g_unexpected, 0);
    uint32_t records = g_nextRecord;
    EXPECT_GT(records, 10000u);
    for (uint32_t id = 0; id < records; ++id) {
        const Record &r = g_records[id];
        if (r.periodic) {
            ASSERT_LE(r.calls, r.callsAtStop + 1ull) << "periodic record " << id << " ran on after its stop";
        } else {
            ASSERT_LE(r.calls, 1u) << "one-shot record " << id;
            ASSERT_TRUE(r.stopRequested || r.calls == 1) << "one-shot record " << id << " never fired";
        }
    }
    EXPECT_EQ(Stranded(g_pools[1], poolSize, &usedB), 0u);
    EXPECT_EQ(usedB, 0u);
    strandedA = Stranded(g_pools[0], poolSize, &usedA);
    EXPECT_EQ(usedA, strandedA);
    std::printf("records %u, periodic nodes stopped while awaiting their call: %u\n", records, usedA);
    EXPECT_EQ(KRV_RelTimerGrpFree(g_grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(g_pools[1]), 0u);
    EXPECT_EQ(KRV_RelTimerFini(g_pools[0]), usedA == 0 ? 0u : 9u);
}

}  // namespace
