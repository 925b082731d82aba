// The table engine: slicing-by-16 with tables generated at compile time.
#include <cstring>

#include "util/krv_crc_internal.h"

namespace krv::crc {
namespace {

constexpr int kSlices = 16;

// slice[k][i] is the CRC contribution of byte i followed by k zero bytes; slice[0] is the classic
// byte-at-a-time table.
struct SliceTables {
    uint32_t slice[kSlices][256];
};

constexpr SliceTables MakeTables()
{
    SliceTables t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i << 24;
        for (int bit = 0; bit < 8; ++bit) {
            c = (c & 0x80000000u) != 0 ? (c << 1) ^ kPoly : c << 1;
        }
        t.slice[0][i] = c;
    }
    for (int k = 1; k < kSlices; ++k) {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t prev = t.slice[k - 1][i];
            t.slice[k][i] = (prev << 8) ^ t.slice[0][prev >> 24];
        }
    }
    return t;
}

constexpr SliceTables kTables = MakeTables();
static_assert(kTables.slice[0][1] == 0x04C11DB7u && kTables.slice[0][128] == 0x690CE0EEu);

uint32_t LoadBigEndian32(const uint8_t *p)
{
    uint32_t word;
    std::memcpy(&word, p, sizeof word);
    return __builtin_bswap32(word);
}

// The four table lookups for one big-endian word whose last byte is `zeros` bytes from the end.
uint32_t Lookup4(uint32_t word, int zeros)
{
    const auto &s = kTables.slice;
    return s[zeros + 3][word >> 24] ^ s[zeros + 2][(word >> 16) & 0xFF] ^ s[zeros + 1][(word >> 8) & 0xFF] ^
           s[zeros][word & 0xFF];
}

}  // namespace

uint32_t UpdateSliced(uint32_t crc, const uint8_t *data, size_t count)
{
    while (count >= kSlices) {
        uint32_t w0 = LoadBigEndian32(data) ^ crc;
        crc = Lookup4(w0, 12) ^ Lookup4(LoadBigEndian32(data + 4), 8) ^ Lookup4(LoadBigEndian32(data + 8), 4) ^
              Lookup4(LoadBigEndian32(data + 12), 0);
        data += kSlices;
        count -= kSlices;
    }
    for (; count > 0; --count, ++data) {
        crc = (crc << 8) ^ kTables.slice[0][(crc >> 24) ^ *data];
    }
    return crc;
}

}  // namespace krv::crc
