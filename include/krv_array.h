/* Suffix-array sort of a byte string (linear-time induced sorting). */
#ifndef KRV_ARRAY_H
#define KRV_ARRAY_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Fills sa[0..len-1] with the start positions of data's suffixes in ascending order (a proper prefix
   sorts first); returns 0, 22 (len != saLen, len 0, or a null pointer; sa untouched) or 12 (out of
   memory; sa untouched). Both buffers stay the caller's; the library allocates 16 * (len + 1) bytes
   plus small bucket areas and frees them before returning. */
uint32_t KRV_ArraySaSort(const uint8_t *data, size_t len, size_t *sa, size_t saLen);

#ifdef __cplusplus
}
#endif

#endif /* KRV_ARRAY_H */
