// The two CRC-32 engines behind KRV_Crc32bitMake, reachable on their own so that each can be
// checked against the byte-at-a-time definition.
//
// Both compute crc' = (crc * x^(8n) + M * x^32) mod P for the n-byte message M, with P = x^32 +
// 0x04C11DB7 taken most significant bit first: exactly what feeding one byte at a time through the
// 256-entry table gives.
#ifndef KRV_CRC_INTERNAL_H
#define KRV_CRC_INTERNAL_H

#include <cstddef>
#include <cstdint>

namespace krv::crc {

constexpr uint32_t kPoly = 0x04C11DB7u;  // x^32 is implied

// Slicing-by-16 over tables built at compile time; any length, any alignment.
uint32_t UpdateSliced(uint32_t crc, const uint8_t *data, size_t count);

// True when the processor multiplies carry-less (PCLMULQDQ with SSSE3 and SSE4.1).
bool FoldSupported();
// Shortest input worth the folding engine's set-up and final reduction.
constexpr size_t kFoldMinBytes = 64;
// Folds 64-byte blocks with carry-less multiplication and leaves the last few bytes to the tables.
// Only when FoldSupported(); count must be at least kFoldMinBytes.
uint32_t UpdateFolded(uint32_t crc, const uint8_t *data, size_t count);

}  // namespace krv::crc

#endif  // KRV_CRC_INTERNAL_H
