// Induced sorting of a reduced string whose names are mostly unique. Such a string is named
// sparsely: a symbol is 2 * h + repeated, h the slot of its bucket's head (the number of smaller
// symbols in the string), `repeated` set when it occurs more than once. A suffix whose symbol occurs
// once has its slot from the start, and an entry whose left neighbour is such a suffix has nothing
// to induce: the passes look only at "active" entries, whose left neighbour's symbol is repeated.
// Only repeated symbols have bucket pointers, indexed by their rank among repeated symbols.
#ifndef KRV_ARRAY_SPARSE_H
#define KRV_ARRAY_SPARSE_H

#include <algorithm>
#include <cassert>
#include <cstdint>

#include "util/krv_array_symbols.h"

namespace krv::array {

// An entry is its position with kLeftIsS and kActive. Positions stay below kActive: a sparse level is
// at most half as long as the byte string, whose positions fit in the word with a bit to spare.
template <typename Word>
inline constexpr Word kActive = kPositionBits<Word> / 2 + 1;
template <typename Word>
inline constexpr Word kFlags = kActive<Word> | kLeftIsS<Word>;

// The bits set in x (no call into the runtime on processors without a population-count instruction).
inline uint32_t BitCount(uint64_t x)
{
    x -= (x >> 1) & 0x5555555555555555u;
    x = (x & 0x3333333333333333u) + ((x >> 2) & 0x3333333333333333u);
    x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0fu;
    return static_cast<uint32_t>((x * 0x0101010101010101u) >> 56);
}

// The buckets of the repeated symbols: a bitmap of their heads with the count below each of its
// 64-bit words, which ranks a head, and per rank the bucket's head, its end and its moving pointer.
// The area also lends a bitmap of the LMS positions to the sorting of the LMS substrings.
template <typename Word>
struct SparseBuckets {
    uint64_t *repeated;
    uint64_t *lmsBits;
    Word *below;
    Word *first;
    Word *end;
    Word *ptr;
    Word groups;

    // Bytes of the arrays for a string of n symbols of which `groups` distinct ones are repeated.
    static uint64_t AreaBytes(Word n, Word groups)
    {
        const uint64_t words = static_cast<uint64_t>(n) / 64 + 1;
        return words * (2 * sizeof(uint64_t) + sizeof(Word)) + 3 * static_cast<uint64_t>(groups) * sizeof(Word);
    }

    // Lays the arrays out in `area` (AreaBytes long) and fills them from t[0..n).
    static SparseBuckets Make(void *area, const Word *t, Word n, Word groups)
    {
        const Word words = n / 64 + 1;
        SparseBuckets b;
        b.repeated = static_cast<uint64_t *>(area);
        b.lmsBits = b.repeated + words;
        b.below = reinterpret_cast<Word *>(b.lmsBits + words);
        b.first = b.below + words;
        b.end = b.first + groups;
        b.ptr = b.end + groups;
        b.groups = groups;
        std::fill(b.repeated, b.repeated + words, 0);
        for (Word i = 0; i < n; ++i) {
            const Word c = t[i];
            if (c & 1) {
                b.repeated[(c >> 1) / 64] |= uint64_t{1} << ((c >> 1) % 64);
            }
        }
        Word rank = 0;
        for (Word w = 0; w < words; ++w) {
            b.below[w] = rank;
            for (uint64_t bits = b.repeated[w]; bits != 0; bits &= bits - 1) {
                b.first[rank++] = w * 64 + __builtin_ctzll(bits);
            }
        }
        assert(rank == groups);
        std::fill(b.end, b.end + groups, 0);
        for (Word i = 0; i < n; ++i) {
            if (t[i] & 1) {
                ++b.end[b.Rank(t[i])];
            }
        }
        for (Word r = 0; r < groups; ++r) {
            b.end[r] += b.first[r];
        }
        return b;
    }
    // The rank of repeated symbol c among the repeated symbols.
    Word Rank(Word c) const
    {
        const Word h = c >> 1;
        return below[h / 64] + static_cast<Word>(BitCount(repeated[h / 64] & ((uint64_t{1} << (h % 64)) - 1)));
    }
    void SetHeads() const { std::copy(first, first + groups, ptr); }
    void SetEnds() const { std::copy(end, end + groups, ptr); }
};

// The entry for position q, given whether q-1 is S-type.
template <typename Word>
inline Word SparseEntry(const Word *t, Word q, bool leftIsS)
{
    if (q == 0) {
        return 0;
    }
    return q | ((t[q - 1] & 1) ? kActive<Word> : 0) | (leftIsS ? kLeftIsS<Word> : 0);
}

// Puts every suffix whose symbol occurs once into its slot, working out types from right to left.
template <typename Word>
void PlaceUnique(const Word *t, Word *sa, Word n)
{
    // The sentinel is S-type and unique; n-2 is L-type.
    sa[0] = SparseEntry(t, n - 1, false);
    bool isS = false;  // of position i
    for (Word i = n - 2; i > 0; --i) {
        if (i >= kPrefetchAhead) {
            __builtin_prefetch(sa + (t[i - kPrefetchAhead] >> 1), 1);
        }
        const Word c = t[i];
        const Word left = t[i - 1];
        const bool leftIsS = left < c || (left == c && isS);
        if (!(c & 1)) {
            sa[c >> 1] = i | ((left & 1) ? kActive<Word> : 0) | (leftIsS ? kLeftIsS<Word> : 0);
        }
        isS = leftIsS;
    }
    if (!(t[0] & 1)) {
        sa[t[0] >> 1] = 0;
    }
}

// Fetches for a sparse pass, given three slots ahead of its scan from farthest to nearest, for the
// entries it will induce from (their flags equal `flags`): the text left of the farthest, the
// bucket pointer of the middle one, the slot that pointer designates for the nearest.
template <typename Word>
KRV_PREFETCH_INLINE void PrefetchSparse(const Word *t, const Word *sa, const SparseBuckets<Word> &b, Word far,
                                        Word mid, Word near, Word flags)
{
    const Word f = sa[far];
    if ((f & kFlags<Word>) == flags) {
        __builtin_prefetch(t + (f & (kActive<Word> - 1)) - 2);
    }
    const Word q = sa[mid];
    if ((q & kFlags<Word>) == flags) {
        __builtin_prefetch(b.ptr + b.Rank(t[(q & (kActive<Word> - 1)) - 1]));
    }
    const Word r = sa[near];
    if ((r & kFlags<Word>) == flags) {
        __builtin_prefetch(sa + b.ptr[b.Rank(t[(r & (kActive<Word> - 1)) - 1])], 1);
    }
}

// Left-to-right pass over the active entries with L-type left neighbours: those go to the heads of
// their buckets.
template <typename Word>
void SparseInduceL(const Word *t, Word *sa, Word n, const SparseBuckets<Word> &b)
{
    b.SetHeads();
    for (Word i = 0; i < n; ++i) {
        PrefetchSparse(t, sa, b, std::min<Word>(i + 3 * kPrefetchAhead, n - 1),
                       std::min<Word>(i + 2 * kPrefetchAhead, n - 1), std::min<Word>(i + kPrefetchAhead, n - 1),
                       kActive<Word>);
        const Word v = sa[i];
        if ((v & kFlags<Word>) == kActive<Word>) {
            const Word q = (v & (kActive<Word> - 1)) - 1;  // L-type: q-1 is S-type when smaller
            const Word c = t[q];
            sa[b.ptr[b.Rank(c)]++] = SparseEntry(t, q, q > 0 && t[q - 1] < c);
        }
    }
}

// Right-to-left pass over the active entries with S-type left neighbours: those go to the ends of
// their buckets, refilling each bucket's S-type part.
template <typename Word>
void SparseInduceS(const Word *t, Word *sa, Word n, const SparseBuckets<Word> &b)
{
    b.SetEnds();
    for (Word i = n - 1; i >= 0; --i) {
        PrefetchSparse(t, sa, b, std::max<Word>(i - 3 * kPrefetchAhead, 0), std::max<Word>(i - 2 * kPrefetchAhead, 0),
                       std::max<Word>(i - kPrefetchAhead, 0), kFlags<Word>);
        const Word v = sa[i];
        if ((v & kFlags<Word>) == kFlags<Word>) {
            const Word q = (v & (kActive<Word> - 1)) - 1;  // S-type: q-1 is S-type when not larger
            const Word c = t[q];
            sa[--b.ptr[b.Rank(c)]] = SparseEntry(t, q, q > 0 && t[q - 1] <= c);
        }
    }
}

// Puts an LMS position whose symbol is repeated at the end of its bucket (p-1 is L-type).
template <typename Word>
inline void PlaceRepeatedLms(const Word *t, Word *sa, const SparseBuckets<Word> &b, Word p)
{
    const Word c = t[p];
    if (c & 1) {
        sa[--b.ptr[b.Rank(c)]] = SparseEntry(t, p, false);
    }
}

// Sorts the LMS substrings of a sparse level: the suffixes with unique symbols in their slots, the
// other LMS positions at their buckets' ends, both passes; then the LMS positions, found through a
// bitmap, are gathered in substring order to sa[0..m).
template <typename Word>
void SparseSortLmsSubstrings(const Word *t, Word *sa, Word n, const Word *lms, Word m, const SparseBuckets<Word> &b)
{
    uint64_t *bits = b.lmsBits;
    std::fill(sa, sa + n, 0);
    PlaceUnique(t, sa, n);
    b.SetEnds();
    for (Word j = m - 1; j >= 0; --j) {
        PlaceRepeatedLms(t, sa, b, lms[j]);
    }
    SparseInduceL(t, sa, n, b);
    SparseInduceS(t, sa, n, b);
    std::fill(bits, bits + n / 64 + 1, 0);
    for (Word j = 0; j < m; ++j) {
        bits[lms[j] / 64] |= uint64_t{1} << (lms[j] % 64);
    }
    Word kept = 0;
    for (Word i = 0; i < n; ++i) {
        const Word p = sa[i] & (kActive<Word> - 1);
        sa[kept] = p;
        kept += static_cast<Word>((bits[p / 64] >> (p % 64)) & 1);
    }
    assert(kept == m);
}

// Induces a sparse level's suffix array from its m LMS suffixes, sorted in sa[0..m) (positions, or
// with lms their indices in lms[]), then turns every entry back into a plain position.
template <typename Word>
void SparseInduceFromSortedLms(const Word *t, Word *sa, Word n, Word m, const SparseBuckets<Word> &b, const Word *lms)
{
    b.SetEnds();
    std::fill(sa + m, sa + n, 0);
    for (Word i = m - 1; i >= 0; --i) {
        const Word p = lms != nullptr ? lms[sa[i]] : sa[i];
        sa[i] = 0;
        PlaceRepeatedLms(t, sa, b, p);
    }
    PlaceUnique(t, sa, n);
    SparseInduceL(t, sa, n, b);
    SparseInduceS(t, sa, n, b);
    for (Word i = 0; i < n; ++i) {
        sa[i] &= kActive<Word> - 1;
    }
}

}  // namespace krv::array

#endif  // KRV_ARRAY_SPARSE_H
