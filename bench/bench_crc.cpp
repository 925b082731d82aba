// CRC-32 throughput beside zlib's crc32 and Boost.CRC, on 4 KB and 16 MB buffers.
//
// Ours is the non-reflected CRC over 0x04C11DB7; seeded with 0xFFFFFFFF and finished with an XOR it
// is the same function as Boost's crc_optimal<32, 0x04C11DB7, ~0, ~0, false, false>. zlib computes
// the reflected variant; its result on the bit-reversed bytes, bit-reversed, equals ours, which is
// checked before timing.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <boost/crc.hpp>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "krv_crc.h"
#include "util/krv_crc_internal.h"

namespace {

using BoostCrc = boost::crc_optimal<32, 0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, false, false>;

const std::vector<uint8_t> &Buffer(size_t size)
{
    static std::vector<uint8_t> data = [] {
        std::vector<uint8_t> bytes(16u << 20);
        std::mt19937_64 rng(7);
        for (uint8_t &b : bytes) {
            b = static_cast<uint8_t>(rng());
        }
        return bytes;
    }();
    (void)size;
    return data;
}

uint32_t Ours(const uint8_t *data, size_t size)
{
    uint32_t crc = 0xFFFFFFFFu;
    KRV_Crc32bitMake(data, static_cast<uint32_t>(size), &crc);
    return crc ^ 0xFFFFFFFFu;
}

uint32_t Reflect32(uint32_t v)
{
    uint32_t r = 0;
    for (int i = 0; i < 32; ++i, v >>= 1) {
        r = (r << 1) | (v & 1);
    }
    return r;
}

// Refuses to time anything unless all three agree on this size.
void CheckAgreement(size_t size)
{
    const uint8_t *data = Buffer(size).data();
    std::vector<uint8_t> reflected(data, data + size);
    for (uint8_t &b : reflected) {
        b = static_cast<uint8_t>(Reflect32(b) >> 24);
    }
    BoostCrc boost;
    boost.process_bytes(data, size);
    const uint32_t zlib = Reflect32(static_cast<uint32_t>(crc32(0, reflected.data(), static_cast<uInt>(size))));
    uint32_t sliced = krv::crc::UpdateSliced(0xFFFFFFFFu, data, size) ^ 0xFFFFFFFFu;
    if (Ours(data, size) != boost.checksum() || Ours(data, size) != zlib || sliced != zlib) {
        std::fprintf(stderr, "CRC results differ at size %zu\n", size);
        std::abort();
    }
}

void BM_KrvCrc32(benchmark::State &state)
{
    const size_t size = static_cast<size_t>(state.range(0));
    CheckAgreement(size);
    const uint8_t *data = Buffer(size).data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(Ours(data, size));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

// The table engine alone, as on processors without carry-less multiplication.
void BM_KrvCrc32Sliced(benchmark::State &state)
{
    const size_t size = static_cast<size_t>(state.range(0));
    const uint8_t *data = Buffer(size).data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(krv::crc::UpdateSliced(0xFFFFFFFFu, data, size));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void BM_ZlibCrc32(benchmark::State &state)
{
    const size_t size = static_cast<size_t>(state.range(0));
    const uint8_t *data = Buffer(size).data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, data, static_cast<uInt>(size)));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void BM_BoostCrc32(benchmark::State &state)
{
    const size_t size = static_cast<size_t>(state.range(0));
    const uint8_t *data = Buffer(size).data();
    for (auto _ : state) {
        BoostCrc crc;
        crc.process_bytes(data, size);
        benchmark::DoNotOptimize(crc.checksum());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

}  // namespace

BENCHMARK(BM_KrvCrc32)->Arg(4096)->Arg(16 << 20);
BENCHMARK(BM_KrvCrc32Sliced)->Arg(4096)->Arg(16 << 20);
BENCHMARK(BM_ZlibCrc32)->Arg(4096)->Arg(16 << 20);
BENCHMARK(BM_BoostCrc32)->Arg(4096)->Arg(16 << 20);
BENCHMARK_MAIN();
