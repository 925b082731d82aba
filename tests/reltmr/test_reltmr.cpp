// The timer module through its exported functions, with the real trigger thread. Anything that
// depends on time polls with generous bounds.
#include <dirent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "krv_reltmr.h"
#include "reltmr/krv_reltmr_internal.h"
#include "support/krv_test_support.h"

namespace {

using Line = std::pair<uint32_t, std::string>;  // (code, message)
using Lines = std::vector<Line>;
const std::string kM = "[MERILUX-";
const std::string kNotInit = kM + "KrvRelTmrIsInitialized]:timer module is not Initialized.";
const Line kPoolInvalid = {22, kM + "KrvRelTmrPoolHandleValidCheck]:timer pool handle is invalid"};
const Line kFiniRefused = {124, kM + "KRV_RelTimerFini]:timer pool handle is not initialized"};

// The diagnostics since the last call; each must be an error-level line of krv_reltmr.
Lines Take(krvtest::DiagCapture &diags)
{
    Lines lines;
    for (const krvtest::Diag &d : diags.Take()) {
        EXPECT_TRUE(d.level == 2 && d.file == "krv_reltmr") << d.msg;
        lines.emplace_back(d.code, d.msg);
    }
    return lines;
}

bool WaitFor(const std::function<bool()> &cond)
{
    for (int i = 0; i < 2500 && !cond(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return cond();
}

size_t ThreadCount()
{
    size_t count = 0;
    DIR *dir = opendir("/proc/self/task");
    while (dirent *entry = readdir(dir)) {
        count += entry->d_name[0] != '.';
    }
    closedir(dir);
    return count;
}

std::atomic<uint64_t> g_last{0};  // arg * 1000 + param of the latest Record call
void Record(uint64_t arg, uint32_t param) { g_last = arg * 1000 + param; }

TEST(RelTimerApi, ModuleLifecycleMessagesAndOneTriggerThread)
{
    krvtest::DiagCapture diags;
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo info = {Record, 0, 0};
    std::vector<uint32_t> codes = {KRV_RelTimerFini(nullptr), KRV_CallBackRelTimerStart(&h, nullptr, 10, 0, &info),
                                   KRV_RelTimerStop(&h), KRV_RelTimerGrpCreate(nullptr, nullptr, 1, Record),
                                   KRV_RelTimerGrpFree(nullptr), KRV_RelTimerofGrpStart(nullptr, 0, 10, 0, 0),
                                   KRV_RelTimerofGrpStop(nullptr, 0)};
    EXPECT_EQ(codes, std::vector<uint32_t>(7, 124u));
    Lines expected = {{124, kNotInit}, kFiniRefused};
    for (const char *f : {"KRV_CallBackRelTimerStart", "KRV_RelTimerStop", "KRV_ReltimerGrpCreate", "KRV_RelTimerGrpFree",
                          "KRV_RelTimerofGrpStart", "KRV_RelTimerofGrpStop"}) {
        expected.insert(expected.end(), {{124, kNotInit}, {124, kM + f + "]:relative timer module has not been initialized!"}});
    }
    EXPECT_EQ(Take(diags), expected);

    // Refused first inits leave no module behind: bad sizes, then each allocation failing in turn.
    const Line resFailed = {1, kM + "KRV_RelTimerInit]:KrvRelTmrResInit failed"};
    const std::string badSize = kM + "KrvRelTmrPoolsInit]:maxTimer ";
    const std::tuple<uint32_t, unsigned, uint32_t, Lines> refusals[] = {  // size, allocation that fails, status, lines
        {0, ~0u, 22, {{22, badSize + "0 is invalid"}}},
        {0x80000000u, ~0u, 22, {{22, badSize + "2147483648 is invalid"}}},
        {59652324, ~0u, 22, {{22, badSize + "59652324 is invalid"}}},
        {2, 0, 1, {{12, kM + "KrvRelTmrResInit]:alloc mem failed"}, resFailed}},
        {2, 1, 1, {{12, kM + "KrvRelTmrResInit]:Res Mutex Create fail"}, resFailed}},
        {2, 2, 1, {{12, kM + "KrvRelTmrResInit]:Grp Mutex Create fail"}, resFailed}},
        {59652323, 3, 12, {{12, kM + "KrvRelTmrPoolsInit]:mem alloc failed,timer num is 59652323."}}},  // largest size
        {2, 4, 12, {{12, kM + "KrvRelTmrPoolsInit]:mem alloc failed."}}},
        {2, 5, 12, {{12, kM + "KrvRelTmrHashInit]:alloc mem:131072 failed"}}},
    };
    KrvRelTmrPool *p1 = nullptr;
    for (auto [maxTimer, failingAlloc, ret, lines] : refusals) {
        krvtest::AllocFailure fail(failingAlloc, 1);
        EXPECT_EQ(KRV_RelTimerInit(maxTimer, &p1), ret) << lines[0].second;
        EXPECT_EQ(KRV_RelTimerFini(nullptr), 124u);
        lines.insert(lines.end(), {{124, kNotInit}, kFiniRefused});
        EXPECT_EQ(Take(diags), lines);
    }
    EXPECT_EQ(p1, nullptr);
}

TEST(RelTimerApi, CallsRacingTheLastFiniSeeTheModuleStopping)
{
    krvtest::DiagCapture diags;
    std::atomic<bool> done{false};
    std::thread racer([&done] {
        for (KrvRelTmrNode *empty = nullptr; !done; std::this_thread::sleep_for(std::chrono::microseconds(50))) {
            KrvRelTmrPool *none = nullptr;
            KRV_RelTimerStop(&empty);
            KRV_RelTimerInit(0, &none);
        }
    });
    const Lines guard = {{22, kM + "KrvRelTmrIsInitialized]:timer module is deinitializing."},
                         {124, kM + "KRV_RelTimerStop]:relative timer module has not been initialized!"}};
    const Line init = {11, kM + "KRV_RelTimerInit]:reltimer module is deinitializing."};
    bool guardSeen = false, initSeen = false;
    // Bounded in time, not rounds: on a loaded machine the racer may need many rounds to hit the window.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!(guardSeen && initSeen) && std::chrono::steady_clock::now() < deadline) {
        KrvRelTmrPool *pool = nullptr;
        EXPECT_EQ(KRV_RelTimerInit(1, &pool), 0u);
        EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
        Lines lines = Take(diags);
        for (size_t i = 0; i + 1 < lines.size(); ++i) {
            guardSeen |= Lines(lines.begin() + i, lines.begin() + i + 2) == guard;
            initSeen |= lines[i] == init;
        }
    }
    done = true;
    racer.join();
    EXPECT_TRUE(guardSeen && initSeen);
}

TEST(RelTimerApi, StartAndStopValidateAndKeepHandlesStraight)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *pool = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(1, &pool), 0u);
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo info = {Record, 1, 2};
    KrvRelTmrFuncInfo noCallback = {nullptr, 1, 2};
    const std::string inval = kM + "KRV_CallBackRelTimerStart]:Inval Param mode ";
    const Line noFunc = {22, kM + "KrvRelTmrFuncInfoValidCheck]:FuncInfo is NULL."};
    EXPECT_EQ(KRV_CallBackRelTimerStart(nullptr, pool, 100000, 257, &info), 22u);  // a periodic needs a handle
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, nullptr, 100000, 0, &info), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 1, nullptr), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 1, &noCallback), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 2, &info), 22u);
    EXPECT_EQ(Take(diags), (Lines{{22, inval + "1"}, kPoolInvalid, {22, inval + "0"}, noFunc, {22, inval + "1"}, noFunc,
                                  {22, inval + "1"}, {22, inval + "2"}}));

    // Mode 256 is a one-shot; a pool of one timer has nothing left for a second start.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 40960, 256, &info), 0u);
    KrvRelTmrNode *other = nullptr;
    EXPECT_EQ(KRV_CallBackRelTimerStart(&other, pool, 10, 0, &info), 12u);
    // Starting over a running handle restarts it on a fresh node; milliseconds truncate to ticks.
    KrvRelTmrNode *first = h;
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 40979, 1, &info), 0u);
    EXPECT_TRUE(h != first && first->status == KRV_RELTMR_STATUS_IDLE && h->interval == 4097 && pool->usedCount == 1);
    KrvRelTmrNode *stale = h;
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);      // empty handle: nothing to do
    EXPECT_EQ(KRV_RelTimerStop(&stale), 22u);  // its node is free; the handle is left alone
    EXPECT_NE(stale, nullptr);
    EXPECT_EQ(KRV_RelTimerStop(nullptr), 22u);
    // Freed nodes join the tail of the free list, so the stale node comes back on the second start;
    // stopping through the stale handle still stops that timer and clears its handle.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    EXPECT_EQ(h, first);
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    ASSERT_EQ(h, stale);
    EXPECT_EQ(KRV_RelTimerStop(&stale), 0u);
    EXPECT_TRUE(h == nullptr && stale == nullptr && pool->usedCount == 0);
    const Line paramInvalid = {22, kM + "KRV_RelTimerStop]:param invalid"};
    EXPECT_EQ(Take(diags), (Lines{{12, kM + "KrvStartRelTimer]:no free reltimer"},
                                  {12, kM + "KRV_CallBackRelTimerStart]:KrvStartRelTimer failed, ret is 12"},
                                  {22, kM + "KrvRelTmrStop]:status wrong,90,4097"}, paramInvalid, paramInvalid}));

    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
}

KrvRelTmrNode *g_self = nullptr;
std::atomic<int> g_selfCalls{0};
std::atomic<uint32_t> g_selfStop{99};
std::atomic<bool> g_selfSawHandle{false};
// A one-shot (arg 0) finds its handle already empty; a periodic one stops itself on its third call.
void StopsItself(uint64_t periodic, uint32_t)
{
    g_selfSawHandle = g_self != nullptr;
    if (++g_selfCalls == (periodic != 0 ? 3 : 1)) {
        g_selfStop = KRV_RelTimerStop(&g_self);
    }
}

KrvRelTmrNode *g_victims[2];  // a one-shot and a periodic timer due in the same tick as their stopper
KrvRelTmrNode *g_periodicVictim = nullptr;
std::atomic<int> g_victimCalls{0};
std::atomic<uint32_t> g_victimStops{99};
void Victim(uint64_t, uint32_t) { ++g_victimCalls; }
void StopVictims(uint64_t, uint32_t) { g_victimStops = KRV_RelTimerStop(&g_victims[0]) + KRV_RelTimerStop(&g_victims[1]); }
// Runs on the trigger thread, so the stopper and its victims share one due tick, the stopper first.
void StartStopperAndVictims(uint64_t pool, uint32_t)
{
    KrvRelTmrFuncInfo stopper = {StopVictims, 0, 0};
    KrvRelTmrFuncInfo victim = {Victim, 0, 0};
    KRV_CallBackRelTimerStart(nullptr, reinterpret_cast<KrvRelTmrPool *>(pool), 30, 0, &stopper);
    for (uint32_t mode : {0u, 1u}) {
        KRV_CallBackRelTimerStart(&g_victims[mode], reinterpret_cast<KrvRelTmrPool *>(pool), 30, mode, &victim);
    }
    g_periodicVictim = g_victims[1];
}

std::atomic<bool> g_inSlowCallback{false};
void SlowCallback(uint64_t, uint32_t)
{
    g_inSlowCallback = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(400));  // far longer than the ten naps
    g_inSlowCallback = false;
}

TEST(RelTimerApi, CallbacksRunAndFiniWaitsBrieflyForThem)
{
    krvtest::DiagCapture diags;
    size_t baseThreads = ThreadCount();
    KrvRelTmrPool *busy = nullptr;
    KrvRelTmrPool *idle = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(4, &busy), 0u);
    EXPECT_EQ(KRV_RelTimerInit(4, &idle), 0u);  // later inits log the passing check, as established
    EXPECT_EQ(KRV_RelTimerInit(4, &busy), 8193u);
    EXPECT_EQ(KRV_RelTimerFini(nullptr), 124u);
    EXPECT_EQ(ThreadCount(), baseThreads + 1);
    KrvRelTmrFuncInfo info = {Record, 123456, 789};
    ASSERT_EQ(KRV_CallBackRelTimerStart(nullptr, busy, 9, 0, &info), 0u);  // fire-and-forget one-shot
    EXPECT_TRUE(WaitFor([&] { return g_last == 123456789 && busy->usedCount == 0; }));
    for (uint32_t periodic : {0u, 1u}) {
        KrvRelTmrFuncInfo self = {StopsItself, periodic, 0};
        g_selfCalls = 0;
        ASSERT_EQ(KRV_CallBackRelTimerStart(&g_self, busy, 25, periodic, &self), 0u);
        EXPECT_TRUE(WaitFor([&] { return busy->usedCount == 0; }));
        EXPECT_TRUE(g_selfCalls == (periodic != 0 ? 3 : 1) && g_selfSawHandle == (periodic != 0) && g_selfStop == 0);
        EXPECT_EQ(g_self, nullptr);
    }
    // Timers stopped after the trigger thread collected them, before their call, are not called; the
    // periodic one is, as established, neither re-armed nor returned and stays counted as used.
    KrvRelTmrFuncInfo starter = {StartStopperAndVictims, reinterpret_cast<uint64_t>(busy), 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(nullptr, busy, 10, 0, &starter), 0u);
    ASSERT_TRUE(WaitFor([&] { return g_victimStops == 0 && busy->usedCount == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // a re-armed victim would be called by now
    EXPECT_TRUE(g_victimCalls == 0 && busy->usedCount == 1 && g_periodicVictim->status == KRV_RELTMR_STATUS_STOPPED);
    KRV_OsalMutexLock(krv::reltmr::Ctrl()->tmrMutex);
    krv::reltmr::KrvRelTmrFree(g_periodicVictim);  // hand the node back so the pool can go
    KRV_OsalMutexUnLock(krv::reltmr::Ctrl()->tmrMutex);

    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo slow = {SlowCallback, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, busy, 10, 0, &slow), 0u);
    KrvRelTmrGrpInfo *grp = nullptr;
    ASSERT_EQ(KRV_RelTimerGrpCreate(&grp, busy, 3, Record), 0u);
    ASSERT_TRUE(WaitFor([] { return g_inSlowCallback.load(); }));
    EXPECT_EQ(KRV_RelTimerFini(busy), 9u);
    EXPECT_EQ(KRV_RelTimerFini(idle), 0u);  // gives up waiting for the callback after ten naps
    EXPECT_TRUE(g_inSlowCallback);
    const Line retry = {11, kM + "KrvRelTmrWaitForCallBackFuncEnded]:the max retry times has reached."};
    EXPECT_EQ(Take(diags), (Lines{kPoolInvalid, {8193, kM + "KRV_RelTimerInit]:the timer pool handle is used."},
                                  kPoolInvalid, kFiniRefused, retry,
                                  {9, kM + "KRV_RelTimerFini]:some timers or timer grp has not been stopped, timer num is 1, "
                                           "grp num is 1."},
                                  retry}));
    ASSERT_TRUE(WaitFor([&] { return busy->usedCount == 0; }));
    EXPECT_EQ(KRV_RelTimerFini(busy), 9u);
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(busy), 0u);
    EXPECT_EQ(ThreadCount(), baseThreads);
}

TEST(RelTimerApi, GroupsValidateStartStopAndFree)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *pool = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(2, &pool), 0u);
    KrvRelTmrGrpInfo *grp = nullptr;
    KrvRelTmrPool bogus{};
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 0, Record), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 2, nullptr), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(nullptr, pool, 2, Record), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, &bogus, 2, Record), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 0x1FFFFFFFFFFFFFFAull, Record), 12u);  // refused as a failed allocation
    ASSERT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 3, Record), 0u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 3, 10, 0, 0), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 0, 10, 0, 258), 22u);
    grp->pool = &bogus;
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 1, 10, 0, 0), 22u);
    grp->pool = pool;
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 1), 0u);  // never started
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 5), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStop(nullptr, 0), 22u);
    EXPECT_EQ(KRV_RelTimerGrpFree(nullptr), 22u);
    const std::string bad = kM + "KRV_ReltimerGrpCreate]:Param invalid maxTimer(";
    const std::string grpStart = kM + "KRV_RelTimerofGrpStart]:Param invalid, mode is ";
    const std::string grpInvalid = kM + "KrvRelTmrGrpInfoValidCheck]:grpInfo invalid, tmrSn is ";
    EXPECT_EQ(Take(diags), (Lines{{22, bad + "0)."}, {22, bad + "2)."}, {22, bad + "2)."}, kPoolInvalid, {22, bad + "2)."},
                                  {22, kM + "KrvRelTmrGrpAlloc]:Param invalid(4294967290)"},
                                  {12, kM + "KRV_ReltimerGrpCreate]:Malloc fail"}, {22, grpInvalid + "3."},
                                  {22, grpStart + "0, tmrSn is 3"}, {22, grpStart + "2, tmrSn is 0"}, kPoolInvalid,
                                  {22, grpInvalid + "1."}, {22, grpStart + "0, tmrSn is 1"},
                                  {22, kM + "KRV_RelTimerofGrpStop]:Param invalid(5,3,4862)"},
                                  {22, kM + "KRV_RelTimerofGrpStop]:Param invalid."},
                                  {22, kM + "KRV_RelTimerGrpFree]:timerGrp is null, or (KrvRelTmrGrpInfo *)timerGrp->initFlag "
                                           "!= KRV_RELTMR_INIT_FLAG."}}));

    // A group timer's callback gets its serial number and the start's param.
    ASSERT_EQ(KRV_RelTimerofGrpStart(grp, 2, 10, 55, 1), 0u);
    EXPECT_TRUE(WaitFor([] { return g_last == 2055; }));
    ASSERT_EQ(KRV_RelTimerofGrpStart(grp, 0, 100000, 0, 0), 0u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 1, 100000, 0, 0), 12u);  // the pool of two is used up
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 2), 0u);
    EXPECT_EQ(grp->handles[2], nullptr);
    // A free that fails on one serial number keeps the group; the earlier ones are stopped by then.
    grp->handles[1] = &pool->nodes[2];
    pool->nodes[2].interval = 3;
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 22u);
    EXPECT_TRUE(grp->handles[0] == nullptr && grp->initFlag == KRV_RELTMR_INIT_FLAG);
    EXPECT_EQ(Take(diags), (Lines{{12, kM + "KrvStartRelTimer]:no free reltimer"},
                                  {12, kM + "KRV_RelTimerofGrpStart]:KrvStartRelTimer failed, ret is 12"},
                                  {22, kM + "KrvRelTmrStop]:status wrong,90,3"}}));
    grp->handles[1] = nullptr;
    ASSERT_TRUE(WaitFor([&] { return pool->usedCount == 0; }));  // a periodic call may still be finishing
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
}

}  // namespace
