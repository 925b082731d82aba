// Suffix-array sort: KRV_ArraySaSort beside libdivsufsort on 10 MB and 50 MB of English-like text
// and of random bytes, and the peak memory of each.
//
// The text comes from a fixed-seed generator (below), so every run sorts the same bytes. Every case
// first checks that its result equals divsufsort's, then times one whole sort per iteration,
// including the library's own allocations.
//
// Peak memory is measured before any benchmark runs: for every library and input one child process
// builds the input and the output array, and a second one also sorts; the difference of their
// maximum resident sizes (getrusage of the reaped child) is what the sort needed beyond its input
// and output.
#include <benchmark/benchmark.h>
#include <divsufsort.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "krv_array.h"

namespace {

using Bytes = std::vector<uint8_t>;

enum InputKind { kText = 0, kRandom = 1 };
constexpr size_t kMegabyte = 1000000;

// A word of 1-4 syllables built from a fixed table, so words repeat and share stems as in prose.
std::string MakeWord(std::mt19937_64 &rng)
{
    static const char *const kSyllables[] = {"the", "an", "re", "con", "ing", "er", "ti", "on", "al", "de",
                                             "st", "pro", "com", "ex", "ment", "ly", "ous", "ver", "in", "at",
                                             "ca", "so", "mi", "ble", "lo", "na", "un", "ha", "we", "or"};
    std::string word;
    for (unsigned n = 1 + rng() % 4; n > 0; --n) {
        word += kSyllables[rng() % (sizeof(kSyllables) / sizeof(kSyllables[0]))];
    }
    return word;
}

// English-like text: words from a 5,000-word vocabulary with Zipf-like frequencies (a word's
// chance falls with its rank), sentences of 4-20 words, commas, capitals, lines of about 70 bytes.
Bytes MakeText(size_t len)
{
    std::mt19937_64 rng(20240601);
    std::vector<std::string> vocabulary;
    for (int i = 0; i < 5000; ++i) {
        vocabulary.push_back(MakeWord(rng));
    }
    Bytes text;
    text.reserve(len + 128);
    size_t lineStart = 0;
    while (text.size() < len) {
        const unsigned words = 4 + rng() % 17;
        for (unsigned w = 0; w < words; ++w) {
            // The product of two uniform ranks favours small ones: roughly 1/rank frequencies.
            const size_t rank = (rng() % vocabulary.size()) * (rng() % vocabulary.size()) / vocabulary.size();
            std::string word = vocabulary[rank];
            if (w == 0) {
                word[0] = static_cast<char>(word[0] - 'a' + 'A');
            }
            text.insert(text.end(), word.begin(), word.end());
            text.push_back(w + 1 == words ? '.' : (rng() % 9 == 0 ? ',' : ' '));
            if (w + 1 < words && text.back() == ',') {
                text.push_back(' ');
            }
        }
        if (text.size() - lineStart > 70) {
            text.push_back('\n');
            lineStart = text.size();
        } else {
            text.push_back(' ');
        }
    }
    text.resize(len);
    return text;
}

Bytes MakeRandom(size_t len)
{
    std::mt19937_64 rng(77);
    Bytes bytes(len);
    for (uint8_t &b : bytes) {
        b = static_cast<uint8_t>(rng() >> 56);
    }
    return bytes;
}

Bytes MakeInput(int kind, size_t megabytes)
{
    return kind == kText ? MakeText(megabytes * kMegabyte) : MakeRandom(megabytes * kMegabyte);
}

// Inputs and divsufsort's answers, built once per (kind, size).
struct Reference {
    Bytes input;
    std::vector<saidx_t> sa;
};

const Reference &GetReference(int kind, size_t megabytes)
{
    static std::map<std::pair<int, size_t>, Reference> cache;
    Reference &ref = cache[{kind, megabytes}];
    if (ref.input.empty()) {
        ref.input = MakeInput(kind, megabytes);
        ref.sa.resize(ref.input.size());
        if (divsufsort(ref.input.data(), ref.sa.data(), static_cast<saidx_t>(ref.input.size())) != 0) {
            std::fprintf(stderr, "divsufsort failed\n");
            std::exit(1);
        }
    }
    return ref;
}

void SetLabel(benchmark::State &state)
{
    state.SetLabel(state.range(0) == kText ? "text" : "random");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(1) * kMegabyte);
}

void BM_KrvSaSort(benchmark::State &state)
{
    const Reference &ref = GetReference(static_cast<int>(state.range(0)), state.range(1));
    std::vector<size_t> sa(ref.input.size());
    if (KRV_ArraySaSort(ref.input.data(), ref.input.size(), sa.data(), sa.size()) != 0 ||
        !std::equal(sa.begin(), sa.end(), ref.sa.begin())) {
        state.SkipWithError("result differs from divsufsort");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(KRV_ArraySaSort(ref.input.data(), ref.input.size(), sa.data(), sa.size()));
    }
    SetLabel(state);
}

void BM_DivSufSort(benchmark::State &state)
{
    const Reference &ref = GetReference(static_cast<int>(state.range(0)), state.range(1));
    std::vector<saidx_t> sa(ref.input.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(divsufsort(ref.input.data(), sa.data(), static_cast<saidx_t>(sa.size())));
    }
    SetLabel(state);
}

// Both libraries on each input, ours first, so neighbouring lines compare under the same load.
void Inputs(benchmark::internal::Benchmark *b)
{
    b->ArgNames({"input", "MB"})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
}
BENCHMARK(BM_KrvSaSort)->Apply(Inputs)->Args({kText, 10});
BENCHMARK(BM_DivSufSort)->Apply(Inputs)->Args({kText, 10});
BENCHMARK(BM_KrvSaSort)->Apply(Inputs)->Args({kRandom, 10});
BENCHMARK(BM_DivSufSort)->Apply(Inputs)->Args({kRandom, 10});
BENCHMARK(BM_KrvSaSort)->Apply(Inputs)->Args({kText, 50});
BENCHMARK(BM_DivSufSort)->Apply(Inputs)->Args({kText, 50});
BENCHMARK(BM_KrvSaSort)->Apply(Inputs)->Args({kRandom, 50});
BENCHMARK(BM_DivSufSort)->Apply(Inputs)->Args({kRandom, 50});

// Maximum resident size, in KiB, of a child that builds the input and the output array (both
// touched) and, with sort, also sorts with `library`.
long ChildPeakKib(bool ours, int kind, size_t megabytes, bool sort)
{
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        const Bytes input = MakeInput(kind, megabytes);
        int rc = 0;
        if (ours) {
            std::vector<size_t> sa(input.size(), 0);
            rc = sort ? static_cast<int>(KRV_ArraySaSort(input.data(), input.size(), sa.data(), sa.size())) : 0;
        } else {
            std::vector<saidx_t> sa(input.size(), 0);
            rc = sort ? divsufsort(input.data(), sa.data(), static_cast<saidx_t>(sa.size())) : 0;
        }
        _exit(rc == 0 ? 0 : 1);
    }
    int status = 0;
    struct rusage usage = {};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return -1;
    }
    return usage.ru_maxrss;
}

void ReportPeakMemory()
{
    std::printf("Peak memory (MiB): resident maximum with input and output only, with the sort, difference\n");
    for (size_t megabytes : {10, 50}) {
        for (int kind : {kText, kRandom}) {
            for (bool ours : {true, false}) {
                const long base = ChildPeakKib(ours, kind, megabytes, false);
                const long peak = ChildPeakKib(ours, kind, megabytes, true);
                std::printf("  %-10s %-6s %3zu MB: %7.1f %7.1f %7.1f\n", ours ? "krv" : "divsufsort",
                            kind == kText ? "text" : "random", megabytes, base / 1024.0, peak / 1024.0,
                            (peak - base) / 1024.0);
            }
        }
    }
}

}  // namespace

int main(int argc, char **argv)
{
    bool peak = true;
    std::vector<char *> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--no_peak_memory") == 0) {
            peak = false;
        } else {
            args.push_back(argv[i]);
        }
    }
    if (peak) {
        ReportPeakMemory();
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
