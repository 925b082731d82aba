// SA-IS suffix sorting. The byte level reads the caller's bytes; the reduced strings live in the
// suffix array's upper part, in the same word type as the array.
//
// Empty suffix-array slots hold 0. Position 0 never induces anything (it has no left neighbour), so
// it may look empty too without harm; every other entry is a position >= 1.
//
// Reduced strings come in two encodings. Dense: names 0..k-1, one bucket pointer per name, as the
// byte level has. Sparse, when names are many: a name is 2 * h + multi, where h is the slot of its
// bucket's head (the number of smaller symbols in the string) and multi says whether the symbol
// occurs more than once. A symbol that occurs once needs no bucket pointer at all: its suffix goes
// straight to slot h. The pointers of the others are indexed by h.
#include "util/krv_array_sais.h"

#include <sys/types.h>

#include <algorithm>
#include <cassert>
#include <type_traits>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"

namespace krv::array {
namespace {

constexpr char kKrvSource[] = "krv_array";
// Bytes in 0..255 become symbols 1..256, leaving 0 for the sentinel.
constexpr int64_t kByteAlphabet = 257;
// Every bucket area is sized in 8-byte words, whatever word type the construction uses inside it.
constexpr uint64_t kAreaWordBytes = sizeof(int64_t);
// How many slots ahead of a scan the text it will read is fetched; the induced-sorting passes over
// a large alphabet fetch in three stages of this distance each (see PrefetchInduce).
constexpr int64_t kPrefetchAhead = 16;
// From this many buckets on, the bucket pointers no longer stay in the faster caches.
constexpr int64_t kLargeAlphabet = int64_t{1} << 16;

// Prefetches have no side effects the optimiser can see, so an out-of-line helper made only of them
// counts as pure and its calls are deleted; forced inlining keeps them.
#define KRV_PREFETCH_INLINE __attribute__((always_inline)) inline

// The symbol at position i. The byte level reads the caller's bytes moved up by one; its sentinel
// (symbol 0 at n-1) lies past them and is never read: the passes below handle it apart. A reduced
// string holds its names as they are, its sentinel 0 included.
template <typename Word, typename Sym>
inline Word At(const Sym *t, Word i)
{
    if constexpr (std::is_same_v<Sym, uint8_t>) {
        return static_cast<Word>(t[i]) + 1;
    } else {
        return t[i];
    }
}

// The buckets of the byte level and of densely named reduced strings: symbol counts, then the
// moving bucket pointers, one of each per symbol.
template <typename Word>
struct DenseBuckets {
    Word *count;
    Word *ptr;
    Word k;

    // Over a bucket area for a level of n symbols and alphabet size k; counts zeroed.
    static DenseBuckets Make(Word *area, Word, Word k)
    {
        std::fill(area, area + k, 0);
        return {area, area + k, k};
    }
    void Count(Word c) const { ++count[c]; }
    Word *CountOf(Word c) const { return count + c; }
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
    Word NextHead(Word c) const { return ptr[c]++; }
    Word NextEnd(Word c) const { return --ptr[c]; }
    // The moving pointer of a symbol that occurs more than once.
    Word Pointer(Word c) const { return ptr[c]; }
    // Fetches the pointer, then (once that has arrived) the slot it designates.
    KRV_PREFETCH_INLINE void PrefetchPointer(const Word *, Word c) const { __builtin_prefetch(ptr + c); }
    KRV_PREFETCH_INLINE void PrefetchSlot(const Word *sa, Word c) const { __builtin_prefetch(sa + ptr[c], 1); }
};

// The buckets of a sparsely named reduced string of n symbols: for each head slot h, the size of its
// bucket (counted only for symbols that occur more than once) and its moving pointer.
template <typename Word>
struct SparseBuckets {
    Word *size;
    Word *ptr;
    Word n;

    static SparseBuckets Make(Word *area, Word n, Word)
    {
        std::fill(area, area + n, 0);
        return {area, area + n, n};
    }
    void Count(Word c) const
    {
        if (c & 1) {
            ++size[c >> 1];
        }
    }
    Word *CountOf(Word c) const { return size + (c >> 1); }
    void SetHeads() const
    {
        for (Word h = 0; h < n; ++h) {
            ptr[h] = h;
        }
    }
    void SetEnds() const
    {
        for (Word h = 0; h < n; ++h) {
            ptr[h] = h + size[h];
        }
    }
    Word NextHead(Word c) const { return (c & 1) ? ptr[c >> 1]++ : c >> 1; }
    Word NextEnd(Word c) const { return (c & 1) ? --ptr[c >> 1] : c >> 1; }
    Word Pointer(Word c) const
    {
        assert(c & 1);
        return ptr[c >> 1];
    }
    KRV_PREFETCH_INLINE void PrefetchPointer(const Word *sa, Word c) const
    {
        __builtin_prefetch((c & 1) ? ptr + (c >> 1) : sa + (c >> 1), 1);
    }
    KRV_PREFETCH_INLINE void PrefetchSlot(const Word *sa, Word c) const
    {
        if (c & 1) {
            __builtin_prefetch(sa + ptr[c >> 1], 1);
        }
    }
};

// Starts fetching the text left of the suffix in `slot` (empty or 0: position 0, harmless).
template <typename Word, typename Sym>
KRV_PREFETCH_INLINE void PrefetchLeftOf(const Sym *t, Word slot)
{
    __builtin_prefetch(t + (slot > 0 ? slot - 1 : 0));
}

// Fetches for an induced-sorting pass, given three slots ahead of its scan from farthest to nearest:
// the text left of the suffix in the farthest; with kLarge, also the bucket pointer that suffix in
// the middle slot will use, and the slot that pointer (already fetched) designates for the nearest.
// Entries may still change before the scan gets there; a stale fetch only costs a miss.
template <bool kLarge, typename Word, typename Sym, typename Bk>
KRV_PREFETCH_INLINE void PrefetchInduce(const Sym *t, const Word *sa, const Bk &b, Word far, Word mid, Word near)
{
    PrefetchLeftOf(t, sa[far]);
    if (kLarge) {
        const Word q = sa[mid];
        if (q > 0) {
            b.PrefetchPointer(sa, At(t, q - 1));
        }
        const Word r = sa[near];
        if (r > 0) {
            b.PrefetchSlot(sa, At(t, r - 1));
        }
    }
}

// Writes the LMS positions (S-type, left neighbour L-type) to lms[0..m) in ascending order and
// returns m. The last is the sentinel n-1: n-2 is larger, hence L-type. The types are worked out
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

// Left-to-right pass: every L-type suffix goes to the head of its bucket, after the suffix right of
// it has been passed. An entry p in this pass is LMS or L-type, so p-1 is L-type exactly when
// t[p-1] >= t[p]. With kDrop, entries that have induced their neighbour are emptied, leaving only
// the L-type suffixes the S-type pass will need.
template <bool kDrop, bool kLarge, typename Word, typename Sym, typename Bk>
void InduceL(const Sym *t, Word *sa, Word n, const Bk &b)
{
    b.SetHeads();
    // sa[0] is the sentinel, alone in bucket 0; its left neighbour is L-type.
    sa[b.NextHead(At(t, n - 2))] = n - 2;
    const Word stages = kLarge ? 3 : 1;
    for (Word i = 1; i < n; ++i) {
        PrefetchInduce<kLarge>(t, sa, b, std::min<Word>(i + stages * kPrefetchAhead, n - 1),
                               std::min<Word>(i + 2 * kPrefetchAhead, n - 1),
                               std::min<Word>(i + kPrefetchAhead, n - 1));
        const Word p = sa[i];
        if (p > 0) {
            const Word c = At(t, p - 1);
            if (c >= At(t, p)) {
                sa[b.NextHead(c)] = p - 1;
                if (kDrop) {
                    sa[i] = 0;
                }
            }
        }
    }
}

// Right-to-left pass: every S-type suffix goes to the end of its bucket. p-1 is S-type when
// t[p-1] < t[p], or when they are equal and p is S-type; p is S-type exactly when slot i lies in
// the part of its bucket this pass has already filled (equal neighbours share a symbol, which
// therefore has a pointer). With kDrop, inducing entries are emptied, so only the LMS suffixes
// remain. The sentinel's slot 0 is never visited.
template <bool kDrop, bool kLarge, typename Word, typename Sym, typename Bk>
void InduceS(const Sym *t, Word *sa, Word n, const Bk &b)
{
    b.SetEnds();
    const Word stages = kLarge ? 3 : 1;
    for (Word i = n - 1; i > 0; --i) {
        PrefetchInduce<kLarge>(t, sa, b, std::max<Word>(i - stages * kPrefetchAhead, 0),
                               std::max<Word>(i - 2 * kPrefetchAhead, 0), std::max<Word>(i - kPrefetchAhead, 0));
        const Word p = sa[i];
        if (p > 0) {
            const Word c = At(t, p - 1);
            const Word right = At(t, p);
            if (c < right || (c == right && i >= b.Pointer(right))) {
                sa[b.NextEnd(c)] = p - 1;
                if (kDrop) {
                    sa[i] = 0;
                }
            }
        }
    }
}

// Sorts the LMS substrings: the m LMS positions lms[0..m) at their bucket ends, then both induced
// passes. Leaves the LMS positions in substring order in sa[0..m).
template <bool kLarge, typename Word, typename Sym, typename Bk>
void SortLmsSubstrings(const Sym *t, Word *sa, Word n, const Word *lms, Word m, const Bk &b)
{
    b.SetEnds();
    std::fill(sa, sa + n, 0);
    sa[0] = n - 1;  // the sentinel, alone in bucket 0
    for (Word j = m - 2; j >= 0; --j) {
        sa[b.NextEnd(At(t, lms[j]))] = lms[j];
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

// Whether a[0..len) equals b[0..len). Substrings are short, so a plain loop beats a library call.
template <typename Word, typename Sym>
bool SameSymbols(const Sym *a, const Sym *b, Word len)
{
    for (Word i = 0; i < len; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}

// Names the LMS substrings, sorted in sa[0..m), and writes the reduced string (the names of lms[],
// in text order) to sa[n-m..n), sparsely encoded: 2 * h + multi, h the sorted index of the first
// substring equal to this one. sa[0..m) is left as it was. Returns the number of distinct substrings.
template <typename Word, typename Sym>
Word NameLmsSubstrings(const Sym *t, Word *sa, Word n, const Word *lms, Word m)
{
    // LMS positions are at least two apart, so p/2 gives each its own slot above sa[0..m). Each
    // substring runs to the next LMS position, inclusive. The sentinel's (length 1) and the one
    // ending at it are unique, so the latter gets a length no other can have (n) and is never
    // compared symbol by symbol: the byte level cannot read the sentinel.
    Word *slot = sa + m;
    for (Word j = 0; j + 2 < m; ++j) {
        slot[lms[j] / 2] = lms[j + 1] - lms[j] + 1;
    }
    if (m >= 2) {
        slot[lms[m - 2] / 2] = n;
    }
    slot[(n - 1) / 2] = 1;
    // Equal lengths and symbols mean equal types too: both substrings end in an LMS position. A
    // substring's code is written once the next one is known: it is multi if it equals either.
    Word names = 0;
    Word head = 0;
    Word prev = 0;
    Word prevLen = 0;
    bool prevSame = false;
    for (Word i = 0; i < m; ++i) {
        if (i + kPrefetchAhead < m) {
            const Word ahead = sa[i + kPrefetchAhead];
            __builtin_prefetch(t + ahead);
            __builtin_prefetch(slot + ahead / 2);
        }
        const Word p = sa[i];
        const Word len = slot[p / 2];
        const bool same = len == prevLen && SameSymbols(t + p, t + prev, len);
        if (i > 0) {
            slot[prev / 2] = 2 * head + static_cast<Word>(prevSame | same);
        }
        if (!same) {
            ++names;
            head = i;
        }
        prev = p;
        prevLen = len;
        prevSame = same;
    }
    slot[prev / 2] = 2 * head + static_cast<Word>(prevSame);
    // Gathered from the top down: each write lands at or above every slot still to be read.
    Word *reduced = sa + n - m;
    for (Word j = m - 1; j >= 0; --j) {
        reduced[j] = slot[lms[j] / 2];
    }
    return names;
}

// Turns the sparse reduced string in sa[n-m..n) dense: each head h becomes the number of distinct
// heads below it. Uses sa[0..m) as the table; few names keep its touched lines cached.
template <typename Word>
void MakeDense(Word *sa, Word n, Word m)
{
    Word *reduced = sa + n - m;
    std::fill(sa, sa + m, 0);
    for (Word j = 0; j < m; ++j) {
        sa[reduced[j] >> 1] = 1;
    }
    Word names = 0;
    for (Word h = 0; h < m; ++h) {
        const Word isHead = sa[h];
        sa[h] = names;
        names += isHead;
    }
    for (Word j = 0; j < m; ++j) {
        reduced[j] = sa[reduced[j] >> 1];
    }
}

// Puts the m LMS suffixes, sorted in sa[0..m), at the ends of their buckets, last first: every
// target slot lies at or above the entry it comes from. The entries are positions, or with lms
// their indices in lms[]. The rest of sa is emptied; the sentinel stays in slot 0.
template <typename Word, typename Sym, typename Bk>
void PlaceSortedLms(const Sym *t, Word *sa, Word n, Word m, const Bk &b, const Word *lms)
{
    assert((lms != nullptr ? lms[sa[0]] : sa[0]) == n - 1);
    b.SetEnds();
    std::fill(sa + m, sa + n, 0);
    for (Word i = m - 1; i > 0; --i) {
        if (lms != nullptr) {
            if (i >= 2 * kPrefetchAhead) {
                __builtin_prefetch(lms + sa[i - 2 * kPrefetchAhead]);
            }
            if (i >= kPrefetchAhead) {
                __builtin_prefetch(t + lms[sa[i - kPrefetchAhead]]);
            }
        } else if (i >= kPrefetchAhead) {
            __builtin_prefetch(t + sa[i - kPrefetchAhead]);
        }
        const Word p = lms != nullptr ? lms[sa[i]] : sa[i];
        sa[i] = 0;
        sa[b.NextEnd(At(t, p))] = p;
    }
    sa[0] = n - 1;
}

template <typename Word, typename Sym, typename Bk, bool kLarge>
uint32_t Build(const Sym *t, Word *sa, Word n, Word k, Word *scratch);

// Sorts the suffixes of a reduced string (m symbols in sa[n-m..n), sparsely encoded, `names` of
// them distinct) into sa[0..m). A string whose bucket area (2 * names 8-byte words) cannot hold
// its two sparse arrays of m words is turned dense first: its names are then few (at most half of
// m with 32-bit words), so dense pointers serve it well.
template <typename Word>
uint32_t BuildReduced(Word *sa, Word n, Word m, Word names, Word *scratch)
{
    Word *reduced = sa + n - m;
    if (2 * static_cast<uint64_t>(m) * sizeof(Word) > 2 * static_cast<uint64_t>(names) * kAreaWordBytes) {
        MakeDense(sa, n, m);
        return names >= kLargeAlphabet
                   ? Build<Word, Word, DenseBuckets<Word>, true>(reduced, sa, m, names, scratch)
                   : Build<Word, Word, DenseBuckets<Word>, false>(reduced, sa, m, names, scratch);
    }
    return m >= kLargeAlphabet ? Build<Word, Word, SparseBuckets<Word>, true>(reduced, sa, m, names, scratch)
                               : Build<Word, Word, SparseBuckets<Word>, false>(reduced, sa, m, names, scratch);
}

// One level of the construction on t[0..n) (alphabet size k: the bucket area's size) into sa[0..n).
// `scratch` holds this level's LMS positions, then those of the levels below (at most n in all).
template <typename Word, typename Sym, typename Bk, bool kLarge>
uint32_t Build(const Sym *t, Word *sa, Word n, Word k, Word *scratch)
{
    assert(n >= 2);
    auto *area = static_cast<Word *>(KRV_OsalMemAlloc(2 * static_cast<uint64_t>(k) * kAreaWordBytes));
    if (area == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc error, size is %zd", static_cast<ssize_t>(2 * static_cast<int64_t>(k)));
        return KRV_ERR_NOMEM;
    }
    const Bk b = Bk::Make(area, n, k);
    b.Count(0);  // the sentinel
    for (Word i = 0; i < n - 1; ++i) {
        if (kLarge && i + kPrefetchAhead < n - 1) {
            __builtin_prefetch(b.CountOf(At(t, i + kPrefetchAhead)), 1);
        }
        b.Count(At(t, i));
    }
    Word *lms = scratch;
    const Word m = FindLms(t, n, lms);
    SortLmsSubstrings<kLarge>(t, sa, n, lms, m, b);
    const Word names = NameLmsSubstrings(t, sa, n, lms, m);
    if (names < m) {
        // Sort the reduced string; its suffix order is the order of the LMS suffixes. It leaves
        // their indices in lms[] in sa[0..m): put the positions at the ends of their buckets.
        const uint32_t status = BuildReduced(sa, n, m, names, scratch + m);
        if (status != KRV_OK) {
            KRV_OsalMemFree(area);
            return status;
        }
        PlaceSortedLms(t, sa, n, m, b, lms);
    } else {
        // Every substring is distinct, so sorting them sorted the suffixes.
        PlaceSortedLms<Word>(t, sa, n, m, b, nullptr);
    }
    InduceL<false, kLarge>(t, sa, n, b);
    InduceS<false, kLarge>(t, sa, n, b);
    KRV_OsalMemFree(area);
    return KRV_OK;
}

}  // namespace

template <typename Word>
uint32_t SaisBuild(const uint8_t *bytes, Word len, Word *sa)
{
    const Word n = len + 1;
    return Build<Word, uint8_t, DenseBuckets<Word>, false>(bytes, sa, n, static_cast<Word>(kByteAlphabet), sa + n);
}

template uint32_t SaisBuild<int32_t>(const uint8_t *bytes, int32_t len, int32_t *sa);
template uint32_t SaisBuild<int64_t>(const uint8_t *bytes, int64_t len, int64_t *sa);

}  // namespace krv::array
