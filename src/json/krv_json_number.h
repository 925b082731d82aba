// Decimal conversion of the dialect's numbers: unsigned digits with at most one dot.
#ifndef KRV_JSON_NUMBER_H
#define KRV_JSON_NUMBER_H

#include <cstdint>

namespace krv {
namespace json {

// What DecimalScan found at a number: its length in bytes and, when exact is set, its value,
// bit for bit the double strtod would give for those bytes.
struct Decimal {
    uint32_t length;
    bool exact;
    double value;
};

// Scans the number that starts at text (digits, at most one dot, stopping before any other byte,
// the terminating NUL included) and converts it without copying when that is exact: up to 15
// significant digits and 22 fraction digits, or no significant digit at all. Anything else is
// left to strtod (exact is false); it is rare in configuration text.
Decimal DecimalScan(const char *text);

}  // namespace json
}  // namespace krv

#endif  // KRV_JSON_NUMBER_H
