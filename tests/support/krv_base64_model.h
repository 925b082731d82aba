// A deliberately plain Base64 decoder, character by character, against which the table-driven one is
// compared in the tests and the fuzz targets. Results use the library's codes; memory is not modelled.
#ifndef KRV_BASE64_MODEL_H
#define KRV_BASE64_MODEL_H

#include <cstdint>
#include <cstring>
#include <string>

#include "krv_base64.h"

namespace krvtest {

struct Base64Result {
    uint32_t code;
    std::string bytes;
    bool operator==(const Base64Result &o) const { return code == o.code && bytes == o.bytes; }
};

inline int Base64ModelValue(char c)
{
    const char *alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char *at = c != '\0' ? std::strchr(alphabet, c) : nullptr;
    return at != nullptr ? static_cast<int>(at - alphabet) : -1;
}

inline bool Base64ModelSkip(char c) { return c == '\n' || c == '\r' || c == ' '; }

inline Base64Result Base64ModelDecode(const char *str)
{
    size_t n = std::strlen(str);
    if (n == 0) {
        return {KRV_BASE64_ERR_MALLOC, {}};
    }
    std::string chars;
    size_t i = 0;
    bool padded = false;
    for (; i < n; ++i) {
        if (str[i] == '=') {
            padded = true;
            break;
        }
        if (Base64ModelSkip(str[i])) {
            continue;
        }
        if (Base64ModelValue(str[i]) < 0) {
            return {KRV_BASE64_ERR_DECODE, {}};
        }
        chars += str[i];
    }
    size_t m = chars.size();
    if (padded) {
        size_t e = (i - m) + (m + 3) / 4 * 4;
        if (n < e) {
            return {KRV_BASE64_ERR_DECODE, {}};
        }
        if (e > i) {
            size_t j = i;
            for (; j < e; ++j) {
                if (Base64ModelSkip(str[j])) {
                    ++e;
                } else if (str[j] != '=') {
                    return {KRV_BASE64_ERR_DECODE, {}};
                }
            }
            for (; j < n; ++j) {
                if (!Base64ModelSkip(str[j])) {
                    return {KRV_BASE64_ERR_DECODE, {}};
                }
            }
        } else if (i + 1 < n) {
            return {KRV_BASE64_ERR_DECODE, {}};
        }
    }
    std::string out;
    for (size_t q = 0; q < m; q += 4) {
        size_t r = std::min<size_t>(4, m - q);
        uint32_t bits = 0;
        for (size_t k = 0; k < 4; ++k) {
            bits = bits << 6 | (k < r ? static_cast<uint32_t>(Base64ModelValue(chars[q + k])) : 0);
        }
        for (size_t b = 0; b + 1 < r; ++b) {  // r characters carry r - 1 bytes
            out += static_cast<char>(bits >> (16 - 8 * b));
        }
    }
    return {KRV_OK, out};
}

}  // namespace krvtest

#endif  // KRV_BASE64_MODEL_H
