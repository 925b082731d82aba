// Error stack: one KRV_EnoErrorWrapperPush + KRV_EnoLastErrorGet pair of the calling thread while
// other threads' nodes fill the tree (none, or 1,000), from one thread and from two at once. Every
// call searches the tree for the caller under the one error-module mutex. No peer library keeps
// per-thread error stacks, so the figure is reported on its own.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

#include "krv_osaleno.h"

namespace {

constexpr uint32_t kHigh = 0x2130;
constexpr uint32_t kModule = 16;
constexpr uint32_t kSpawnBatch = 50;  // threads alive at once while the tree fills

uint32_t Composed(uint32_t errNo)
{
    return kHigh << 16 | kModule << 8 | errNo;
}

// Empties the tree, then lets `others` short-lived threads push one code each: their nodes stay.
void FillTree(uint32_t others)
{
    KRV_EnoErrorStackRemove(true);
    for (uint32_t done = 0; done < others;) {
        std::vector<std::thread> batch;
        for (; batch.size() < kSpawnBatch && done < others; ++done) {
            batch.emplace_back([done] { KRV_EnoErrorWrapperPush(kHigh, kModule, done % 200); });
        }
        for (std::thread &t : batch) {
            t.join();
        }
    }
}

// A thread without a node reads 255 while other nodes exist; its pushed code then comes back once.
bool StackBehaves(uint32_t others)
{
    uint32_t before = KRV_EnoLastErrorGet();
    KRV_EnoErrorWrapperPush(kHigh, kModule, 7);
    uint32_t popped = KRV_EnoLastErrorGet();
    uint32_t empty = KRV_EnoLastErrorGet();
    return (others == 0 ? before == 0 : before == 255) && popped == Composed(7) && empty == 0;
}

void BM_EnoPushPop(benchmark::State &state)
{
    const auto others = static_cast<uint32_t>(state.range(0));
    if (state.thread_index() == 0) {
        FillTree(others);
        if (!StackBehaves(others)) {
            state.SkipWithError("the error stack does not return what was pushed");
        }
    }
    uint32_t wrong = 0;
    uint32_t errNo = 0;
    for (auto _ : state) {
        KRV_EnoErrorWrapperPush(kHigh, kModule, errNo);
        wrong += KRV_EnoLastErrorGet() != Composed(errNo);
        errNo = (errNo + 1) & 0xFF;
    }
    if (wrong != 0) {
        state.SkipWithError("a pop returned another code than the push before it");
    }
}

BENCHMARK(BM_EnoPushPop)->ArgName("other_nodes")->Arg(0)->Arg(1000)->Threads(1)->Threads(2);

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    if (KRV_EnoErrCodeInit() != 0) {
        std::fprintf(stderr, "KRV_EnoErrCodeInit failed\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KRV_EnoErrorStackRemove(true);
    KRV_EnoErrCodeDeInit();
    return 0;
}
