// Relative timers: the cost of a start+stop pair while N other timers are armed (0, 1,000, 100,000
// and 1,000,000), beside libuv's timer heap holding the same number, and how late expiries run when
// 100,000 timers are armed. Before timing, each case checks that a start really arms the probe and a
// stop really disarms it (our pool's used count and node status; libuv's active handle count).
//
// Interval sets (second argument of the start/stop cases):
//   0  30..40 s: within one revolution of the wheel (40.96 s), so they stay in short lists, and
//      long enough that nothing fires while a case runs;
//   1  60..600 s: beyond one revolution, so they go to the buckets' sorted long lists.
// The probed timer draws its intervals from the same set as the armed ones, for both libraries.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <uv.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "krv_log.h"
#include "krv_osal.h"
#include "krv_reltmr.h"
#include "reltmr/krv_reltmr_internal.h"
#include "reltmr/krv_reltmr_wheel.h"

namespace {

constexpr size_t kProbeIntervals = 1024;  // power of two: the loop picks one with a mask
// Our armed set is rebuilt once it is this old, well before the first of its 30 s timers falls due.
constexpr int64_t kKrvArmedMaxAgeNs = 20LL * 1000000000;

// Returns count intervals in milliseconds, whole 10 ms ticks, drawn reproducibly from the set.
std::vector<uint32_t> Intervals(size_t count, bool beyondRevolution, uint32_t seed)
{
    uint32_t lowTicks = beyondRevolution ? 6000 : 3000;
    uint32_t highTicks = beyondRevolution ? 60000 : 4000;
    std::mt19937 rng(seed);
    std::uniform_int_distribution<uint32_t> ticks(lowTicks, highTicks);
    std::vector<uint32_t> ms(count);
    for (uint32_t &value : ms) {
        value = ticks(rng) * 10;
    }
    return ms;
}

// The background intervals in ascending order: each of our starts then appends to its bucket's
// list, so that arming 1,000,000 long timers takes linear time instead of a walk per start.
std::vector<uint32_t> AscendingIntervals(size_t count, bool beyondRevolution)
{
    std::vector<uint32_t> ms = Intervals(count, beyondRevolution, 1);
    std::sort(ms.begin(), ms.end());
    return ms;
}

int64_t MonotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void IgnoreExpiry(uint64_t, uint32_t) {}
void IgnoreUvExpiry(uv_timer_t *) {}
const KrvRelTmrFuncInfo kIgnore{IgnoreExpiry, 0, 0};

// Diagnostics the library has written since the program started. A correct start or stop writes
// none, so any at all means a case measured something else than it claims (and paid for the line).
std::atomic<uint32_t> g_diagnostics{0};
void CountDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *)
{
    g_diagnostics.fetch_add(1, std::memory_order_relaxed);
}

// Hands every usable node of the pool out once and takes them back in random order. A fresh pool
// hands its nodes out in address order; after this, timers armed in ascending order of interval
// still lie in random memory order along their lists, as in a pool that has been in use a while.
bool KrvShuffleFreeList(KrvRelTmrPool *pool, size_t usable)
{
    std::vector<KrvRelTmrNode *> handles(usable, nullptr);
    uint32_t failures = 0;
    for (KrvRelTmrNode *&handle : handles) {
        failures += KRV_CallBackRelTimerStart(&handle, pool, 30000, KRV_RELTMR_MODE_ONESHOT, &kIgnore) != 0;
    }
    // Each node remembers its own handle variable, so the order of the stops is shuffled, not the handles.
    std::vector<size_t> order(usable);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(3));
    for (size_t i : order) {
        failures += KRV_RelTimerStop(&handles[i]) != 0;
    }
    return failures == 0;
}

// The armed timers of one case. Google Benchmark runs a case several times while it settles the
// iteration count, and once per repetition; arming up to a million timers for every run would take
// most of the suite's time, so a set is kept from one run to the next (see Kept).
struct KrvArmed {
    size_t armed;
    bool beyond;
    int64_t sinceNs = MonotonicNs();
    KrvRelTmrPool *pool = nullptr;
    std::vector<KrvRelTmrNode *> handles;
    bool ok = false;

    // A pool of armed + 1 timers (the probe's node spare), shuffled, then armed timers started.
    KrvArmed(size_t count, bool beyondRevolution) : armed(count), beyond(beyondRevolution), handles(count, nullptr)
    {
        if (KRV_RelTimerInit(static_cast<uint32_t>(armed + 1), &pool) != 0) {
            pool = nullptr;
            return;
        }
        ok = KrvShuffleFreeList(pool, armed + 1);
        std::vector<uint32_t> ms = AscendingIntervals(armed, beyond);
        for (size_t i = 0; i < armed; ++i) {
            ok &= KRV_CallBackRelTimerStart(&handles[i], pool, ms[i], KRV_RELTMR_MODE_ONESHOT, &kIgnore) == 0;
        }
    }
    ~KrvArmed()
    {
        if (pool != nullptr) {
            for (KrvRelTmrNode *&handle : handles) {
                (void)KRV_RelTimerStop(&handle);
            }
            (void)KRV_RelTimerFini(pool);
        }
    }
    bool Fits(size_t count, bool beyondRevolution) const
    {
        return armed == count && beyond == beyondRevolution && MonotonicNs() - sinceNs < kKrvArmedMaxAgeNs;
    }
};

// libuv's armed timers on a loop that is never run, so its clock stands still and nothing fires;
// one more timer, initialised but not started, is the probe. Armed in the drawn (random) order.
struct UvArmed {
    size_t armed;
    bool beyond;
    uv_loop_t loop;
    std::vector<uv_timer_t> timers;

    UvArmed(size_t count, bool beyondRevolution) : armed(count), beyond(beyondRevolution), timers(count + 1)
    {
        uv_loop_init(&loop);
        std::vector<uint32_t> ms = Intervals(armed, beyond, 1);
        for (size_t i = 0; i <= armed; ++i) {
            uv_timer_init(&loop, &timers[i]);
            if (i < armed) {
                uv_timer_start(&timers[i], IgnoreUvExpiry, ms[i], 0);
            }
        }
    }
    ~UvArmed()
    {
        for (uv_timer_t &timer : timers) {
            uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
        }
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
    UvArmed(const UvArmed &) = delete;
    UvArmed &operator=(const UvArmed &) = delete;
    bool Fits(size_t count, bool beyondRevolution) const { return armed == count && beyond == beyondRevolution; }
};

// The wheel unit alone at tick 0, with nodes in random memory order along their lists as above;
// the last node is the probe.
struct WheelArmed {
    size_t armed;
    bool beyond;
    std::vector<krv::reltmr::KrvRelTmrBucket> buckets = std::vector<krv::reltmr::KrvRelTmrBucket>(krv::reltmr::kWheelSize);
    std::vector<KrvRelTmrNode> nodes;

    WheelArmed(size_t count, bool beyondRevolution) : armed(count), beyond(beyondRevolution), nodes(count + 1)
    {
        krv::reltmr::WheelClear(buckets.data());
        std::vector<size_t> order(armed);
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), std::mt19937(3));
        std::vector<uint32_t> ms = AscendingIntervals(armed, beyond);
        for (size_t i = 0; i < armed; ++i) {
            KrvRelTmrNode *node = &nodes[order[i]];
            node->interval = ms[i] / 10;
            krv::reltmr::WheelInsert(buckets.data(), 0, node);
        }
    }
    bool Fits(size_t count, bool beyondRevolution) const { return armed == count && beyond == beyondRevolution; }
};

std::unique_ptr<KrvArmed> g_krvArmed;
std::unique_ptr<UvArmed> g_uvArmed;
std::unique_ptr<WheelArmed> g_wheelArmed;

// Releases every kept set: ours before the module is needed otherwise, and all before exit.
void ReleaseArmed()
{
    g_krvArmed.reset();
    g_uvArmed.reset();
    g_wheelArmed.reset();
}

// The kept set if it fits the case, else a new one built after releasing every other.
template <typename Set>
Set *Kept(std::unique_ptr<Set> &kept, size_t armed, bool beyond)
{
    if (kept == nullptr || !kept->Fits(armed, beyond)) {
        ReleaseArmed();
        kept = std::make_unique<Set>(armed, beyond);
    }
    return kept.get();
}

// The pool's used count and the state of one node, read under the timer mutex as the library does.
struct KrvSeen {
    uint32_t used;
    uint8_t status;
};
KrvSeen KrvLook(const KrvRelTmrPool *pool, const KrvRelTmrNode *node)
{
    krv::reltmr::TmrLock(krv::reltmr::Ctrl());
    KrvSeen seen{pool->usedCount, node->status};
    krv::reltmr::TmrUnlock(krv::reltmr::Ctrl());
    return seen;
}

// Whether a start arms the probe (its node running, one more in use than the armed timers) and a
// stop disarms it again (node back in the free list, handle cleared).
bool KrvPairWorks(KrvRelTmrPool *pool, size_t armed, uint32_t intervalMs)
{
    KrvRelTmrNode *handle = nullptr;
    if (KRV_CallBackRelTimerStart(&handle, pool, intervalMs, KRV_RELTMR_MODE_ONESHOT, &kIgnore) != 0 ||
        handle == nullptr) {
        return false;
    }
    KrvRelTmrNode *node = handle;
    KrvSeen started = KrvLook(pool, node);
    if (KRV_RelTimerStop(&handle) != 0 || handle != nullptr) {
        return false;
    }
    KrvSeen stopped = KrvLook(pool, node);
    return started.used == armed + 1 && started.status == KRV_RELTMR_STATUS_RUNNING && stopped.used == armed &&
           stopped.status == KRV_RELTMR_STATUS_IDLE;
}

// The same for libuv: the probe active, due after its interval and counted among the loop's active
// handles beside the armed ones, then neither.
bool UvPairWorks(UvArmed *set, uint32_t intervalMs)
{
    uv_timer_t *probe = &set->timers[set->armed];
    auto *handle = reinterpret_cast<uv_handle_t *>(probe);
    bool idle = uv_is_active(handle) == 0 && set->loop.active_handles == set->armed;
    uv_timer_start(probe, IgnoreUvExpiry, intervalMs, 0);
    bool started = uv_is_active(handle) != 0 && set->loop.active_handles == set->armed + 1 &&
                   uv_timer_get_due_in(probe) == intervalMs;
    uv_timer_stop(probe);
    return idle && started && uv_is_active(handle) == 0 && set->loop.active_handles == set->armed;
}

// The same for the wheel: the probe running and counted in its bucket, then out of it again.
bool WheelPairWorks(WheelArmed *set, uint32_t intervalMs)
{
    KrvRelTmrNode *probe = &set->nodes[set->armed];
    probe->interval = intervalMs / 10;
    const krv::reltmr::KrvRelTmrBucket &bucket = set->buckets[probe->interval & krv::reltmr::kWheelMask];
    uint32_t before = bucket.shortCount + bucket.longCount;
    krv::reltmr::WheelInsert(set->buckets.data(), 0, probe);
    bool armed = probe->status == KRV_RELTMR_STATUS_RUNNING && bucket.shortCount + bucket.longCount == before + 1;
    krv::reltmr::WheelRemove(set->buckets.data(), probe);
    return armed && bucket.shortCount + bucket.longCount == before;
}

// Our start+stop pair through the exported functions (module lock, checks, wheel).
void BM_KrvStartStop(benchmark::State &state)
{
    auto armed = static_cast<size_t>(state.range(0));
    bool beyond = state.range(1) != 0;
    KrvArmed *set = Kept(g_krvArmed, armed, beyond);
    std::vector<uint32_t> probe = Intervals(kProbeIntervals, beyond, 2);
    if (!set->ok || !KrvPairWorks(set->pool, armed, probe[0]) || g_diagnostics.load() != 0) {
        state.SkipWithError("the armed timers, or a start and stop of the probe, failed");
        return;
    }
    KrvRelTmrNode *handle = nullptr;
    uint32_t failures = 0;
    size_t k = 0;
    for (auto _ : state) {
        failures += KRV_CallBackRelTimerStart(&handle, set->pool, probe[k++ & (kProbeIntervals - 1)],
                                              KRV_RELTMR_MODE_ONESHOT, &kIgnore) != 0;
        failures += KRV_RelTimerStop(&handle) != 0;
    }
    if (failures != 0 || g_diagnostics.load() != 0) {
        state.SkipWithError("a timer call failed");
    }
}

// libuv's pair. With range(2) set, each call is wrapped in a recursive mutex, as a caller on another
// thread than the loop's would need: our functions may be called from any thread and lock on their own.
void BM_UvStartStop(benchmark::State &state)
{
    auto armed = static_cast<size_t>(state.range(0));
    bool beyond = state.range(1) != 0;
    bool locked = state.range(2) != 0;
    UvArmed *set = Kept(g_uvArmed, armed, beyond);
    std::vector<uint32_t> probe = Intervals(kProbeIntervals, beyond, 2);
    if (!UvPairWorks(set, probe[0])) {
        state.SkipWithError("libuv did not arm or disarm the probe");
        return;
    }
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    uv_timer_t *timer = &set->timers[armed];
    size_t k = 0;
    if (locked) {
        for (auto _ : state) {
            pthread_mutex_lock(&mutex);
            uv_timer_start(timer, IgnoreUvExpiry, probe[k++ & (kProbeIntervals - 1)], 0);
            pthread_mutex_unlock(&mutex);
            pthread_mutex_lock(&mutex);
            uv_timer_stop(timer);
            pthread_mutex_unlock(&mutex);
        }
    } else {
        for (auto _ : state) {
            uv_timer_start(timer, IgnoreUvExpiry, probe[k++ & (kProbeIntervals - 1)], 0);
            uv_timer_stop(timer);
        }
    }
    pthread_mutex_destroy(&mutex);
}

// The wheel alone (no lock, no checks, no pool): what the data structure itself costs.
void BM_WheelInsertRemove(benchmark::State &state)
{
    auto armed = static_cast<size_t>(state.range(0));
    bool beyond = state.range(1) != 0;
    WheelArmed *set = Kept(g_wheelArmed, armed, beyond);
    std::vector<uint32_t> probe = Intervals(kProbeIntervals, beyond, 2);
    if (!WheelPairWorks(set, probe[0])) {
        state.SkipWithError("the wheel did not file or remove the probe");
        return;
    }
    KrvRelTmrNode *node = &set->nodes[armed];
    size_t k = 0;
    for (auto _ : state) {
        node->interval = probe[k++ & (kProbeIntervals - 1)] / 10;
        krv::reltmr::WheelInsert(set->buckets.data(), 0, node);
        krv::reltmr::WheelRemove(set->buckets.data(), node);
        benchmark::ClobberMemory();
    }
}

void StartStopArgs(benchmark::internal::Benchmark *b)
{
    for (int beyond : {0, 1}) {
        for (int armed : {0, 1000, 100000, 1000000}) {
            b->Args({armed, beyond});
        }
    }
    b->ArgNames({"armed", "beyond_rev"});
}

void UvStartStopArgs(benchmark::internal::Benchmark *b)
{
    for (int locked : {0, 1}) {
        for (int beyond : {0, 1}) {
            for (int armed : {0, 1000, 100000, 1000000}) {
                b->Args({armed, beyond, locked});
            }
        }
    }
    b->ArgNames({"armed", "beyond_rev", "locked"});
}

BENCHMARK(BM_KrvStartStop)->Apply(StartStopArgs);
BENCHMARK(BM_UvStartStop)->Apply(UvStartStopArgs);
BENCHMARK(BM_WheelInsertRemove)->Apply(StartStopArgs);

// Expiry lateness with a full wheel: each timer's deadline is the monotonic time just before its
// start plus its interval; the callback (on the trigger thread) notes when it ran.
constexpr uint32_t kLatenessTimers = 100000;
std::vector<int64_t> g_deadlineNs;
std::vector<int64_t> g_firedNs;
std::atomic<uint32_t> g_fired{0};

void NoteExpiry(uint64_t index, uint32_t)
{
    g_firedNs[index] = MonotonicNs();
    g_fired.fetch_add(1, std::memory_order_release);
}

double PercentileMs(const std::vector<int64_t> &sortedNs, double fraction)
{
    size_t index = static_cast<size_t>(fraction * static_cast<double>(sortedNs.size() - 1) + 0.5);
    return static_cast<double>(sortedNs[index]) / 1e6;
}

void BM_KrvExpiryLateness(benchmark::State &state)
{
    ReleaseArmed();  // this case's pool alone with the trigger thread
    std::vector<int64_t> lateNs;
    for (auto _ : state) {
        g_deadlineNs.assign(kLatenessTimers, 0);
        g_firedNs.assign(kLatenessTimers, 0);
        g_fired.store(0);
        KrvRelTmrPool *pool = nullptr;
        if (KRV_RelTimerInit(kLatenessTimers + 1, &pool) != 0) {
            state.SkipWithError("KRV_RelTimerInit failed");
            return;
        }
        // 1.00 .. 2.99 s in 10 ms steps: all 100,000 are armed before the first falls due,
        // then about 500 expire on every tick.
        for (uint32_t i = 0; i < kLatenessTimers; ++i) {
            uint32_t intervalMs = 1000 + 10 * (i % 200);
            KrvRelTmrFuncInfo info{NoteExpiry, i, 0};
            g_deadlineNs[i] = MonotonicNs() + static_cast<int64_t>(intervalMs) * 1000000;
            if (KRV_CallBackRelTimerStart(nullptr, pool, intervalMs, KRV_RELTMR_MODE_ONESHOT, &info) != 0) {
                state.SkipWithError("KRV_CallBackRelTimerStart failed");
                return;
            }
        }
        int64_t giveUp = MonotonicNs() + 15LL * 1000000000;
        while (g_fired.load(std::memory_order_acquire) < kLatenessTimers && MonotonicNs() < giveUp) {
            KRV_OsalTaskDelay(0, 5000);
        }
        uint32_t fired = g_fired.load(std::memory_order_acquire);
        if (KRV_RelTimerFini(pool) != 0 || fired != kLatenessTimers) {
            state.SkipWithError("not every timer expired");
            return;
        }
        for (uint32_t i = 0; i < kLatenessTimers; ++i) {
            lateNs.push_back(g_firedNs[i] - g_deadlineNs[i]);
        }
    }
    std::sort(lateNs.begin(), lateNs.end());
    state.counters["late_min_ms"] = PercentileMs(lateNs, 0.0);
    state.counters["late_p50_ms"] = PercentileMs(lateNs, 0.5);
    state.counters["late_p99_ms"] = PercentileMs(lateNs, 0.99);
    state.counters["late_max_ms"] = PercentileMs(lateNs, 1.0);
}

BENCHMARK(BM_KrvExpiryLateness)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

// Google Benchmark's main, releasing the kept armed sets before the library's own state goes.
int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    (void)KRV_LogHookReg(CountDiagnostic);
    benchmark::RunSpecifiedBenchmarks();
    ReleaseArmed();
    (void)KRV_LogHookUnReg();
    benchmark::Shutdown();
    return 0;
}
