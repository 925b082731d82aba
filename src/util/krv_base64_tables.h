// Lookup tables of the Base64 codec, built at compile time from the alphabet.
#ifndef KRV_BASE64_TABLES_H
#define KRV_BASE64_TABLES_H

#include <cstdint>

namespace krv::base64 {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadChar = '=';

// Byte classes: 0..63 are alphabet values, then these three.
constexpr uint8_t kClassSkip = 64;     // line feed, carriage return, space
constexpr uint8_t kClassPad = 65;      // '='
constexpr uint8_t kClassInvalid = 66;  // everything else, tab and NUL included

struct ClassTable {
    uint8_t of[256];
};

constexpr ClassTable MakeClassTable()
{
    ClassTable t{};
    for (uint8_t &c : t.of) {
        c = kClassInvalid;
    }
    for (uint8_t v = 0; v < 64; ++v) {
        t.of[static_cast<uint8_t>(kAlphabet[v])] = v;
    }
    t.of[static_cast<uint8_t>('\n')] = kClassSkip;
    t.of[static_cast<uint8_t>('\r')] = kClassSkip;
    t.of[static_cast<uint8_t>(' ')] = kClassSkip;
    t.of[static_cast<uint8_t>(kPadChar)] = kClassPad;
    return t;
}

inline constexpr ClassTable kClass = MakeClassTable();

// Two output characters for each 12-bit group, so one lookup serves half a quantum.
struct PairTable {
    char pair[4096][2];
};

constexpr PairTable MakePairTable()
{
    PairTable t{};
    for (unsigned i = 0; i < 4096; ++i) {
        t.pair[i][0] = kAlphabet[i >> 6];
        t.pair[i][1] = kAlphabet[i & 63];
    }
    return t;
}

inline constexpr PairTable kPairs = MakePairTable();

// Decoding: the character at position p of a quantum, looked up in slot[p], lands its six bits
// where the three decoded bytes sit in a little-endian word (byte 0 lowest). ORing the four
// lookups gives the word; any non-alphabet character sets kQuantumBad instead.
constexpr uint32_t kQuantumBad = 1u << 24;

struct QuantumTable {
    uint32_t slot[4][256];
};

constexpr QuantumTable MakeQuantumTable()
{
    QuantumTable t{};
    for (unsigned c = 0; c < 256; ++c) {
        uint32_t v = kClass.of[c];
        if (v >= 64) {
            for (auto &slot : t.slot) {
                slot[c] = kQuantumBad;
            }
            continue;
        }
        t.slot[0][c] = v << 2;                               // byte 0, high six bits
        t.slot[1][c] = (v >> 4) | ((v & 0x0Fu) << 12);       // byte 0 low two, byte 1 high four
        t.slot[2][c] = ((v >> 2) << 8) | ((v & 0x03u) << 22);  // byte 1 low four, byte 2 high two
        t.slot[3][c] = v << 16;                              // byte 2, low six bits
    }
    return t;
}

inline constexpr QuantumTable kQuantum = MakeQuantumTable();

}  // namespace krv::base64

#endif  // KRV_BASE64_TABLES_H
