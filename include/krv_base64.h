/* Base64 (standard alphabet, '=' padding) encoding and decoding into freshly allocated buffers. */
#ifndef KRV_BASE64_H
#define KRV_BASE64_H

#include <stddef.h>
#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results besides 0 (KRV_OK). */
#define KRV_BASE64_ERR_MALLOC 0x650002u /* an allocation failed (also: decoding the empty text) */
#define KRV_BASE64_ERR_PARAM 0x650003u  /* null argument, nothing to encode, or input too long */
#define KRV_BASE64_ERR_DECODE 0x650028u /* the text is not acceptable Base64 */

/* Largest dataLen KRV_Base64Encode accepts. */
#define KRV_BASE64_ENCODE_MAX_LEN 396458495u

/* Encodes dataLen (1 .. KRV_BASE64_ENCODE_MAX_LEN) bytes into *encoded, a caller-owned NUL-terminated text
   without line breaks (free with KRV_OsalMemFree); returns 0, KRV_BASE64_ERR_PARAM or KRV_BASE64_ERR_MALLOC
   (then *encoded is null). */
uint32_t KRV_Base64Encode(const uint8_t *data, size_t dataLen, char **encoded);
/* Decodes the NUL-terminated str (CR, LF and space skipped) into *decoded, caller-owned (free with
   KRV_OsalMemFree), *decodedLen bytes followed by a NUL; returns 0, KRV_BASE64_ERR_PARAM,
   KRV_BASE64_ERR_MALLOC (also for "") or KRV_BASE64_ERR_DECODE. Outputs are written only on success. */
uint32_t KRV_Base64Decode(const char *str, uint8_t **decoded, size_t *decodedLen);

#ifdef __cplusplus
}
#endif

#endif /* KRV_BASE64_H */
