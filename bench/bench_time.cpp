// Local time on a hot path: the lock-free clock beside time() + localtime_r, which takes the C
// library's process-wide time-zone lock, and beside a bare clock_gettime, from 1, 2 and 4 threads.
#include <benchmark/benchmark.h>
#include <sys/time.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

#include "krv_nolocktime.h"

namespace {

// Local broken-down time read as if it were UTC, in milliseconds.
int64_t LocalMs(int year, int month0, int day, int hour, int minute, int second, int64_t ms)
{
    struct tm t {};
    t.tm_year = year - 1900;
    t.tm_mon = month0;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    return static_cast<int64_t>(timegm(&t)) * 1000 + ms;
}

int64_t PeerLocalMs()
{
    timeval tv{};
    gettimeofday(&tv, nullptr);
    struct tm t {};
    localtime_r(&tv.tv_sec, &t);
    return LocalMs(t.tm_year + 1900, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, tv.tv_usec / 1000);
}

// Our reading must agree with the C library's before anything is timed: it may lag by up to the
// second the snapshot truncates, plus a little calibration error.
bool AgreesWithPeer()
{
    int64_t lo = PeerLocalMs();
    KrvDateTime d{};
    if (KRV_LmtTimeGetNoLock(&d) != 0) {
        return false;
    }
    int64_t hi = PeerLocalMs();
    int64_t ours = LocalMs(d.year, d.month - 1, d.day, d.hour, d.minute, d.second, d.millisecond);
    return ours >= lo - 1500 && ours <= hi + 500;
}

void BM_KrvLmtTimeGetNoLock(benchmark::State &state)
{
    if (state.thread_index() == 0 && !AgreesWithPeer()) {
        state.SkipWithError("the lock-free clock disagrees with localtime_r");
    }
    KrvDateTime d{};
    for (auto _ : state) {
        KRV_LmtTimeGetNoLock(&d);
        benchmark::DoNotOptimize(d);
    }
}

void BM_TimeLocaltimeR(benchmark::State &state)
{
    struct tm t {};
    for (auto _ : state) {
        time_t now = time(nullptr);
        localtime_r(&now, &t);
        benchmark::DoNotOptimize(t);
    }
}

void BM_ClockGettimeRealtime(benchmark::State &state)
{
    timespec ts{};
    for (auto _ : state) {
        clock_gettime(CLOCK_REALTIME, &ts);
        benchmark::DoNotOptimize(ts);
    }
}

BENCHMARK(BM_KrvLmtTimeGetNoLock)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_TimeLocaltimeR)->Threads(1)->Threads(2)->Threads(4);
BENCHMARK(BM_ClockGettimeRealtime)->Threads(1)->Threads(2)->Threads(4);

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    if (KRV_NolockTimeInit() != 0) {
        std::fprintf(stderr, "KRV_NolockTimeInit failed\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KRV_NolockTimeFini();  // joins the updater: up to 5 s
    return 0;
}
