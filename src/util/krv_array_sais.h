// SA-IS: the linear-time induced-sorting suffix-array construction behind KRV_ArraySaSort.
#ifndef KRV_ARRAY_SAIS_H
#define KRV_ARRAY_SAIS_H

#include <cstdint>

namespace krv::array {

// Sorts the suffixes of t[0..n) into sa[0..n). Symbols lie in 0..k-1 (k <= 65536, held in 16 bits:
// a quarter of the cache footprint of 64-bit ones, and the random reads of the text dominate) and
// t[n-1] == 0 is the unique smallest (the sentinel); n >= 2. The reduced strings of the recursion are
// 64-bit. Every level allocates one bucket area of 2k words (k: its alphabet size) and frees it
// before returning. Returns KRV_OK, or KRV_ERR_NOMEM after reporting the refused bucket area (sa is
// then undefined).
uint32_t SaisBuild(const uint16_t *t, int64_t *sa, int64_t n, int64_t k);

}  // namespace krv::array

#endif  // KRV_ARRAY_SAIS_H
