/* CRC-32 over the generator 0x04C11DB7, most significant bit first, without reflection. */
#ifndef KRV_CRC_H
#define KRV_CRC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Updates *crc in place over count bytes of data; returns KRV_OK, or KRV_ERR_FAILED (null data or crc,
   count 0; logged).
   No initial value and no final XOR are applied: seed *crc with 0xFFFFFFFF and XOR the result with
   0xFFFFFFFF for the usual check value 0xFC891918 of "123456789". Pieces compose: updating over a
   then b equals one update over a followed by b. */
uint32_t KRV_Crc32bitMake(const uint8_t *data, uint32_t count, uint32_t *crc);

#ifdef __cplusplus
}
#endif

#endif /* KRV_CRC_H */
