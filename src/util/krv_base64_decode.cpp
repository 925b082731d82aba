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

// The three bytes of the quantum at q in a little-endian word, or a word with kQuantumBad set.
inline uint32_t QuantumWord(const uint8_t *q)
{
    return kQuantum.slot[0][q[0]] | kQuantum.slot[1][q[1]] | kQuantum.slot[2][q[2]] | kQuantum.slot[3][q[3]];
}

// Decodes whole quanta from s[*pos] while all four characters are alphabet characters and four more
// bytes of the text remain. Each store writes one byte beyond its quantum; a block of ResultSize()
// of the characters decoded so far always has that byte. Returns the new output position.
uint8_t *DecodeQuanta(const uint8_t *s, size_t n, size_t *pos, uint8_t *out)
{
    size_t p = *pos;
    while (n - p >= 8) {
        uint32_t a = QuantumWord(s + p);
        uint32_t b = QuantumWord(s + p + 4);
        if (((a | b) & kQuantumBad) != 0) {
            break;
        }
        PutQuantum(out, a);
        PutQuantum(out + 3, b);
        out += 6;
        p += 8;
    }
    while (n - p >= 4) {
        uint32_t a = QuantumWord(s + p);
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

// Decodes the n-byte text s up to its end or its first '='. out needs room for the decoded bytes and
// the one byte of slack the quantum stores use: a block of ResultSize of the text's alphabet
// characters, or one as long as the text, has it.
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

// m rounded up to a multiple of four. m never exceeds a text's length, and no object is longer than
// PTRDIFF_MAX, so neither this nor the sizes derived from it (at most 3/4 of it, plus one) can wrap.
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

// Bytes of the result block for m alphabet characters: whole quanta, as callers have always
// received it, plus the terminator.
size_t ResultSize(size_t m)
{
    return RoundUpToQuantum(m) / 4 * 3 + 1;
}

// Decodes s into out (ResultSize of its alphabet characters at least) and applies the padding rules.
bool Decode(const uint8_t *s, size_t n, uint8_t *out, Scan *scan)
{
    return DecodeText(s, n, out, scan) && (scan->padAt == kNoPad || PaddingValid(s, n, *scan));
}

// An upper bound of the alphabet characters of s: every one of them stands before the trailing run of
// '=' and skip bytes. For a text without inner line breaks it is exact.
size_t AlphabetBound(const uint8_t *s, size_t n)
{
    while (n > 0 && kClass.of[s[n - 1]] >= kClassSkip && kClass.of[s[n - 1]] <= kClassPad) {
        --n;
    }
    return n;
}

}  // namespace

extern "C" uint32_t KRV_Base64Decode(const char *str, uint8_t **decoded, size_t *decodedLen)
{
    if (str == nullptr || decoded == nullptr || decodedLen == nullptr) {
        return KRV_BASE64_ERR_PARAM;
    }
    const auto *s = reinterpret_cast<const uint8_t *>(str);
    size_t n = std::strlen(str);
    // The text-sized scratch block comes first, so the empty text and a first refused allocation
    // both give KRV_BASE64_ERR_MALLOC whatever the text holds.
    auto *scratch = static_cast<uint8_t *>(KRV_OsalMemAlloc(n));
    if (scratch == nullptr) {
        return KRV_BASE64_ERR_MALLOC;
    }
    // Decode straight into a result sized for the bound; only a text whose characters fall short of
    // it needs a second, exact block. Without memory for the result, decoding into the scratch block
    // still tells a bad text (KRV_BASE64_ERR_DECODE) from a good one (KRV_BASE64_ERR_MALLOC).
    size_t size = ResultSize(AlphabetBound(s, n));
    auto *result = static_cast<uint8_t *>(KRV_OsalMemAlloc(size));
    Scan scan{};
    uint32_t rc = KRV_BASE64_ERR_DECODE;
    if (result == nullptr) {
        rc = Decode(s, n, scratch, &scan) ? KRV_BASE64_ERR_MALLOC : KRV_BASE64_ERR_DECODE;
    } else if (Decode(s, n, result, &scan)) {
        rc = KRV_OK;
        size_t exact = ResultSize(scan.chars);
        if (exact != size) {
            auto *shrunk = static_cast<uint8_t *>(KRV_OsalMemAlloc(exact));
            if (shrunk == nullptr) {
                rc = KRV_BASE64_ERR_MALLOC;
            } else if (scan.bytes > 0) {
                krv::memcpy_s(shrunk, exact, result, scan.bytes);
            }
            KRV_OsalMemFree(result);
            result = shrunk;
        }
    }
    if (rc == KRV_OK) {
        result[scan.bytes] = 0;
        *decoded = result;
        *decodedLen = scan.bytes;
    } else {
        KRV_OsalMemFree(result);
    }
    KRV_OsalMemFree(scratch);
    return rc;
}
