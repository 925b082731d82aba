// Decimal conversion of the dialect's numbers; see krv_json_number.h.
//
// A mantissa of at most 15 digits is below 2^53 and every power of ten up to 10^22 is a double, so
// both are exact and one IEEE division (or none) rounds the quotient correctly: the result is the
// correctly rounded value of the text, which is what strtod returns too, in every rounding mode.
// The range stays far from overflow and underflow, so strtod would not have set errno either.
#include "json/krv_json_number.h"

namespace {

constexpr uint32_t kMaxExactDigits = 15;
constexpr uint32_t kMaxExactScale = 22;
constexpr double kPowersOfTen[kMaxExactScale + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                      1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                      1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

bool IsDigit(char byte)
{
    return static_cast<unsigned char>(byte - '0') <= 9;
}

/* Appends the digits at p to *mantissa (which wraps once past 19 digits; it is used only up to 15)
 * and returns the first byte after them. */
const char *DigitsTake(const char *p, uint64_t *mantissa)
{
    uint64_t value = *mantissa;
    for (; IsDigit(*p); ++p) {
        value = value * 10 + static_cast<uint64_t>(*p - '0');
    }
    *mantissa = value;
    return p;
}

/* Leading zeros are not significant. */
const char *ZerosSkip(const char *p)
{
    while (*p == '0') {
        ++p;
    }
    return p;
}

}  // namespace

namespace krv {
namespace json {

Decimal DecimalScan(const char *text)
{
    uint64_t mantissa = 0;
    const char *first = ZerosSkip(text);  // first significant digit, if the integer part has one
    const char *end = DigitsTake(first, &mantissa);
    uint32_t significant = static_cast<uint32_t>(end - first);
    uint32_t scale = 0;
    if (*end == '.') {
        const char *fraction = end + 1;
        first = significant == 0 ? ZerosSkip(fraction) : fraction;
        end = DigitsTake(first, &mantissa);
        significant += static_cast<uint32_t>(end - first);
        scale = static_cast<uint32_t>(end - fraction);
    }
    Decimal result = {static_cast<uint32_t>(end - text), false, 0.0};
    if (significant == 0) {
        result.exact = true;  // all zeros: +0.0 whatever the scale
    } else if (significant <= kMaxExactDigits && scale <= kMaxExactScale) {
        result.exact = true;
        result.value = static_cast<double>(mantissa) / kPowersOfTen[scale];
    }
    return result;
}

}  // namespace json
}  // namespace krv
