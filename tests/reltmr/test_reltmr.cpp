// The timer module through its exported functions, with the real trigger thread. Anything that
// depends on time polls with generous bounds.
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

Lines Take(krvtest::DiagCapture &diags) { return diags.Errors("krv_reltmr"); }

// The pool's used count, read under the timer mutex like every other access to it (the trigger
// thread returns nodes concurrently).
uint32_t UsedCount(const KrvRelTmrPool *pool)
{
    krv::reltmr::TmrLock(krv::reltmr::Ctrl());
    uint32_t used = pool->usedCount;
    krv::reltmr::TmrUnlock(krv::reltmr::Ctrl());
    return used;
}

// arg * 1000 + param of the latest Record call. Reset before each wait: a value left by an earlier
// run would end the wait before the callback has run, and with it what the callback publishes.
std::atomic<uint64_t> g_last{0};
void Record(uint64_t arg, uint32_t param) { g_last = arg * 1000 + param; }

TEST(RelTimerApi, WithoutAModuleEveryCallIsRefusedAndFailedInitsLeaveNone)
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

    // Bad sizes, then allocations failing in turn; each failure must undo what the init had built.
    const Line resFailed = {1, kM + "KRV_RelTimerInit]:KrvRelTmrResInit failed"};
    const std::tuple<uint32_t, unsigned, uint32_t, Lines> refusals[] = {  // size, allocation that fails, status, lines
        {0, ~0u, 22, {{22, kM + "KrvRelTmrPoolsInit]:maxTimer 0 is invalid"}}},
        {2, 0, 1, {{12, kM + "KrvRelTmrResInit]:alloc mem failed"}, resFailed}},
        {59652323, 3, 12, {{12, kM + "KrvRelTmrPoolsInit]:mem alloc failed,timer num is 59652323."}}},  // largest size
    };
    KrvRelTmrPool *pool = nullptr;
    for (auto [maxTimer, failingAlloc, ret, lines] : refusals) {
        krvtest::AllocFailure fail(failingAlloc, 1);
        EXPECT_EQ(KRV_RelTimerInit(maxTimer, &pool), ret) << lines[0].second;
        EXPECT_EQ(KRV_RelTimerFini(nullptr), 124u);
        lines.insert(lines.end(), {{124, kNotInit}, kFiniRefused});
        EXPECT_EQ(Take(diags), lines);
    }
    EXPECT_EQ(pool, nullptr);
}

TEST(RelTimerApi, CallsRacingTheLastFiniSeeTheModuleStopping)
{
    krvtest::DiagCapture diags;
    std::atomic<bool> done{false};
    std::thread racer([&done] {
        for (KrvRelTmrNode *empty = nullptr; !done; std::this_thread::sleep_for(std::chrono::microseconds(50))) {
            KRV_RelTimerStop(&empty);
        }
    });
    const Line guard = {22, kM + "KrvRelTmrIsInitialized]:timer module is deinitializing."};
    bool seen = false;
    // Bounded in time, not rounds: on a loaded machine the racer may need many rounds to hit the window.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!seen && std::chrono::steady_clock::now() < deadline) {
        KrvRelTmrPool *pool = nullptr;
        EXPECT_EQ(KRV_RelTimerInit(1, &pool), 0u);
        EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
        for (const Line &line : Take(diags)) {
            seen |= line == guard;
        }
    }
    done = true;
    racer.join();
    EXPECT_TRUE(seen);
}

TEST(RelTimerApi, StartsStopsAndGroupsValidateAndKeepHandlesStraight)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *pool = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(1, &pool), 0u);
    KrvRelTmrGrpInfo *grp = nullptr;
    ASSERT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 3, Record), 0u);
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo info = {Record, 1, 2};
    EXPECT_EQ(KRV_CallBackRelTimerStart(nullptr, pool, 100000, 257, &info), 22u);  // a periodic needs a handle
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, nullptr, 100000, 0, &info), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 2, &info), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 1, nullptr), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 0, Record), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 3, 10, 0, 0), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 5), 22u);
    EXPECT_EQ(KRV_RelTimerGrpFree(nullptr), 22u);
    const std::string inval = kM + "KRV_CallBackRelTimerStart]:Inval Param mode ";
    EXPECT_EQ(Take(diags), (Lines{{22, inval + "1"}, kPoolInvalid, {22, inval + "0"}, {22, inval + "2"},
                                  {22, kM + "KrvRelTmrFuncInfoValidCheck]:FuncInfo is NULL."}, {22, inval + "1"},
                                  {22, kM + "KRV_ReltimerGrpCreate]:Param invalid maxTimer(0)."},
                                  {22, kM + "KrvRelTmrGrpInfoValidCheck]:grpInfo invalid, tmrSn is 3."},
                                  {22, kM + "KRV_RelTimerofGrpStart]:Param invalid, mode is 0, tmrSn is 3"},
                                  {22, kM + "KRV_RelTimerofGrpStop]:Param invalid(5,3,4862)"},
                                  {22, kM + "KRV_RelTimerGrpFree]:timerGrp is null, or (KrvRelTmrGrpInfo *)timerGrp->initFlag "
                                           "!= KRV_RELTMR_INIT_FLAG."}}));

    // A pool of one timer has nothing left for a second start; milliseconds truncate to ticks.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 40979, 1, &info), 0u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 1, 10, 0, 0), 12u);
    KrvRelTmrNode *stale = h;
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);       // the stop cleared the handle: nothing to do
    EXPECT_EQ(KRV_RelTimerStop(&stale), 22u);  // its node is free again
    EXPECT_EQ(KRV_RelTimerStop(nullptr), 22u);
    EXPECT_EQ(Take(diags), (Lines{{12, kM + "KrvStartRelTimer]:no free reltimer"},
                                  {12, kM + "KRV_RelTimerofGrpStart]:KrvStartRelTimer failed, ret is 12"},
                                  {22, kM + "KrvRelTmrStop]:status wrong,90,4097"},
                                  {22, kM + "KRV_RelTimerStop]:param invalid"}}));
    // Freed nodes rejoin at the tail, so the stale node serves again within two starts; stopping
    // through the stale handle then stops that timer, clears its handle and says so.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    if (h != stale) {
        ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    }
    ASSERT_EQ(h, stale);
    EXPECT_EQ(KRV_RelTimerStop(&stale), 0u);
    EXPECT_TRUE(h == nullptr && stale == nullptr && UsedCount(pool) == 0);
    EXPECT_EQ(Take(diags), (Lines{{22, kM + "KRV_RelTimerStop]:param invalid"}}));

    // A group timer's callback gets its serial number and the start's param; the free stops the rest.
    g_last = 0;
    ASSERT_EQ(KRV_RelTimerofGrpStart(grp, 2, 10, 55, 0), 0u);
    EXPECT_TRUE(krvtest::WaitFor([&] { return g_last == 2055 && UsedCount(pool) == 0; }));
    ASSERT_EQ(KRV_RelTimerofGrpStart(grp, 0, 100000, 0, 0), 0u);
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);  // every timer went back to the pool
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
    // The module adds exactly one thread, its trigger thread, and the last fini joins it.
    const size_t baseThreads = krvtest::SettledThreadCount();
    KrvRelTmrPool *busy = nullptr;
    KrvRelTmrPool *idle = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(4, &busy), 0u);
    EXPECT_EQ(KRV_RelTimerInit(4, &idle), 0u);  // later inits log the passing check, as established
    EXPECT_EQ(KRV_RelTimerInit(4, &busy), 8193u);
    EXPECT_TRUE(krvtest::WaitFor([&] { return krvtest::ThreadCount() == baseThreads + 1; }));
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo info = {Record, 123456, 789};
    g_last = 0;
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, busy, 9, 0, &info), 0u);
    // The callback gets the start's argument and param; a fired one-shot clears its handle.
    EXPECT_TRUE(krvtest::WaitFor([&] { return g_last == 123456789 && h == nullptr; }));
    KrvRelTmrFuncInfo slow = {SlowCallback, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, busy, 10, 0, &slow), 0u);
    KrvRelTmrGrpInfo *grp = nullptr;
    ASSERT_EQ(KRV_RelTimerGrpCreate(&grp, busy, 3, Record), 0u);
    ASSERT_TRUE(krvtest::WaitFor([] { return g_inSlowCallback.load(); }));
    EXPECT_EQ(KRV_RelTimerFini(busy), KRV_ERR_BUSY);
    EXPECT_EQ(KRV_RelTimerFini(idle), 0u);  // gives up waiting for the callback after ten naps
    const Line retry = {11, kM + "KrvRelTmrWaitForCallBackFuncEnded]:the max retry times has reached."};
    EXPECT_EQ(Take(diags), (Lines{kPoolInvalid, {8193, kM + "KRV_RelTimerInit]:the timer pool handle is used."},
                                  retry, {9, kM + "KRV_RelTimerFini]:some timers or timer grp "
                                                  "has not been stopped, timer num is 1, grp num is 1."},
                                  retry}));
    ASSERT_TRUE(krvtest::WaitFor([&] { return UsedCount(busy) == 0; }));
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(busy), 0u);
    EXPECT_TRUE(krvtest::WaitFor([&] { return krvtest::ThreadCount() == baseThreads; }));
}

// The trigger thread ends every pass with its 10 ms nap, the last pass too, and the last fini joins
// it: however the fini meets the thread, it cannot return sooner than one nap after it began.
TEST(RelTimerApi, TheLastFiniReturnsOnlyAfterTheFinalPassAndItsNap)
{
    using Clock = std::chrono::steady_clock;
    for (int round = 0; round < 6; ++round) {
        KrvRelTmrPool *pool = nullptr;
        ASSERT_EQ(KRV_RelTimerInit(1, &pool), 0u);
        std::this_thread::sleep_for(std::chrono::milliseconds(15 + 3 * round));  // a different point of a pass
        const auto start = Clock::now();
        EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(10)) << "round " << round;
    }
}

// A callback that adds and drops pools while another thread finalises one: its calls do not wait for
// that fini, so the fini does not give up waiting for the callback.
std::atomic<bool> g_finiUnderway{false};
std::atomic<int> g_callbackStage{0};  // 1 inside, 2 done
uint32_t g_addResult = 0;
uint32_t g_dropResult = 0;
bool g_addedDuringFini = false;
void AddPoolDuringFini(uint64_t addedPool, uint32_t)
{
    auto *added = reinterpret_cast<KrvRelTmrPool **>(addedPool);
    g_callbackStage = 1;
    for (int i = 0; i < 5000 && !g_finiUnderway; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));  // the fini is waiting for this callback by now
    g_addResult = KRV_RelTimerInit(2, added);
    g_addedDuringFini = g_finiUnderway;
    g_callbackStage = 2;
}
void DropPool(uint64_t addedPool, uint32_t)
{
    g_dropResult = KRV_RelTimerFini(*reinterpret_cast<KrvRelTmrPool **>(addedPool));
    g_callbackStage = 2;
}

TEST(RelTimerApi, CallbacksAddAndDropPoolsWithoutWaitingForAnotherThreadsFini)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *keep = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(1, &keep), 0u);
    KrvRelTmrPool *added = nullptr;
    KrvRelTmrFuncInfo add = {AddPoolDuringFini, reinterpret_cast<uintptr_t>(&added), 0};
    // A thread stalled for the whole of the fini's ten naps would look the same as a wait; such a
    // stall gets another round.
    bool clean = false;
    for (int round = 0; round < 3 && !clean; ++round) {
        KrvRelTmrPool *spare = nullptr;
        ASSERT_EQ(KRV_RelTimerInit(1, &spare), 0u);
        EXPECT_EQ(Take(diags), Lines{kPoolInvalid});  // every later init logs its passing check
        g_callbackStage = 0;
        g_finiUnderway = false;
        ASSERT_EQ(KRV_CallBackRelTimerStart(nullptr, keep, 10, 0, &add), 0u);
        ASSERT_TRUE(krvtest::WaitFor([] { return g_callbackStage == 1; }));
        g_finiUnderway = true;
        EXPECT_EQ(KRV_RelTimerFini(spare), 0u);
        g_finiUnderway = false;
        ASSERT_TRUE(krvtest::WaitFor([] { return g_callbackStage == 2; }));
        EXPECT_EQ(g_addResult, 0u);
        clean = g_addedDuringFini && Take(diags) == Lines{kPoolInvalid};
        EXPECT_EQ(KRV_RelTimerFini(added), 0u);
        added = nullptr;
    }
    EXPECT_TRUE(clean) << "the callback's init waited for the other thread's fini";

    // Dropping a pool from a callback: the fini's own wait for the running callback still runs out.
    ASSERT_EQ(KRV_RelTimerInit(2, &added), 0u);
    Take(diags);
    g_callbackStage = 0;
    KrvRelTmrFuncInfo drop = {DropPool, reinterpret_cast<uintptr_t>(&added), 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(nullptr, keep, 10, 0, &drop), 0u);
    ASSERT_TRUE(krvtest::WaitFor([] { return g_callbackStage == 2; }));
    EXPECT_EQ(g_dropResult, 0u);
    EXPECT_EQ(Take(diags), (Lines{{11, kM + "KrvRelTmrWaitForCallBackFuncEnded]:the max retry times has reached."}}));
    ASSERT_TRUE(krvtest::WaitFor([&] { return UsedCount(keep) == 0; }));
    EXPECT_EQ(KRV_RelTimerFini(keep), 0u);
}

}  // namespace
