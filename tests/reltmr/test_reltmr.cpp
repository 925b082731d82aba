// The timer module through its exported functions, with the real trigger thread. Anything that
// depends on time polls with generous bounds.
#include <dirent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "krv_reltmr.h"
#include "support/krv_test_support.h"

namespace {

using Msgs = std::vector<std::string>;
const std::string kNotInit = "[MERILUX-KrvRelTmrIsInitialized]:timer module is not Initialized.";
const std::string kPoolInvalid = "[MERILUX-KrvRelTmrPoolHandleValidCheck]:timer pool handle is invalid";

bool WaitFor(const std::function<bool()> &cond)
{
    for (int i = 0; i < 2500; ++i) {
        if (cond()) {
            return true;
        }
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

std::atomic<int> g_calls{0};
std::atomic<uint64_t> g_lastArg{0};
std::atomic<uint32_t> g_lastParam{0};
void Count(uint64_t arg, uint32_t param)
{
    g_lastArg = arg;
    g_lastParam = param;
    ++g_calls;
}

TEST(RelTimerApi, ModuleLifecycleMessagesAndOneTriggerThread)
{
    krvtest::DiagCapture diags;
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo info = {Count, 0, 0};
    std::vector<uint32_t> codes = {KRV_RelTimerFini(nullptr), KRV_CallBackRelTimerStart(&h, nullptr, 10, 0, &info),
                        KRV_RelTimerStop(&h), KRV_RelTimerGrpCreate(nullptr, nullptr, 1, Count),
                        KRV_RelTimerGrpFree(nullptr), KRV_RelTimerofGrpStart(nullptr, 0, 10, 0, 0),
                        KRV_RelTimerofGrpStop(nullptr, 0)};
    EXPECT_EQ(codes, std::vector<uint32_t>(7, 124u));
    Msgs expected = {kNotInit, "[MERILUX-KRV_RelTimerFini]:timer pool handle is not initialized"};
    for (const char *f : {"KRV_CallBackRelTimerStart", "KRV_RelTimerStop", "KRV_ReltimerGrpCreate", "KRV_RelTimerGrpFree",
                          "KRV_RelTimerofGrpStart", "KRV_RelTimerofGrpStop"}) {
        expected.insert(expected.end(), {kNotInit, std::string("[MERILUX-") + f + "]:relative timer module has not been initialized!"});
    }
    EXPECT_EQ(diags.Messages(), expected);

    KrvRelTmrPool *p1 = nullptr;
    for (uint32_t bad : {0u, 0x80000000u, 59652324u}) {
        EXPECT_EQ(KRV_RelTimerInit(bad, &p1), 22u);
        EXPECT_EQ(diags.Messages(), Msgs{"[MERILUX-KrvRelTmrPoolsInit]:maxTimer " + std::to_string(bad) + " is invalid"});
    }
    // Every allocation of a first init can fail; each failure leaves no module behind.
    const Msgs failures[] = {
        {"[MERILUX-KrvRelTmrResInit]:alloc mem failed", "[MERILUX-KRV_RelTimerInit]:KrvRelTmrResInit failed"},
        {"[MERILUX-KrvRelTmrResInit]:Res Mutex Create fail", "[MERILUX-KRV_RelTimerInit]:KrvRelTmrResInit failed"},
        {"[MERILUX-KrvRelTmrResInit]:Grp Mutex Create fail", "[MERILUX-KRV_RelTimerInit]:KrvRelTmrResInit failed"},
        {"[MERILUX-KrvRelTmrPoolsInit]:mem alloc failed,timer num is 59652323."},
        {"[MERILUX-KrvRelTmrPoolsInit]:mem alloc failed."},
        {"[MERILUX-KrvRelTmrHashInit]:alloc mem:131072 failed"},
    };
    for (unsigned skip = 0; skip < 6; ++skip) {
        uint32_t ret;
        {
            krvtest::AllocFailure fail(skip, 1);
            ret = KRV_RelTimerInit(skip == 3 ? 59652323u : 2u, &p1);  // the largest accepted size
        }
        EXPECT_EQ(ret, skip < 3 ? 1u : 12u) << skip;
        EXPECT_EQ(diags.Messages(), failures[skip]);
        EXPECT_EQ(KRV_RelTimerFini(nullptr), 124u);
        EXPECT_EQ(diags.Messages().front(), kNotInit);
    }
    EXPECT_EQ(p1, nullptr);

    size_t baseThreads = ThreadCount();
    for (int round = 0; round < 2; ++round) {  // the module can be created again after its teardown
        KrvRelTmrPool *p2 = nullptr;
        ASSERT_EQ(KRV_RelTimerInit(4, &p1), 0u);
        EXPECT_EQ(diags.Messages(), Msgs{});
        EXPECT_EQ(KRV_RelTimerInit(4, &p2), 0u);  // later inits log the passing check, as established
        std::vector<krvtest::Diag> got = diags.Take();
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(got[0].msg, kPoolInvalid);
        EXPECT_EQ(got[0].code, 22u);
        EXPECT_EQ(KRV_RelTimerInit(4, &p1), 8193u);
        EXPECT_EQ(diags.Messages(), Msgs{"[MERILUX-KRV_RelTimerInit]:the timer pool handle is used."});
        EXPECT_EQ(ThreadCount(), baseThreads + 1);
        EXPECT_EQ(KRV_RelTimerFini(nullptr), 124u);
        EXPECT_EQ(diags.Messages(), (Msgs{kPoolInvalid, "[MERILUX-KRV_RelTimerFini]:timer pool handle is not initialized"}));
        EXPECT_EQ(KRV_RelTimerFini(p2), 0u);
        EXPECT_EQ(KRV_RelTimerFini(p1), 0u);
        EXPECT_EQ(ThreadCount(), baseThreads);
        EXPECT_EQ(diags.Messages(), Msgs{});
        p1 = nullptr;
    }
}

TEST(RelTimerApi, StartAndStopValidateAndKeepHandlesStraight)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *pool = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(1, &pool), 0u);
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrNode *h2 = nullptr;
    KrvRelTmrFuncInfo info = {Count, 1, 2};
    KrvRelTmrFuncInfo noCallback = {nullptr, 1, 2};
    const std::string inval = "[MERILUX-KRV_CallBackRelTimerStart]:Inval Param mode ";
    EXPECT_EQ(KRV_CallBackRelTimerStart(nullptr, pool, 100000, 257, &info), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, nullptr, 100000, 0, &info), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 1, &noCallback), 22u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 2, &info), 22u);
    const std::string noFunc = "[MERILUX-KrvRelTmrFuncInfoValidCheck]:FuncInfo is NULL.";
    EXPECT_EQ(diags.Messages(), (Msgs{inval + "1", kPoolInvalid, inval + "0", noFunc, inval + "1", inval + "2"}));

    // Mode 256 is a one-shot; a pool of one timer has nothing left for a second start.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 40960, 256, &info), 0u);
    EXPECT_EQ(h->mode, 0u);
    EXPECT_EQ(h->listKind, 0u);
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h2, pool, 10, 0, &info), 12u);
    EXPECT_EQ(diags.Messages(), (Msgs{"[MERILUX-KrvStartRelTimer]:no free reltimer",
                                      "[MERILUX-KRV_CallBackRelTimerStart]:KrvStartRelTimer failed, ret is 12"}));
    // Starting over a running handle restarts it on a fresh node.
    KrvRelTmrNode *first = h;
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 40979, 1, &info), 0u);  // milliseconds truncate to ticks
    EXPECT_NE(h, first);
    EXPECT_EQ(first->status, KRV_RELTMR_STATUS_IDLE);
    EXPECT_EQ(h->listKind, 1u);
    EXPECT_EQ(h->interval, 4097u);
    EXPECT_EQ(pool->usedCount, 1u);

    KrvRelTmrNode *stale = h;
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);  // empty handle: nothing to do
    EXPECT_EQ(KRV_RelTimerStop(&stale), 22u);
    EXPECT_NE(stale, nullptr);  // a failed stop leaves the handle alone
    EXPECT_EQ(KRV_RelTimerStop(nullptr), 22u);
    EXPECT_EQ(diags.Messages(), (Msgs{"[MERILUX-KrvRelTmrStop]:status wrong,90,4097", "[MERILUX-KRV_RelTimerStop]:param invalid"}));
    // Freed nodes join the tail of the free list, so the stale node comes back on the second start;
    // stopping through the stale handle still stops that timer and clears its handle.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    EXPECT_EQ(h, first);
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    ASSERT_EQ(h, stale);
    EXPECT_EQ(KRV_RelTimerStop(&stale), 0u);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(stale, nullptr);
    EXPECT_EQ(diags.Messages(), Msgs{"[MERILUX-KRV_RelTimerStop]:param invalid"});
    EXPECT_EQ(pool->usedCount, 0u);

    // A handle whose own node cannot be stopped refuses the restart and stays as it was.
    KrvRelTmrNode *idle = pool->freeHead;
    idle->handleSlot = &h;
    idle->interval = 7;
    h = idle;
    EXPECT_EQ(KRV_CallBackRelTimerStart(&h, pool, 10, 0, &info), 22u);
    EXPECT_EQ(h, idle);
    std::vector<krvtest::Diag> got = diags.Take();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].msg, "[MERILUX-KrvRelTmrStop]:status wrong,90,7");
    EXPECT_EQ(got[1].msg, "[MERILUX-KrvStartRelTimer]:stop fail");
    EXPECT_EQ(got[2].msg, "[MERILUX-KRV_CallBackRelTimerStart]:KrvStartRelTimer failed, ret is 22");
    EXPECT_EQ(got[1].code, 22u);
    EXPECT_EQ(got[2].code, 22u);
    idle->handleSlot = nullptr;
    h = nullptr;
    // A pool whose count went wrong is told so and keeps its free list as it is.
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, pool, 100000, 0, &info), 0u);
    KrvRelTmrNode *tail = pool->freeTail;
    pool->usedCount = 0;
    EXPECT_EQ(KRV_RelTimerStop(&h), 0u);
    EXPECT_EQ(pool->freeTail, tail);
    got = diags.Take();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].msg, "[MERILUX-KrvRelTmrFree]:timer used num is zero.");
    EXPECT_EQ(got[0].code, 22u);
    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
}

std::atomic<KrvRelTmrNode *> g_seenHandle{nullptr};
std::atomic<uint32_t> g_stopInCallback{99};
KrvRelTmrNode *g_selfHandle = nullptr;
std::atomic<int> g_selfCalls{0};
void OneShotLooksAtItsHandle(uint64_t, uint32_t)
{
    g_seenHandle = g_selfHandle;
    g_stopInCallback = KRV_RelTimerStop(&g_selfHandle);
    ++g_calls;
}
void PeriodicStopsItselfOnThird(uint64_t, uint32_t)
{
    if (++g_selfCalls == 3) {
        g_stopInCallback = KRV_RelTimerStop(&g_selfHandle);
    }
}

TEST(RelTimerApi, CallbacksFireAsStartedAndStop)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *pool = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(8, &pool), 0u);
    KrvRelTmrFuncInfo info = {Count, 0x1234567890ull, 77};
    g_calls = 0;
    ASSERT_EQ(KRV_CallBackRelTimerStart(nullptr, pool, 9, 0, &info), 0u);  // fire-and-forget one-shot
    EXPECT_TRUE(WaitFor([&] { return g_calls == 1 && pool->usedCount == 0; }));
    EXPECT_EQ(g_lastArg, 0x1234567890ull);
    EXPECT_EQ(g_lastParam, 77u);

    g_seenHandle = reinterpret_cast<KrvRelTmrNode *>(1);
    KrvRelTmrFuncInfo look = {OneShotLooksAtItsHandle, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&g_selfHandle, pool, 25, 0, &look), 0u);
    EXPECT_TRUE(WaitFor([&] { return g_calls == 2 && pool->usedCount == 0; }));
    EXPECT_EQ(g_seenHandle, nullptr);  // cleared before the call
    EXPECT_EQ(g_stopInCallback, 0u);

    KrvRelTmrFuncInfo self = {PeriodicStopsItselfOnThird, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&g_selfHandle, pool, 10, 1, &self), 0u);
    EXPECT_TRUE(WaitFor([&] { return pool->usedCount == 0; }));
    EXPECT_EQ(g_selfCalls, 3);
    EXPECT_EQ(g_selfHandle, nullptr);

    EXPECT_EQ(diags.Messages(), Msgs{});
    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
}

std::atomic<bool> g_inSlowCallback{false};
void SlowCallback(uint64_t, uint32_t)
{
    g_inSlowCallback = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(400));  // far longer than the ten naps
    g_inSlowCallback = false;
}

TEST(RelTimerApi, FiniRefusesBusyPoolsAndWaitsBrieflyForCallbacks)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *busy = nullptr;
    KrvRelTmrPool *idle = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(2, &busy), 0u);
    ASSERT_EQ(KRV_RelTimerInit(2, &idle), 0u);
    diags.Take();
    KrvRelTmrNode *h = nullptr;
    KrvRelTmrFuncInfo slow = {SlowCallback, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(&h, busy, 10, 0, &slow), 0u);
    KrvRelTmrGrpInfo *grp = nullptr;
    ASSERT_EQ(KRV_RelTimerGrpCreate(&grp, busy, 3, Count), 0u);
    ASSERT_TRUE(WaitFor([] { return g_inSlowCallback.load(); }));
    EXPECT_EQ(KRV_RelTimerFini(busy), 9u);
    EXPECT_EQ(KRV_RelTimerFini(idle), 0u);  // gives up waiting for the callback after ten naps
    EXPECT_TRUE(g_inSlowCallback);
    const std::string retry = "[MERILUX-KrvRelTmrWaitForCallBackFuncEnded]:the max retry times has reached.";
    std::vector<krvtest::Diag> got = diags.Take();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].msg, retry);
    EXPECT_EQ(got[0].code, 11u);
    EXPECT_EQ(got[1].msg,
              "[MERILUX-KRV_RelTimerFini]:some timers or timer grp has not been stopped, timer num is 1, grp num is 1.");
    EXPECT_EQ(got[1].code, 9u);
    EXPECT_EQ(got[2].msg, retry);
    ASSERT_TRUE(WaitFor([&] { return busy->usedCount == 0; }));
    EXPECT_EQ(KRV_RelTimerFini(busy), 9u);
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(busy), 0u);
}

TEST(RelTimerApi, GroupsValidateStartStopAndFree)
{
    krvtest::DiagCapture diags;
    KrvRelTmrPool *pool = nullptr;
    ASSERT_EQ(KRV_RelTimerInit(2, &pool), 0u);
    KrvRelTmrGrpInfo *grp = nullptr;
    KrvRelTmrPool bogus{};
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 0, Count), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 2, nullptr), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(nullptr, pool, 2, Count), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, &bogus, 2, Count), 22u);
    EXPECT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 0x1FFFFFFFFFFFFFFAull, Count), 12u);  // refused as a failed allocation
    const std::string bad = "[MERILUX-KRV_ReltimerGrpCreate]:Param invalid maxTimer(";
    EXPECT_EQ(diags.Messages(), (Msgs{bad + "0).", bad + "2).", bad + "2).", kPoolInvalid, bad + "2).",
                                      "[MERILUX-KrvRelTmrGrpAlloc]:Param invalid(4294967290)",
                                      "[MERILUX-KRV_ReltimerGrpCreate]:Malloc fail"}));
    EXPECT_EQ(grp, nullptr);

    ASSERT_EQ(KRV_RelTimerGrpCreate(&grp, pool, 3, Count), 0u);
    EXPECT_EQ(pool->grpCount, 1u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 3, 10, 0, 0), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 0, 10, 0, 2), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 1), 0u);  // never started
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 5), 22u);
    EXPECT_EQ(KRV_RelTimerofGrpStop(nullptr, 0), 22u);
    EXPECT_EQ(KRV_RelTimerGrpFree(nullptr), 22u);
    EXPECT_EQ(diags.Messages(),
              (Msgs{"[MERILUX-KrvRelTmrGrpInfoValidCheck]:grpInfo invalid, tmrSn is 3.",
                    "[MERILUX-KRV_RelTimerofGrpStart]:Param invalid, mode is 0, tmrSn is 3",
                    "[MERILUX-KRV_RelTimerofGrpStart]:Param invalid, mode is 2, tmrSn is 0",
                    "[MERILUX-KRV_RelTimerofGrpStop]:Param invalid(5,3,4862)", "[MERILUX-KRV_RelTimerofGrpStop]:Param invalid.",
                    "[MERILUX-KRV_RelTimerGrpFree]:timerGrp is null, or (KrvRelTmrGrpInfo *)timerGrp->initFlag != "
                    "KRV_RELTMR_INIT_FLAG."}));

    // A group timer's callback gets its serial number and the start's param.
    g_calls = 0;
    ASSERT_EQ(KRV_RelTimerofGrpStart(grp, 2, 10, 55, 1), 0u);
    EXPECT_TRUE(WaitFor([] { return g_calls >= 2; }));
    EXPECT_EQ(g_lastArg, 2u);
    EXPECT_EQ(g_lastParam, 55u);
    ASSERT_EQ(KRV_RelTimerofGrpStart(grp, 0, 100000, 0, 0), 0u);
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 1, 100000, 0, 0), 12u);  // the pool of two is used up
    EXPECT_EQ(diags.Messages(), (Msgs{"[MERILUX-KrvStartRelTimer]:no free reltimer",
                                      "[MERILUX-KRV_RelTimerofGrpStart]:KrvStartRelTimer failed, ret is 12"}));
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 2), 0u);
    EXPECT_EQ(grp->handles[2], nullptr);
    grp->pool = &bogus;
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 1, 10, 0, 0), 22u);
    grp->pool = pool;
    EXPECT_EQ(diags.Messages(), (Msgs{kPoolInvalid, "[MERILUX-KrvRelTmrGrpInfoValidCheck]:grpInfo invalid, tmrSn is 1.",
                                      "[MERILUX-KRV_RelTimerofGrpStart]:Param invalid, mode is 0, tmrSn is 1"}));
    // A serial number whose node cannot be stopped reports it and forgets the node.
    grp->handles[1] = &pool->nodes[2];
    pool->nodes[2].interval = 3;
    EXPECT_EQ(KRV_RelTimerofGrpStop(grp, 1), 22u);
    EXPECT_EQ(grp->handles[1], nullptr);
    EXPECT_EQ(diags.Messages(), (Msgs{"[MERILUX-KrvRelTmrStop]:status wrong,90,3", "[MERILUX-KRV_RelTimerofGrpStop]:Failed to stop timer."}));

    // A free that fails on one serial number keeps the group; the earlier ones are stopped by then.
    grp->handles[1] = &pool->nodes[2];
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 22u);
    EXPECT_EQ(grp->handles[0], nullptr);
    EXPECT_EQ(grp->initFlag, KRV_RELTMR_INIT_FLAG);
    EXPECT_EQ(diags.Messages().front().rfind("[MERILUX-KrvRelTmrStop]:status wrong,90,", 0), 0u);
    grp->handles[1] = nullptr;
    ASSERT_TRUE(WaitFor([&] { return pool->usedCount == 0; }));
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(pool->grpCount, 0u);
    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
}

}  // namespace
