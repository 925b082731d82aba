// Induced sorting of a reduced string whose names are mostly unique. Such a string is named
// sparsely: a symbol is 2 * h + repeated, h the slot of its bucket's head (the number of smaller
// symbols in the string), `repeated` set when it occurs more than once. A suffix whose symbol occurs
// once has its slot from the start, and an entry whose left neighbour is such a suffix has nothing
// to induce: the passes look only at "active" entries, whose left neighbour's symbol is repeated.
// Only repeated symbols have bucket pointers.
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

// The buckets of the repeated symbols: a moving pointer per head slot (only repeated symbols' heads
// are used: one dependent read from symbol to slot), and the head and end of each repeated symbol's
// bucket, in order, to reset the pointers from. The area also lends a bitmap of the LMS positions
// to the sorting of the LMS substrings.
template <typename Word>
struct SparseBuckets {
    uint64_t *lmsBits;
    Word *ptr;
    Word *bounds;
    Word groups;

    // Bytes of the arrays for a string of n symbols of which `groups` distinct ones are repeated.
    static uint64_t AreaBytes(Word n, Word groups)
    {
        return (static_cast<uint64_t>(n) / 64 + 1) * sizeof(uint64_t) +
               (static_cast<uint64_t>(n) + 2 * static_cast<uint64_t>(groups)) * sizeof(Word);
    }

    // Lays the arrays out in `area` (AreaBytes long) and takes the bounds, head then end for each
    // repeated symbol in order, from bounds[0..2 * groups) (naming leaves them at the start of what
    // becomes this level's suffix array).
    static SparseBuckets Make(void *area, const Word *bounds, Word n, Word groups)
    {
        SparseBuckets b;
        b.lmsBits = static_cast<uint64_t *>(area);
        b.ptr = reinterpret_cast<Word *>(b.lmsBits + n / 64 + 1);
        b.bounds = b.ptr + n;
        b.groups = groups;
        std::copy(bounds, bounds + 2 * groups, b.bounds);
        return b;
    }
    void SetHeads() const
    {
        for (Word g = 0; g < groups; ++g) {
            ptr[bounds[2 * g]] = bounds[2 * g];
        }
    }
    void SetEnds() const
    {
        for (Word g = 0; g < groups; ++g) {
            ptr[bounds[2 * g]] = bounds[2 * g + 1];
        }
    }
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
        const Word p = f & (kActive<Word> - 1);
        __builtin_prefetch(t + (p > 1 ? p - 2 : 0));
    }
    const Word q = sa[mid];
    if ((q & kFlags<Word>) == flags) {
        __builtin_prefetch(b.ptr + (t[(q & (kActive<Word> - 1)) - 1] >> 1));
    }
    const Word r = sa[near];
    if ((r & kFlags<Word>) == flags) {
        __builtin_prefetch(sa + b.ptr[t[(r & (kActive<Word> - 1)) - 1] >> 1], 1);
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
            sa[b.ptr[c >> 1]++] = SparseEntry(t, q, q > 0 && t[q - 1] < c);
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
            sa[--b.ptr[c >> 1]] = SparseEntry(t, q, q > 0 && t[q - 1] <= c);
        }
    }
}

// Puts the LMS positions of src[0..m) whose symbols are repeated at the ends of their buckets, last
// first (their left neighbours are L-type: no kLeftIsS), fetching ahead the symbol, the bucket
// pointer and the slot each needs. With src == sa, every entry is emptied once read: its target slot
// lies at or above it.
template <typename Word>
void PlaceRepeatedLms(const Word *t, Word *sa, const Word *src, Word m, const SparseBuckets<Word> &b)
{
    b.SetEnds();
    for (Word i = m - 1; i >= 0; --i) {
        if (i >= 3 * kPrefetchAhead) {
            __builtin_prefetch(t + src[i - 3 * kPrefetchAhead]);
        }
        if (i >= 2 * kPrefetchAhead) {
            const Word c = t[src[i - 2 * kPrefetchAhead]];
            if (c & 1) {
                __builtin_prefetch(b.ptr + (c >> 1));
            }
        }
        if (i >= kPrefetchAhead) {
            const Word c = t[src[i - kPrefetchAhead]];
            if (c & 1) {
                __builtin_prefetch(sa + b.ptr[c >> 1] - 1, 1);
            }
        }
        const Word p = src[i];
        if (src == sa) {
            sa[i] = 0;
        }
        const Word c = t[p];
        if (c & 1) {
            sa[--b.ptr[c >> 1]] = SparseEntry(t, p, false);
        }
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
    PlaceRepeatedLms(t, sa, lms, m, b);
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

// Induces a sparse level's suffix array from its m LMS suffixes (lms[] in text order), sorted in
// sa[0..m) as positions or, if ranked, as indices in lms[]; then turns every entry back into a plain
// position.
template <typename Word>
void SparseInduceFromSortedLms(const Word *t, Word *sa, Word n, const Word *lms, Word m, bool ranked,
                               const SparseBuckets<Word> &b)
{
    if (ranked) {
        for (Word i = 0; i < m; ++i) {
            if (i + kPrefetchAhead < m) {
                __builtin_prefetch(lms + sa[i + kPrefetchAhead]);
            }
            sa[i] = lms[sa[i]];
        }
    }
    std::fill(sa + m, sa + n, 0);
    PlaceRepeatedLms(t, sa, sa, m, b);
    PlaceUnique(t, sa, n);
    SparseInduceL(t, sa, n, b);
    SparseInduceS(t, sa, n, b);
    for (Word i = 0; i < n; ++i) {
        sa[i] &= kActive<Word> - 1;
    }
}

}  // namespace krv::array

#endif  // KRV_ARRAY_SPARSE_H
