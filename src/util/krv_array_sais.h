// SA-IS: the linear-time induced-sorting suffix-array construction behind KRV_ArraySaSort.
#ifndef KRV_ARRAY_SAIS_H
#define KRV_ARRAY_SAIS_H

#include <cstdint>

namespace krv::array {

// Sorts the suffixes of bytes[0..len) followed by a sentinel smaller than every byte into
// sa[0..len]: sa[0] is then len, the sentinel's own suffix. len >= 1. sa has room for 2 * (len + 1)
// words: the upper half is scratch (the LMS positions of every level). Word is int32_t (for
// len < INT32_MAX: half the memory traffic) or int64_t; the reduced strings of the recursion use the
// same word type inside sa[0..len]. Every level allocates one bucket area of 2k 8-byte words (k: its
// alphabet size, 257 at the byte level) and frees it before returning. Returns KRV_OK, or
// KRV_ERR_NOMEM after reporting the refused bucket area (sa is then undefined).
template <typename Word>
uint32_t SaisBuild(const uint8_t *bytes, Word len, Word *sa);

extern template uint32_t SaisBuild<int32_t>(const uint8_t *bytes, int32_t len, int32_t *sa);
extern template uint32_t SaisBuild<int64_t>(const uint8_t *bytes, int64_t len, int64_t *sa);

}  // namespace krv::array

#endif  // KRV_ARRAY_SAIS_H
