// Base64: encode and decode of 1 KiB and 8 MiB of random bytes beside OpenSSL's EVP_EncodeBlock and
// EVP_DecodeBlock. Our functions allocate their result, so the peer cases allocate theirs as well
// (malloc of the output and free after the call); the "reuse" cases give the peer one buffer for
// all iterations, for reference. The decode input is the encoded text without line breaks, which
// both decoders accept; the peer is handed the length, ours measures the text itself.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "krv_base64.h"
#include "krv_osal.h"

namespace {

struct Sample {
    std::vector<uint8_t> data;
    std::string text;
};

[[noreturn]] void Disagree(const char *what)
{
    std::fprintf(stderr, "base64 %s differs from the peer's\n", what);
    std::abort();
}

size_t EncodedSize(size_t n) { return (n + 2) / 3 * 4; }

// Random bytes of length n and their encoding; ours checked equal to the peer's both ways.
const Sample &SampleOf(size_t n)
{
    static std::map<size_t, Sample> samples;
    auto found = samples.find(n);
    if (found != samples.end()) {
        return found->second;
    }
    Sample s;
    std::mt19937 rng(static_cast<unsigned>(n));
    s.data.resize(n);
    for (uint8_t &b : s.data) {
        b = static_cast<uint8_t>(rng());
    }
    char *ours = nullptr;
    if (KRV_Base64Encode(s.data.data(), n, &ours) != 0) {
        Disagree("encoding");
    }
    std::string peer(EncodedSize(n) + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char *>(peer.data()), s.data.data(), static_cast<int>(n));
    peer.resize(EncodedSize(n));
    if (peer != ours) {
        Disagree("encoding");
    }
    KRV_OsalMemFree(ours);
    s.text = peer;

    uint8_t *bytes = nullptr;
    size_t len = 0;
    std::vector<uint8_t> back(s.text.size());
    int peerLen = EVP_DecodeBlock(back.data(), reinterpret_cast<const unsigned char *>(s.text.data()),
                                  static_cast<int>(s.text.size()));
    // The peer counts the bytes the padding stands for; they are not data.
    size_t pad = s.text.size() - s.text.find_last_not_of('=') - 1;
    if (KRV_Base64Decode(s.text.c_str(), &bytes, &len) != 0 || len != n || peerLen < 0 ||
        static_cast<size_t>(peerLen) - pad != n || std::memcmp(bytes, back.data(), n) != 0 ||
        std::memcmp(bytes, s.data.data(), n) != 0) {
        Disagree("decoding");
    }
    KRV_OsalMemFree(bytes);
    return samples.emplace(n, std::move(s)).first->second;
}

void BM_KrvEncode(benchmark::State &state)
{
    const Sample &s = SampleOf(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        char *text = nullptr;
        KRV_Base64Encode(s.data.data(), s.data.size(), &text);
        benchmark::DoNotOptimize(text);
        KRV_OsalMemFree(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(s.data.size()));
}

// Runs call(out) per iteration on a fresh malloc'ed output of size bytes, or on one kept buffer.
template <typename Call>
void PeerLoop(benchmark::State &state, size_t size, Call call)
{
    bool reuse = state.range(1) != 0;
    auto *kept = static_cast<unsigned char *>(std::malloc(size));
    for (auto _ : state) {
        auto *out = reuse ? kept : static_cast<unsigned char *>(std::malloc(size));
        benchmark::DoNotOptimize(call(out));
        benchmark::DoNotOptimize(out);
        if (!reuse) {
            std::free(out);
        }
    }
    std::free(kept);
}

void BM_OpensslEncode(benchmark::State &state)
{
    const Sample &s = SampleOf(static_cast<size_t>(state.range(0)));
    PeerLoop(state, EncodedSize(s.data.size()) + 1, [&s](unsigned char *out) {
        return EVP_EncodeBlock(out, s.data.data(), static_cast<int>(s.data.size()));
    });
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(s.data.size()));
}

void BM_KrvDecode(benchmark::State &state)
{
    const Sample &s = SampleOf(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        uint8_t *bytes = nullptr;
        size_t len = 0;
        KRV_Base64Decode(s.text.c_str(), &bytes, &len);
        benchmark::DoNotOptimize(bytes);
        KRV_OsalMemFree(bytes);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(s.text.size()));
}

void BM_OpensslDecode(benchmark::State &state)
{
    const Sample &s = SampleOf(static_cast<size_t>(state.range(0)));
    PeerLoop(state, s.text.size() / 4 * 3 + 1, [&s](unsigned char *out) {
        return EVP_DecodeBlock(out, reinterpret_cast<const unsigned char *>(s.text.data()),
                               static_cast<int>(s.text.size()));
    });
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(s.text.size()));
}

constexpr int64_t kSmall = 1 << 10;
constexpr int64_t kLarge = 8 << 20;

BENCHMARK(BM_KrvEncode)->ArgName("bytes")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(BM_OpensslEncode)->ArgNames({"bytes", "reuse"})->ArgsProduct({{kSmall, kLarge}, {0, 1}});
BENCHMARK(BM_KrvDecode)->ArgName("bytes")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(BM_OpensslDecode)->ArgNames({"bytes", "reuse"})->ArgsProduct({{kSmall, kLarge}, {0, 1}});

}  // namespace

BENCHMARK_MAIN();
