// Induced sorting over one bucket pointer per symbol: the byte level and reduced strings with few
// distinct names. Entries carry kLeftIsS: the left-to-right pass induces from exactly the entries
// without it, the right-to-left pass from those with it, so neither compares symbols to find out;
// the bit is worked out when an entry is placed, from the symbol next to the one just read.
#ifndef KRV_ARRAY_DENSE_H
#define KRV_ARRAY_DENSE_H

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <type_traits>

#include "util/krv_array_symbols.h"

namespace krv::array {

// The symbol counts, then the moving bucket pointers, one of each per symbol 0..k-1.
template <typename Word>
struct DenseBuckets {
    Word *count;
    Word *ptr;
    Word k;

    // Counts the symbols of t[0..n) (the sentinel 0 last) into a bucket area of 2k words.
    template <bool kLarge, typename Sym>
    static DenseBuckets Make(Word *area, const Sym *t, Word n, Word k)
    {
        const DenseBuckets b = {area, area + k, k};
        std::fill(b.count, b.count + k, 0);
        b.count[0] = 1;  // the sentinel
        for (Word i = 0; i < n - 1; ++i) {
            if (kLarge && i + kPrefetchAhead < n - 1) {
                __builtin_prefetch(b.count + At(t, i + kPrefetchAhead), 1);
            }
            ++b.count[At(t, i)];
        }
        return b;
    }
    // Points every bucket at its first slot.
    void SetHeads() const
    {
        Word sum = 0;
        for (Word c = 0; c < k; ++c) {
            ptr[c] = sum;
            sum += count[c];
        }
    }
    // Points every bucket one past its last slot.
    void SetEnds() const
    {
        Word sum = 0;
        for (Word c = 0; c < k; ++c) {
            sum += count[c];
            ptr[c] = sum;
        }
    }
};

// Fetches for an induced-sorting pass, given three slots ahead of its scan from farthest to nearest:
// the text left of the farthest entry (whether it will induce or not: a branch here would be as hard
// to predict as the pass's own); with kLarge, for entries that will induce (`induces`), also the
// bucket pointer of the middle one and the slot that pointer (already fetched) designates for the
// nearest. Entries may still change before the scan gets there; a stale fetch only costs a miss.
template <bool kLarge, typename Word, typename Sym, typename Induces>
KRV_PREFETCH_INLINE void PrefetchInduce(const Sym *t, const Word *sa, const DenseBuckets<Word> &b, Word far, Word mid,
                                        Word near, Induces induces)
{
    const Word p = sa[far] & kPositionBits<Word>;
    __builtin_prefetch(t + (p > 1 ? p - 2 : 0));
    if (kLarge) {
        const Word q = sa[mid];
        if (induces(q)) {
            __builtin_prefetch(b.ptr + At(t, (q & kPositionBits<Word>)-1));
        }
        const Word r = sa[near];
        if (induces(r)) {
            __builtin_prefetch(sa + b.ptr[At(t, (r & kPositionBits<Word>)-1)], 1);
        }
    }
}

// Left-to-right pass: every L-type suffix goes to the head of its bucket, after the suffix right of
// it has been passed. With kDrop, entries that have induced their neighbour are emptied, leaving
// only the L-type suffixes the S-type pass will need.
template <bool kDrop, bool kLarge, typename Word, typename Sym>
void InduceL(const Sym *t, Word *sa, Word n, const DenseBuckets<Word> &b)
{
    b.SetHeads();
    // q is L-type: q-1 is S-type when smaller.
    const auto place = [&](Word q) {
        const Word c = At(t, q);
        sa[b.ptr[c]++] = q > 0 && At(t, q - 1) < c ? q | kLeftIsS<Word> : q;
    };
    // sa[0] is the sentinel, alone in bucket 0; its left neighbour is L-type.
    place(n - 2);
    const auto induces = [](Word v) { return v > 0; };
    const Word stages = kLarge ? 3 : 1;
    for (Word i = 1; i < n; ++i) {
        PrefetchInduce<kLarge>(t, sa, b, std::min<Word>(i + stages * kPrefetchAhead, n - 1),
                               std::min<Word>(i + 2 * kPrefetchAhead, n - 1),
                               std::min<Word>(i + kPrefetchAhead, n - 1), induces);
        const Word v = sa[i];
        if (induces(v)) {
            place(v - 1);
            if (kDrop) {
                sa[i] = 0;
            }
        }
    }
}

// Right-to-left pass: every S-type suffix goes to the end of its bucket. Without kDrop, every entry
// passed is left as its bare position; with it, inducing entries are emptied, so only the LMS
// suffixes remain. The sentinel's slot 0 is never visited.
template <bool kDrop, bool kLarge, typename Word, typename Sym>
void InduceS(const Sym *t, Word *sa, Word n, const DenseBuckets<Word> &b)
{
    b.SetEnds();
    const auto induces = [](Word v) { return v < 0; };
    const Word stages = kLarge ? 3 : 1;
    for (Word i = n - 1; i > 0; --i) {
        PrefetchInduce<kLarge>(t, sa, b, std::max<Word>(i - stages * kPrefetchAhead, 0),
                               std::max<Word>(i - 2 * kPrefetchAhead, 0), std::max<Word>(i - kPrefetchAhead, 0),
                               induces);
        const Word v = sa[i];
        if (induces(v)) {
            const Word p = v & kPositionBits<Word>;
            const Word q = p - 1;  // S-type: q-1 is S-type when not larger
            const Word c = At(t, q);
            sa[--b.ptr[c]] = q > 0 && At(t, q - 1) <= c ? q | kLeftIsS<Word> : q;
            sa[i] = kDrop ? 0 : p;
        }
    }
}

// Sorts the LMS substrings: the m LMS positions lms[0..m) at their bucket ends, then both induced
// passes. Leaves the LMS positions in substring order in sa[0..m).
template <bool kLarge, typename Word, typename Sym>
void SortLmsSubstrings(const Sym *t, Word *sa, Word n, const Word *lms, Word m, const DenseBuckets<Word> &b)
{
    b.SetEnds();
    std::fill(sa, sa + n, 0);
    sa[0] = n - 1;  // the sentinel, alone in bucket 0
    for (Word j = m - 2; j >= 0; --j) {
        sa[--b.ptr[At(t, lms[j])]] = lms[j];  // p-1 is L-type: no flag
    }
    InduceL<true, kLarge>(t, sa, n, b);
    InduceS<true, kLarge>(t, sa, n, b);
    Word kept = 0;
    for (Word i = 0; i < n; ++i) {
        const Word p = sa[i];
        sa[kept] = p;
        kept += static_cast<Word>(p > 0);
    }
    assert(kept == m);
}

// Puts the m LMS suffixes (lms[] in text order), sorted in sa[0..m) as positions or, if ranked, as
// indices in lms[], at the ends of their buckets, last first: every target slot lies at or above the
// entry it comes from. The rest of sa is emptied; the sentinel stays in slot 0. Then induces the
// whole suffix array from them.
template <bool kLarge, typename Word, typename Sym>
void InduceFromSortedLms(const Sym *t, Word *sa, Word n, const Word *lms, Word m, bool ranked,
                         const DenseBuckets<Word> &b)
{
    assert((ranked ? lms[sa[0]] : sa[0]) == n - 1);
    b.SetEnds();
    std::fill(sa + m, sa + n, 0);
    const auto position = [&](Word i) { return ranked ? lms[sa[i]] : sa[i]; };
    if constexpr (std::is_same_v<Sym, uint8_t>) {
        // Sorted, the LMS suffixes come bucket by bucket: counted per first byte in text order (the
        // text read in sequence), they need no random read of the text to be placed.
        Word perBucket[kByteAlphabet] = {};
        for (Word j = 0; j + 1 < m; ++j) {
            ++perBucket[At(t, lms[j])];
        }
        Word i = m - 1;
        for (Word c = kByteAlphabet - 1; c > 0; --c) {
            for (Word left = perBucket[c]; left > 0; --left, --i) {
                if (ranked && i >= kPrefetchAhead) {
                    __builtin_prefetch(lms + sa[i - kPrefetchAhead]);
                }
                const Word p = position(i);
                sa[i] = 0;
                sa[--b.ptr[c]] = p;
            }
        }
        assert(i == 0);
    } else {
        for (Word i = m - 1; i > 0; --i) {
            if (ranked && i >= 2 * kPrefetchAhead) {
                __builtin_prefetch(lms + sa[i - 2 * kPrefetchAhead]);
            }
            if (i >= kPrefetchAhead) {
                __builtin_prefetch(t + position(i - kPrefetchAhead));
            }
            const Word p = position(i);
            sa[i] = 0;
            sa[--b.ptr[At(t, p)]] = p;
        }
    }
    sa[0] = n - 1;
    InduceL<false, kLarge>(t, sa, n, b);
    InduceS<false, kLarge>(t, sa, n, b);
}

}  // namespace krv::array

#endif  // KRV_ARRAY_DENSE_H
