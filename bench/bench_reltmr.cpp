// Relative timers: the cost of a start+stop pair while N other timers are armed, beside libuv's
// timer heap holding the same number, and how late expiries run when 100,000 timers are armed.
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
#include <random>
#include <vector>

#include "krv_osal.h"
#include "krv_reltmr.h"
#include "reltmr/krv_reltmr_wheel.h"

namespace {

constexpr size_t kProbeIntervals = 1024;  // power of two: the loop picks one with a mask

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

int64_t MonotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void IgnoreExpiry(uint64_t, uint32_t) {}
void IgnoreUvExpiry(uv_timer_t *) {}

// Our start+stop pair through the exported functions (module lock, checks, wheel).
void BM_KrvStartStop(benchmark::State &state)
{
    auto armed = static_cast<size_t>(state.range(0));
    bool beyond = state.range(1) != 0;
    KrvRelTmrPool *pool = nullptr;
    if (KRV_RelTimerInit(static_cast<uint32_t>(armed + 1), &pool) != 0) {
        state.SkipWithError("KRV_RelTimerInit failed");
        return;
    }
    KrvRelTmrFuncInfo info{IgnoreExpiry, 0, 0};
    std::vector<KrvRelTmrNode *> handles(armed, nullptr);
    std::vector<uint32_t> background = Intervals(armed, beyond, 1);
    uint32_t failures = 0;
    for (size_t i = 0; i < armed; ++i) {
        failures += KRV_CallBackRelTimerStart(&handles[i], pool, background[i], KRV_RELTMR_MODE_ONESHOT, &info) != 0;
    }
    std::vector<uint32_t> probe = Intervals(kProbeIntervals, beyond, 2);
    KrvRelTmrNode *handle = nullptr;
    size_t k = 0;
    for (auto _ : state) {
        failures += KRV_CallBackRelTimerStart(&handle, pool, probe[k++ & (kProbeIntervals - 1)],
                                              KRV_RELTMR_MODE_ONESHOT, &info) != 0;
        failures += KRV_RelTimerStop(&handle) != 0;
    }
    for (KrvRelTmrNode *&armedHandle : handles) {
        failures += KRV_RelTimerStop(&armedHandle) != 0;
    }
    failures += KRV_RelTimerFini(pool) != 0;
    if (failures != 0) {
        state.SkipWithError("a timer call failed");
    }
}

// libuv's pair on a loop that is never run, so its clock stands still and nothing fires. With
// range(2) set, each call is wrapped in a recursive mutex, as a caller on another thread than the
// loop's would need: our functions may be called from any thread and lock on their own.
void BM_UvStartStop(benchmark::State &state)
{
    auto armed = static_cast<size_t>(state.range(0));
    bool beyond = state.range(1) != 0;
    bool locked = state.range(2) != 0;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> timers(armed + 1);
    std::vector<uint32_t> background = Intervals(armed, beyond, 1);
    for (size_t i = 0; i <= armed; ++i) {
        uv_timer_init(&loop, &timers[i]);
        if (i < armed) {
            uv_timer_start(&timers[i], IgnoreUvExpiry, background[i], 0);
        }
    }
    std::vector<uint32_t> probe = Intervals(kProbeIntervals, beyond, 2);
    uv_timer_t *timer = &timers[armed];
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
    for (uv_timer_t &t : timers) {
        uv_close(reinterpret_cast<uv_handle_t *>(&t), nullptr);
    }
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
    pthread_mutex_destroy(&mutex);
}

// The wheel alone (no lock, no checks, no pool): what the data structure itself costs.
void BM_WheelInsertRemove(benchmark::State &state)
{
    auto armed = static_cast<size_t>(state.range(0));
    bool beyond = state.range(1) != 0;
    std::vector<krv::reltmr::KrvRelTmrBucket> buckets(krv::reltmr::kWheelSize);
    krv::reltmr::WheelClear(buckets.data());
    std::vector<KrvRelTmrNode> nodes(armed + 1);
    std::vector<uint32_t> background = Intervals(armed, beyond, 1);
    for (size_t i = 0; i < armed; ++i) {
        nodes[i].interval = background[i] / 10;
        krv::reltmr::WheelInsert(buckets.data(), 0, &nodes[i]);
    }
    std::vector<uint32_t> probe = Intervals(kProbeIntervals, beyond, 2);
    KrvRelTmrNode *node = &nodes[armed];
    size_t k = 0;
    for (auto _ : state) {
        node->interval = probe[k++ & (kProbeIntervals - 1)] / 10;
        krv::reltmr::WheelInsert(buckets.data(), 0, node);
        krv::reltmr::WheelRemove(buckets.data(), node);
        benchmark::ClobberMemory();
    }
}

void StartStopArgs(benchmark::internal::Benchmark *b)
{
    for (int beyond : {0, 1}) {
        for (int armed : {0, 1000, 100000}) {
            b->Args({armed, beyond});
        }
    }
    b->ArgNames({"armed", "beyond_rev"});
}

void UvStartStopArgs(benchmark::internal::Benchmark *b)
{
    for (int locked : {0, 1}) {
        for (int beyond : {0, 1}) {
            for (int armed : {0, 1000, 100000}) {
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

BENCHMARK_MAIN();
