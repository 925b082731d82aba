// Big-endian byte sequences and network byte order.
#include "krv_stream.h"

#include "krv_status.h"

namespace {

// Most significant byte first, for any width up to 8 bytes.
uint64_t ReadBigEndian(const uint8_t *buf, size_t width)
{
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value = (value << 8) | buf[i];
    }
    return value;
}

void WriteBigEndian(uint64_t value, uint8_t *buf, size_t width)
{
    for (size_t i = width; i-- > 0;) {
        buf[i] = static_cast<uint8_t>(value);
        value >>= 8;
    }
}

// Readers check the length and the output before the input buffer.
template <typename T>
uint32_t ReadChecked(const uint8_t *buf, size_t len, T *value, size_t width)
{
    if (len != width || value == nullptr || buf == nullptr) {
        return KRV_ERR_INVALID;
    }
    *value = static_cast<T>(ReadBigEndian(buf, width));
    return KRV_OK;
}

// Writers check the output buffer before the length.
uint32_t WriteChecked(uint64_t value, uint8_t *buf, size_t len, size_t width)
{
    if (buf == nullptr || len != width) {
        return KRV_ERR_INVALID;
    }
    WriteBigEndian(value, buf, width);
    return KRV_OK;
}

}  // namespace

extern "C" {

uint32_t KRV_StreamByteToUint16(const uint8_t *buf, size_t len, uint16_t *value)
{
    return ReadChecked(buf, len, value, 2);
}

uint32_t KRV_StreamUint16ToByte(uint16_t value, uint8_t *buf, size_t len)
{
    return WriteChecked(value, buf, len, 2);
}

uint32_t KRV_StreamByteToUint24(const uint8_t *buf, size_t len, uint64_t *value)
{
    return ReadChecked(buf, len, value, 3);
}

/* Only bits 0-23 leave: the higher ones are shifted out by the writer. */
uint32_t KRV_StreamUint24ToByte(uint64_t value, uint8_t *buf, size_t len)
{
    return WriteChecked(value, buf, len, 3);
}

uint32_t KRV_StreamByteToUint32(const uint8_t *buf, size_t len, uint32_t *value)
{
    return ReadChecked(buf, len, value, 4);
}

uint32_t KRV_StreamUint32ToByte(uint32_t value, uint8_t *buf, size_t len)
{
    return WriteChecked(value, buf, len, 4);
}

uint32_t KRV_StreamByteToUint64(const uint8_t *buf, size_t len, uint64_t *value)
{
    return ReadChecked(buf, len, value, 8);
}

uint32_t KRV_StreamUint64ToByte(uint64_t value, uint8_t *buf, size_t len)
{
    return WriteChecked(value, buf, len, 8);
}

/* The host is little-endian, so both directions are the same byte reversal: one body per width,
   the host-to-network name is an alias of the same entry point. */
uint16_t KRV_StreamNetToHostUint16(uint16_t value)
{
    return __builtin_bswap16(value);
}
uint16_t KRV_StreamHostToNetUint16(uint16_t value) __attribute__((alias("KRV_StreamNetToHostUint16")));

uint32_t KRV_StreamNetToHostUint32(uint32_t value)
{
    return __builtin_bswap32(value);
}
uint32_t KRV_StreamHostToNetUint32(uint32_t value) __attribute__((alias("KRV_StreamNetToHostUint32")));

uint64_t KRV_StreamNetToHostUint64(uint64_t value)
{
    return __builtin_bswap64(value);
}
uint64_t KRV_StreamHostToNetUint64(uint64_t value) __attribute__((alias("KRV_StreamNetToHostUint64")));

}  // extern "C"
