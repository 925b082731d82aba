// Division of 64-bit values by a 32-bit divisor fixed in advance, as one multiplication and shifts.
//
// The round-up method of Granlund and Montgomery: with l = ceil(log2 d) and
// m = floor(2^64 * (2^l - d) / d) + 1, every n below 2^64 gives
// n / d == (t + ((n - t) >> min(l, 1))) >> max(l - 1, 0), where t = (m * n) >> 64.
// Hot paths that divide by one base over and over (the system tick) use it instead of a divide
// instruction; results are identical for every n.
#ifndef KRV_ARITH_DIVIDER_H
#define KRV_ARITH_DIVIDER_H

#include <cassert>
#include <cstdint>

namespace krv {

__extension__ using Uint128 = unsigned __int128;

struct Divider64By32 {
    uint64_t magic = 1;  // m; with both shifts 0 the divisor is 1
    uint8_t shift1 = 0;
    uint8_t shift2 = 0;

    // Prepares division by divisor, which must not be 0.
    static Divider64By32 Make(uint32_t divisor)
    {
        assert(divisor != 0);
        Divider64By32 d;
        unsigned l = divisor == 1 ? 0u : 32u - static_cast<unsigned>(__builtin_clz(divisor - 1));
        d.magic = static_cast<uint64_t>((Uint128(1) << 64) * ((uint64_t{1} << l) - divisor) / divisor) + 1;
        d.shift1 = static_cast<uint8_t>(l < 1 ? l : 1);
        d.shift2 = static_cast<uint8_t>(l > 1 ? l - 1 : 0);
        return d;
    }

    // n / divisor, truncated.
    uint64_t Divide(uint64_t n) const
    {
        uint64_t t = static_cast<uint64_t>((Uint128(magic) * n) >> 64);
        return (t + ((n - t) >> shift1)) >> shift2;
    }
};

}  // namespace krv

#endif  // KRV_ARITH_DIVIDER_H
