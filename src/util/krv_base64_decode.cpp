// Base64 decoder: whole quanta of four alphabet characters go through the quantum table in one step;
// line breaks, spaces, padding and the end of the text take the character-by-character path.
#include <cstring>

#include "krv_base64.h"
#include "krv_osal.h"
#include "krv_status.h"
#include "osal/krv_bounded.h"
#include "util/krv_base64_tables.h"

namespace {

using krv::base64::kClass;
using krv::base64::kClassInvalid;
using krv::base64::kClassPad;
using krv::base64::kClassSkip;
using krv::base64::kQuantum;
using krv::base64::kQuantumBad;

constexpr size_t kNoPad = SIZE_MAX;

// What a scan found: alphabet characters, where the first '=' stood, decoded bytes.
struct Scan {
    size_t chars;
    size_t padAt;
    size_t bytes;
};

// Stores the three bytes of a quantum word, plus one byte of slack the caller has room for.
inline void PutQuantum(uint8_t *out, uint32_t word)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap32(word);
#endif
    std::memcpy(out, &word, sizeof word);
}

// Decodes whole quanta from s[*pos] while all four characters are alphabet characters and four more
// bytes of the text remain; out needs one byte of slack beyond what it receives (the scratch buffer,
// as long as the text, always has it). Returns the new output position.
uint8_t *DecodeQuanta(const uint8_t *s, size_t n, size_t *pos, uint8_t *out)
{
    size_t p = *pos;
    while (n - p >= 8) {
        uint32_t a = kQuantum.slot[0][s[p]] | kQuantum.slot[1][s[p + 1]] | kQuantum.slot[2][s[p + 2]] |
                     kQuantum.slot[3][s[p + 3]];
        uint32_t b = kQuantum.slot[0][s[p + 4]] | kQuantum.slot[1][s[p + 5]] | kQuantum.slot[2][s[p + 6]] |
                     kQuantum.slot[3][s[p + 7]];
        if (((a | b) & kQuantumBad) != 0) {
            break;
        }
        PutQuantum(out, a);
        PutQuantum(out + 3, b);
        out += 6;
        p += 8;
    }
    while (n - p >= 4) {
        uint32_t a = kQuantum.slot[0][s[p]] | kQuantum.slot[1][s[p + 1]] | kQuantum.slot[2][s[p + 2]] |
                     kQuantum.slot[3][s[p + 3]];
        if ((a & kQuantumBad) != 0) {
            break;
        }
        PutQuantum(out, a);
        out += 3;
        p += 4;
    }
    *pos = p;
    return out;
}

// Decodes the n-byte text s into out (at least n bytes) up to its end or its first '='.
// Returns false when the text holds a byte outside the alphabet, the skip set and '='.
bool DecodeText(const uint8_t *s, size_t n, uint8_t *out, Scan *scan)
{
    uint8_t *o = out;
    size_t pos = 0;
    size_t chars = 0;
    uint32_t quad = 0;  // alphabet values of the quantum being gathered, six bits each
    unsigned held = 0;
    scan->padAt = kNoPad;
    for (;;) {
        if (held == 0) {
            size_t from = pos;
            o = DecodeQuanta(s, n, &pos, o);
            chars += pos - from;
        }
        if (pos == n) {
            break;
        }
        uint8_t v = kClass.of[s[pos]];
        if (v < 64) {
            quad = quad << 6 | v;
            ++chars;
            if (++held == 4) {
                o[0] = static_cast<uint8_t>(quad >> 16);
                o[1] = static_cast<uint8_t>(quad >> 8);
                o[2] = static_cast<uint8_t>(quad);
                o += 3;
                held = 0;
                quad = 0;
            }
        } else if (v == kClassPad) {
            scan->padAt = pos;
            break;
        } else if (v == kClassInvalid) {
            return false;
        }
        ++pos;
    }
    // A last quantum of two or three characters carries one or two bytes; a lone character none.
    if (held == 2) {
        *o++ = static_cast<uint8_t>(quad >> 4);
    } else if (held == 3) {
        *o++ = static_cast<uint8_t>(quad >> 10);
        *o++ = static_cast<uint8_t>(quad >> 2);
    }
    scan->chars = chars;
    scan->bytes = static_cast<size_t>(o - out);
    return true;
}

// m rounded up to a multiple of four, without overflow for any length a text can have.
size_t RoundUpToQuantum(size_t m)
{
    return m / 4 * 4 + (m % 4 != 0 ? 4 : 0);
}

// Padding must complete the data to whole quanta, and only skip bytes may follow it.
bool PaddingValid(const uint8_t *s, size_t n, const Scan &scan)
{
    size_t i = scan.padAt;
    size_t end = (i - scan.chars) + RoundUpToQuantum(scan.chars);  // skipped bytes + data rounded up
    if (n < end) {
        return false;
    }
    if (end <= i) {
        return i + 1 == n;
    }
    size_t j = i;
    // Skip bytes among the '=' push the end further; the terminator, being invalid, stops the walk.
    for (; j < end; ++j) {
        uint8_t v = kClass.of[s[j]];
        if (v == kClassSkip) {
            ++end;
        } else if (v != kClassPad) {
            return false;
        }
    }
    for (; j < n; ++j) {
        if (kClass.of[s[j]] != kClassSkip) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" uint32_t KRV_Base64Decode(const char *str, uint8_t **decoded, size_t *decodedLen)
{
    if (str == nullptr || decoded == nullptr || decodedLen == nullptr) {
        return KRV_BASE64_ERR_PARAM;
    }
    size_t n = std::strlen(str);
    // The empty text fails here too: a zero-byte block is never handed out.
    auto *scratch = static_cast<uint8_t *>(KRV_OsalMemAlloc(n));
    if (scratch == nullptr) {
        return KRV_BASE64_ERR_MALLOC;
    }
    const auto *s = reinterpret_cast<const uint8_t *>(str);
    Scan scan{};
    uint32_t rc = KRV_BASE64_ERR_DECODE;
    if (DecodeText(s, n, scratch, &scan) && (scan.padAt == kNoPad || PaddingValid(s, n, scan))) {
        // Sized for whole quanta as callers have always received it, plus the terminator.
        size_t size = RoundUpToQuantum(scan.chars) / 4 * 3 + 1;
        auto *result = static_cast<uint8_t *>(KRV_OsalMemAlloc(size));
        if (result == nullptr) {
            rc = KRV_BASE64_ERR_MALLOC;
        } else {
            if (scan.bytes > 0) {
                krv::memcpy_s(result, size, scratch, scan.bytes);
            }
            result[scan.bytes] = 0;
            *decoded = result;
            *decodedLen = scan.bytes;
            rc = KRV_OK;
        }
    }
    KRV_OsalMemFree(scratch);
    return rc;
}
