/* Small text helpers. A blank is the space character only; tabs and newlines are kept. Failures are
 * reported through KRV_LogWrite at level 2 with the returned status. */
#ifndef KRV_STRLIB_H
#define KRV_STRLIB_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns true when every byte of str is '0'..'9' (so also for ""); false otherwise or for null. */
bool KRV_StrIsDecDigit(const char *str);
/* Stores the value 0..15 of the hex digit ch in *value (which must not be null); returns 0 or 22. */
uint32_t KRV_StrlibHexCharToUint8(char ch, uint8_t *value);
/* Parses a decimal number as "%lu" does (leading whitespace skipped, trailing text ignored) into *value;
   returns 0, 1 (no number) or 22 (null argument). */
uint32_t KRV_StrlibStrToUint64(const char *str, uint64_t *value);
/* Strips spaces from both ends of str in place; len must be strlen(str). Returns 0, or 22 for null or len 0. */
uint32_t KRV_StrlibSpaceDelete(char *str, size_t len);
/* Copies the first len bytes of str without surrounding spaces into out (at least len + 1 bytes, may be
   str itself), NUL-terminated, and their count into *outLen; returns 0 or 22 (null argument). */
uint32_t KRV_StrlibSpaceDeleteEx(const char *str, size_t len, char *out, size_t *outLen);

#ifdef __cplusplus
}
#endif

#endif /* KRV_STRLIB_H */
