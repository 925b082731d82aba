/* Big-endian byte sequences and network byte order. Allocation-free; nothing is logged. */
#ifndef KRV_STREAM_H
#define KRV_STREAM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Reads 2 big-endian bytes of buf into *value; returns KRV_OK, or KRV_ERR_INVALID (len not 2, or a null
   pointer; *value untouched). */
uint32_t KRV_StreamByteToUint16(const uint8_t *buf, size_t len, uint16_t *value);
/* Writes value as 2 big-endian bytes into buf; returns KRV_OK, or KRV_ERR_INVALID (null buf or len not 2). */
uint32_t KRV_StreamUint16ToByte(uint16_t value, uint8_t *buf, size_t len);
/* Reads 3 big-endian bytes of buf into the whole 64-bit *value; returns KRV_OK or KRV_ERR_INVALID (len not 3,
   or a null pointer). */
uint32_t KRV_StreamByteToUint24(const uint8_t *buf, size_t len, uint64_t *value);
/* Writes bits 0-23 of value as 3 big-endian bytes into buf; returns KRV_OK or KRV_ERR_INVALID (null buf or
   len not 3). */
uint32_t KRV_StreamUint24ToByte(uint64_t value, uint8_t *buf, size_t len);
/* Reads 4 big-endian bytes of buf into *value; returns KRV_OK or KRV_ERR_INVALID (len not 4, or a null pointer). */
uint32_t KRV_StreamByteToUint32(const uint8_t *buf, size_t len, uint32_t *value);
/* Writes value as 4 big-endian bytes into buf; returns KRV_OK or KRV_ERR_INVALID (null buf or len not 4). */
uint32_t KRV_StreamUint32ToByte(uint32_t value, uint8_t *buf, size_t len);
/* Reads 8 big-endian bytes of buf into *value; returns KRV_OK or KRV_ERR_INVALID (len not 8, or a null pointer). */
uint32_t KRV_StreamByteToUint64(const uint8_t *buf, size_t len, uint64_t *value);
/* Writes value as 8 big-endian bytes into buf; returns KRV_OK or KRV_ERR_INVALID (null buf or len not 8). */
uint32_t KRV_StreamUint64ToByte(uint64_t value, uint8_t *buf, size_t len);

/* Return value with its bytes reversed. Host to network and network to host are one function
   exported under both names. */
uint16_t KRV_StreamNetToHostUint16(uint16_t value); /* returns the 16-bit value in host order */
uint16_t KRV_StreamHostToNetUint16(uint16_t value); /* returns the 16-bit value in network order */
uint32_t KRV_StreamNetToHostUint32(uint32_t value); /* returns the 32-bit value in host order */
uint32_t KRV_StreamHostToNetUint32(uint32_t value); /* returns the 32-bit value in network order */
uint64_t KRV_StreamNetToHostUint64(uint64_t value); /* returns the 64-bit value in host order */
uint64_t KRV_StreamHostToNetUint64(uint64_t value); /* returns the 64-bit value in network order */

#ifdef __cplusplus
}
#endif

#endif /* KRV_STREAM_H */
