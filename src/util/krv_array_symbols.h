// What every level of the SA-IS construction shares: how it reads its text, the flag its suffix-array
// entries carry, how far ahead it fetches, and where its LMS positions are.
#ifndef KRV_ARRAY_SYMBOLS_H
#define KRV_ARRAY_SYMBOLS_H

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace krv::array {

// Bytes in 0..255 become symbols 1..256, leaving 0 for the sentinel.
inline constexpr int64_t kByteAlphabet = 257;

// How many slots ahead of a scan the memory it will read at random is fetched; passes over large
// alphabets fetch in three stages of this distance each.
inline constexpr int64_t kPrefetchAhead = 48;

// Prefetches have no side effects the optimiser can see, so an out-of-line helper made only of them
// counts as pure and its calls are deleted; forced inlining keeps them.
#define KRV_PREFETCH_INLINE __attribute__((always_inline)) inline

// The symbol at position i. The byte level reads the caller's bytes moved up by one; its sentinel
// (symbol 0 at n-1) lies past them and is never read: the passes handle it apart. A reduced string
// holds its names as they are, its sentinel 0 included.
template <typename Word, typename Sym>
inline Word At(const Sym *t, Word i)
{
    if constexpr (std::is_same_v<Sym, uint8_t>) {
        return static_cast<Word>(t[i]) + 1;
    } else {
        return t[i];
    }
}

// A suffix-array entry is a position; its top bit is set when the position's left neighbour is
// S-type. Empty slots hold 0, and so does position 0, which never induces anything.
template <typename Word>
inline constexpr Word kLeftIsS = std::numeric_limits<Word>::min();
template <typename Word>
inline constexpr Word kPositionBits = std::numeric_limits<Word>::max();

// Writes the LMS positions (S-type, left neighbour L-type) of t[0..n) to lms[0..m) in ascending order
// and returns m. The last is the sentinel n-1: n-2 is larger, hence L-type. The types are worked out
// from right to left without branches; the byte level never reads the sentinel itself.
template <typename Word, typename Sym>
Word FindLms(const Sym *t, Word n, Word *lms)
{
    Word m = 0;
    lms[m++] = n - 1;
    bool rightIsS = false;  // n-2
    Word right = At(t, n - 2);
    for (Word i = n - 3; i >= 0; --i) {
        const Word c = At(t, i);
        const bool isS = (c < right) | ((c == right) & rightIsS);
        lms[m] = i + 1;
        m += static_cast<Word>(!isS & rightIsS);
        rightIsS = isS;
        right = c;
    }
    std::reverse(lms, lms + m);
    return m;
}

}  // namespace krv::array

#endif  // KRV_ARRAY_SYMBOLS_H
