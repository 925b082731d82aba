// The folding engine: carry-less multiplication over 64-byte blocks, for processors that have it.
//
// Each 16-byte block is byte-reversed on load, so that the register read as a 128-bit integer is the
// block as a polynomial (bit i is the coefficient of x^i). Four accumulators A hold the running
// remainder of the message so far; moving one 64 bytes further multiplies it by x^512, which is
// applied as H * (x^576 mod P) + L * (x^512 mod P) for its 64-bit halves H and L, a product below
// x^96 that is congruent to A * x^512. At the end the 128 bits are reduced to A * x^32 mod P.
#include "util/krv_crc_internal.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace krv::crc {
namespace {

// x^k mod P, built one multiplication by x at a time.
constexpr uint64_t XPowMod(unsigned k)
{
    uint32_t r = 1;
    for (unsigned i = 0; i < k; ++i) {
        r = (r & 0x80000000u) != 0 ? (r << 1) ^ kPoly : r << 1;
    }
    return r;
}

constexpr uint64_t kPolyFull = (1ull << 32) | kPoly;

// floor(x^64 / P), the 33-bit Barrett constant.
constexpr uint64_t BarrettMu()
{
    uint64_t quotient = 1ull << 32;
    uint64_t rem = static_cast<uint64_t>(kPoly) << 32;  // x^64 - x^32 * P
    for (int d = 63; d >= 32; --d) {
        if ((rem >> d) & 1) {
            quotient |= 1ull << (d - 32);
            rem ^= kPolyFull << (d - 32);
        }
    }
    return quotient;
}

constexpr uint64_t kFold512Hi = XPowMod(512 + 64);
constexpr uint64_t kFold512Lo = XPowMod(512);
constexpr uint64_t kFold128Hi = XPowMod(128 + 64);
constexpr uint64_t kFold128Lo = XPowMod(128);
constexpr uint64_t kX96 = XPowMod(96);
constexpr uint64_t kX64 = XPowMod(64);
constexpr uint64_t kMu = BarrettMu();

#define KRV_CLMUL_TARGET __attribute__((target("pclmul,ssse3,sse4.1")))

KRV_CLMUL_TARGET inline __m128i LoadBlock(const uint8_t *p)
{
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)), reverse);
}

// acc * x^distance + block, with k = {x^distance mod P, x^(distance+64) mod P}.
KRV_CLMUL_TARGET inline __m128i Fold(__m128i acc, __m128i k, __m128i block)
{
    __m128i high = _mm_clmulepi64_si128(acc, k, 0x11);
    __m128i low = _mm_clmulepi64_si128(acc, k, 0x00);
    return _mm_xor_si128(_mm_xor_si128(high, low), block);
}

// acc * x^32 mod P.
KRV_CLMUL_TARGET inline uint32_t Reduce(__m128i acc)
{
    const __m128i k = _mm_set_epi64x(static_cast<int64_t>(kX64), static_cast<int64_t>(kX96));
    const __m128i barrett = _mm_set_epi64x(static_cast<int64_t>(kPolyFull), static_cast<int64_t>(kMu));
    // H * x^96 + L * x^32: below x^96.
    __m128i t = _mm_xor_si128(_mm_clmulepi64_si128(acc, k, 0x01), _mm_slli_si128(_mm_move_epi64(acc), 4));
    // Its top 32 bits times x^64 mod P: below x^64.
    __m128i u = _mm_xor_si128(_mm_clmulepi64_si128(t, k, 0x11), _mm_move_epi64(t));
    // Barrett: q = floor(floor(u / x^32) * mu / x^32), remainder = u - q * P.
    __m128i q = _mm_srli_epi64(_mm_clmulepi64_si128(_mm_srli_epi64(u, 32), barrett, 0x00), 32);
    __m128i qp = _mm_clmulepi64_si128(q, barrett, 0x10);
    return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_xor_si128(u, qp)));
}

}  // namespace

bool FoldSupported()
{
    static const bool supported = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3") &&
               __builtin_cpu_supports("sse4.1");
    }();
    return supported;
}

KRV_CLMUL_TARGET uint32_t UpdateFolded(uint32_t crc, const uint8_t *data, size_t count)
{
    __m128i a0 = _mm_xor_si128(LoadBlock(data), _mm_set_epi32(static_cast<int>(crc), 0, 0, 0));
    __m128i a1 = LoadBlock(data + 16);
    __m128i a2 = LoadBlock(data + 32);
    __m128i a3 = LoadBlock(data + 48);
    data += 64;
    count -= 64;
    const __m128i k512 = _mm_set_epi64x(static_cast<int64_t>(kFold512Hi), static_cast<int64_t>(kFold512Lo));
    for (; count >= 64; data += 64, count -= 64) {
        a0 = Fold(a0, k512, LoadBlock(data));
        a1 = Fold(a1, k512, LoadBlock(data + 16));
        a2 = Fold(a2, k512, LoadBlock(data + 32));
        a3 = Fold(a3, k512, LoadBlock(data + 48));
    }
    const __m128i k128 = _mm_set_epi64x(static_cast<int64_t>(kFold128Hi), static_cast<int64_t>(kFold128Lo));
    __m128i acc = Fold(Fold(Fold(a0, k128, a1), k128, a2), k128, a3);
    for (; count >= 16; data += 16, count -= 16) {
        acc = Fold(acc, k128, LoadBlock(data));
    }
    return UpdateSliced(Reduce(acc), data, count);
}

}  // namespace krv::crc

#else  // no carry-less multiplication on this architecture: the tables serve every length

namespace krv::crc {

bool FoldSupported()
{
    return false;
}

uint32_t UpdateFolded(uint32_t crc, const uint8_t *data, size_t count)
{
    return UpdateSliced(crc, data, count);
}

}  // namespace krv::crc

#endif
