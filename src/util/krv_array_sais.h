// SA-IS: the linear-time induced-sorting suffix-array construction behind KRV_ArraySaSort.
#ifndef KRV_ARRAY_SAIS_H
#define KRV_ARRAY_SAIS_H

#include <cstdint>

namespace krv::array {

// Sorts the suffixes of t[0..n) into sa[0..n). Symbols lie in 0..k-1 and t[n-1] == 0 is the unique
// smallest (the sentinel), n >= 2. Every recursion level allocates one bucket area of 2k words and
// frees it before returning. Returns KRV_OK, or KRV_ERR_NOMEM after reporting the refused bucket
// area (sa is then undefined).
uint32_t SaisBuild(const int64_t *t, int64_t *sa, int64_t n, int64_t k);
// The same for a text of at most 65536 symbols held in 16 bits each: a quarter of the cache
// footprint for the byte level, whose random reads of the text dominate.
uint32_t SaisBuild(const uint16_t *t, int64_t *sa, int64_t n, int64_t k);

}  // namespace krv::array

#endif  // KRV_ARRAY_SAIS_H
