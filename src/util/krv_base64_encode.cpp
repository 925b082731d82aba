// Base64 encoder: whole six-byte groups through the pair table, then the last quanta.
#include <cstring>

#include "krv_base64.h"
#include "krv_osal.h"
#include "krv_status.h"
#include "osal/krv_bounded.h"
#include "util/krv_base64_tables.h"

namespace {

using krv::base64::kPairs;

// The buffer holds 65 bytes for every started 48 input bytes: room for 64 characters and a line break,
// although no line breaks are written. Callers have always received buffers of this size.
constexpr size_t kLineInput = 48;
constexpr size_t kLineBytes = 65;
constexpr size_t kMaxCapacity = 0x20000000;

static_assert((KRV_BASE64_ENCODE_MAX_LEN / kLineInput + 1) * kLineBytes <= kMaxCapacity &&
                  ((KRV_BASE64_ENCODE_MAX_LEN + 1) / kLineInput + 1) * kLineBytes > kMaxCapacity,
              "the public length limit follows from the capacity limit");

// The buffer size for dataLen bytes, or 0 when it overflows or passes the limit.
size_t Capacity(size_t dataLen)
{
    size_t lines = dataLen / kLineInput;
    if (lines > SIZE_MAX / kLineBytes - 1) {
        return 0;
    }
    size_t capacity = (lines + 1) * kLineBytes;
    return capacity <= kMaxCapacity ? capacity : 0;
}

// Eight bytes from p, the first the most significant.
uint64_t LoadBigEndian64(const uint8_t *p)
{
    uint64_t x;
    std::memcpy(&x, p, sizeof x);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    x = __builtin_bswap64(x);
#endif
    return x;
}

// Writes the characters of the 12-bit group g at out.
inline void PutPair(char *out, uint32_t g)
{
    std::memcpy(out, kPairs.pair[g], 2);
}

// Encodes len bytes of in at out without terminator; returns the number of characters written.
size_t EncodeInto(const uint8_t *in, size_t len, char *out)
{
    char *o = out;
    // Eight-byte loads take six bytes each: the last two of each load belong to the next group.
    while (len >= 8) {
        uint64_t x = LoadBigEndian64(in);
        PutPair(o, static_cast<uint32_t>(x >> 52));
        PutPair(o + 2, static_cast<uint32_t>(x >> 40) & 0xFFFu);
        PutPair(o + 4, static_cast<uint32_t>(x >> 28) & 0xFFFu);
        PutPair(o + 6, static_cast<uint32_t>(x >> 16) & 0xFFFu);
        in += 6;
        len -= 6;
        o += 8;
    }
    for (; len >= 3; in += 3, len -= 3, o += 4) {
        uint32_t x = static_cast<uint32_t>(in[0]) << 16 | static_cast<uint32_t>(in[1]) << 8 | in[2];
        PutPair(o, x >> 12);
        PutPair(o + 2, x & 0xFFFu);
    }
    if (len > 0) {
        uint32_t x = static_cast<uint32_t>(in[0]) << 16 | (len == 2 ? static_cast<uint32_t>(in[1]) << 8 : 0);
        PutPair(o, x >> 12);
        PutPair(o + 2, x & 0xFFFu);
        o[3] = krv::base64::kPadChar;
        if (len == 1) {
            o[2] = krv::base64::kPadChar;
        }
        o += 4;
    }
    return static_cast<size_t>(o - out);
}

}  // namespace

extern "C" uint32_t KRV_Base64Encode(const uint8_t *data, size_t dataLen, char **encoded)
{
    if (data == nullptr || encoded == nullptr || dataLen == 0) {
        return KRV_BASE64_ERR_PARAM;
    }
    size_t capacity = Capacity(dataLen);
    if (capacity == 0) {
        return KRV_BASE64_ERR_PARAM;
    }
    auto *text = static_cast<char *>(KRV_OsalMemAlloc(capacity));
    if (text == nullptr) {
        *encoded = nullptr;
        return KRV_BASE64_ERR_MALLOC;
    }
    size_t used = EncodeInto(data, dataLen, text);
    // The whole buffer reads as zero-filled, as callers have always seen it; only the unwritten tail
    // needs the fill. It also supplies the terminator.
    krv::memset_s(text + used, capacity - used, 0, capacity - used);
    *encoded = text;
    return KRV_OK;
}
