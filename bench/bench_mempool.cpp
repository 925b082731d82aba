// A pool alloc+free pair (with its two tick stamps) beside glibc malloc+free and jemalloc of the same
// 64 usable bytes, on one and two threads; and the tick stamp's division alone.
//
// jemalloc is linked, so it is this process's malloc; glibc's allocator is reached through its
// __libc_malloc/__libc_free entry points.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "krv_mempool.h"
#include "krv_tick.h"
#include "util/krv_arith_divider.h"

extern "C" void *__libc_malloc(size_t size);
extern "C" void __libc_free(void *ptr);

namespace {

constexpr uint32_t kUsable = 64;
constexpr uint32_t kUnitSize = kUsable + KRV_MEMPOOL_UNIT_HEAD_SIZE;
constexpr uint32_t kUnits = 1024;

alignas(64) uint8_t g_region[kUnitSize * kUnits];

// The pool every case shares, created once; each allocator must give writable, distinct blocks.
uint32_t Pool()
{
    static const uint32_t id = [] {
        uint32_t pool = 0;
        if (KRV_MemPoolInit() != 0 || KRV_MemPoolCreate("bench", g_region, sizeof g_region, kUnitSize, &pool) != 0) {
            std::fprintf(stderr, "pool creation failed\n");
            std::abort();
        }
        return pool;
    }();
    return id;
}

template <typename Alloc, typename Free>
void CheckBlocks(Alloc alloc, Free release)
{
    void *a = alloc();
    void *b = alloc();
    if (a == nullptr || b == nullptr || a == b) {
        std::fprintf(stderr, "allocator check failed\n");
        std::abort();
    }
    std::memset(a, 0xA5, kUsable);
    std::memset(b, 0x5A, kUsable);
    if (static_cast<uint8_t *>(a)[kUsable - 1] != 0xA5) {
        std::abort();
    }
    release(a);
    release(b);
}

template <typename Alloc, typename Free>
void Pairs(benchmark::State &state, Alloc alloc, Free release)
{
    if (state.thread_index() == 0) {
        CheckBlocks(alloc, release);
    }
    for (auto _ : state) {
        void *p = alloc();
        benchmark::DoNotOptimize(p);
        release(p);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_KrvPoolAllocFree(benchmark::State &state)
{
    const uint32_t pool = Pool();
    Pairs(state, [pool] { return KRV_MemPoolAlloc(pool); }, [pool](void *p) { KRV_MemPoolFree(pool, p); });
}

void BM_GlibcMallocFree(benchmark::State &state)
{
    Pairs(state, [] { return __libc_malloc(kUsable); }, [](void *p) { __libc_free(p); });
}

void BM_JemallocMallocFree(benchmark::State &state)
{
    Pairs(state, [] { return std::malloc(kUsable); }, [](void *p) { std::free(p); });
}

// One stamp: what the pool pays twice per pair.
void BM_KrvTickGet(benchmark::State &state)
{
    Pool();
    uint64_t tick = 0;
    for (auto _ : state) {
        KRV_TickGet(&tick);
        benchmark::DoNotOptimize(tick);
    }
}

std::vector<uint64_t> Spans()
{
    std::mt19937_64 rng(3);
    std::vector<uint64_t> spans(1024);
    for (uint64_t &s : spans) {
        s = rng() >> (rng() % 40);
    }
    return spans;
}

// The stamp's division by the tick base: the divide instruction against the prepared multiply.
void BM_TickBaseDivide(benchmark::State &state)
{
    const std::vector<uint64_t> spans = Spans();
    uint64_t base = 24454120;
    benchmark::DoNotOptimize(base);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(spans[i++ & 1023] / base);
    }
}

void BM_TickBaseMultiply(benchmark::State &state)
{
    const std::vector<uint64_t> spans = Spans();
    const krv::Divider64By32 divider = krv::Divider64By32::Make(24454120);
    for (uint64_t s : spans) {
        if (divider.Divide(s) != s / 24454120) {
            std::abort();
        }
    }
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(divider.Divide(spans[i++ & 1023]));
    }
}

}  // namespace

BENCHMARK(BM_KrvPoolAllocFree)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_GlibcMallocFree)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_JemallocMallocFree)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_KrvTickGet);
BENCHMARK(BM_TickBaseDivide);
BENCHMARK(BM_TickBaseMultiply);
BENCHMARK_MAIN();
