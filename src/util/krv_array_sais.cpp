// SA-IS suffix sorting: one level at a time, recursing on the reduced string of LMS-substring names.
// The byte level reads the caller's bytes; each reduced string lives in the upper part of its
// parent's suffix array, in the array's own word type, and its LMS positions in the scratch space
// above the array.
#include "util/krv_array_sais.h"

#include <sys/types.h>

#include <algorithm>
#include <cassert>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "util/krv_array_dense.h"
#include "util/krv_array_sparse.h"
#include "util/krv_array_symbols.h"

namespace krv::array {
namespace {

constexpr char kKrvSource[] = "krv_array";
// Every bucket area is sized in 8-byte words, whatever word type the construction uses inside it.
constexpr uint64_t kAreaWordBytes = sizeof(int64_t);
// From this many symbols on, dense bucket pointers no longer stay in the faster caches.
constexpr int64_t kLargeAlphabet = int64_t{1} << 16;

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

// What naming found: distinct substrings, substrings equal to no other, and distinct substrings
// that occur more than once (`repeated` groups of equal neighbours in sorted order).
template <typename Word>
struct NameCounts {
    Word names;
    Word unique;
    Word repeated;
};

// Names the LMS substrings, sorted in sa[0..m), and writes the reduced string (the names of lms[],
// in text order) to sa[n-m..n), sparsely encoded: 2 * h + repeated, h the sorted index of the first
// substring equal to this one. For each group of equal substrings, in order, its first index and one
// past its last go to sa[0..2 * repeated): the bucket bounds of the repeated symbols. The rest of
// sa[0..m) is left as it was (all of it when every substring differs).
template <typename Word, typename Sym>
NameCounts<Word> NameLmsSubstrings(const Sym *t, Word *sa, Word n, const Word *lms, Word m)
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
    // Equal lengths and symbols mean equal types too: both substrings end in an LMS position.
    NameCounts<Word> counts = {0, 0, 0};
    Word head = 0;
    Word prev = 0;
    Word prevLen = 0;
    bool prevSame = false;
    // Substring i-1 gets its code once substring i is known: it is repeated if it equals either. A
    // group's bounds are written when it ends; by then the scan has read their slots.
    const auto finish = [&](Word i, bool nextSame) {
        const bool repeated = prevSame || nextSame;
        slot[prev / 2] = 2 * head + static_cast<Word>(repeated);
        counts.unique += static_cast<Word>(!repeated);
        if (prevSame && !nextSame) {
            sa[2 * counts.repeated] = head;
            sa[2 * counts.repeated + 1] = i;
            ++counts.repeated;
        }
    };
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
            finish(i, same);
        }
        if (!same) {
            ++counts.names;
            head = i;
        }
        prev = p;
        prevLen = len;
        prevSame = same;
    }
    finish(m, false);
    // Gathered from the top down: each write lands at or above every slot still to be read.
    Word *reduced = sa + n - m;
    for (Word j = m - 1; j >= 0; --j) {
        reduced[j] = slot[lms[j] / 2];
    }
    return counts;
}

// Turns the sparse reduced string in sa[n-m..n) dense: each head h becomes the number of distinct
// heads below it, through a table in sa[0..m) (whose touched lines stay cached when names are few).
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

// Allocates a level's bucket area of 2k words, or reports its refusal.
void *AllocBuckets(int64_t k)
{
    void *area = KRV_OsalMemAlloc(2 * static_cast<uint64_t>(k) * kAreaWordBytes);
    if (area == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc error, size is %zd", static_cast<ssize_t>(2 * k));
    }
    return area;
}

template <bool kLarge, typename Word, typename Sym>
uint32_t BuildDense(const Sym *t, Word *sa, Word n, Word k, Word *scratch);
template <typename Word>
uint32_t BuildSparse(const Word *t, Word *sa, Word n, NameCounts<Word> counts, Word *scratch);

// Sorts the reduced string (the LMS substrings' names in sa[n-m..n), sparsely encoded) into
// sa[0..m), which then holds the indices in lms[] of the LMS suffixes in order. Sparsely when at
// least half of the names are unique (so skipping those pays), the arrays fit in the bucket area and
// positions leave room for the flags; densely otherwise.
template <typename Word>
uint32_t SortReduced(Word *sa, Word n, Word m, NameCounts<Word> counts, Word *scratch)
{
    Word *reduced = sa + n - m;
    const bool fits = SparseBuckets<Word>::AreaBytes(m, counts.repeated) <=
                      2 * static_cast<uint64_t>(counts.names) * kAreaWordBytes;
    if (2 * counts.unique >= m && fits && m < kActive<Word>) {
        return BuildSparse(reduced, sa, m, counts, scratch);
    }
    MakeDense(sa, n, m);
    return counts.names >= kLargeAlphabet ? BuildDense<true>(reduced, sa, m, counts.names, scratch)
                                          : BuildDense<false>(reduced, sa, m, counts.names, scratch);
}

// Names the LMS substrings sorted in sa[0..m) (lms[] in text order) and, unless all differ, sorts
// the reduced string. Leaves in sa[0..m) the LMS suffixes in order: as positions, or with *ranked
// as their indices in lms[].
template <typename Word, typename Sym>
uint32_t OrderLmsSuffixes(const Sym *t, Word *sa, Word n, const Word *lms, Word m, Word *scratch, bool *ranked)
{
    const NameCounts<Word> counts = NameLmsSubstrings(t, sa, n, lms, m);
    // Every substring distinct: sorting them sorted the suffixes.
    *ranked = counts.names < m;
    return *ranked ? SortReduced(sa, n, m, counts, scratch + m) : KRV_OK;
}

// One level with dense buckets on t[0..n) (alphabet size k) into sa[0..n). `scratch` holds this
// level's LMS positions, then those of the levels below.
template <bool kLarge, typename Word, typename Sym>
uint32_t BuildDense(const Sym *t, Word *sa, Word n, Word k, Word *scratch)
{
    assert(n >= 2);
    auto *area = static_cast<Word *>(AllocBuckets(k));
    if (area == nullptr) {
        return KRV_ERR_NOMEM;
    }
    const DenseBuckets<Word> b = DenseBuckets<Word>::template Make<kLarge>(area, t, n, k);
    Word *lms = scratch;
    const Word m = FindLms(t, n, lms);
    SortLmsSubstrings<kLarge>(t, sa, n, lms, m, b);
    bool ranked = false;
    const uint32_t status = OrderLmsSuffixes(t, sa, n, lms, m, scratch, &ranked);
    if (status == KRV_OK) {
        InduceFromSortedLms<kLarge>(t, sa, n, lms, m, ranked, b);
    }
    KRV_OsalMemFree(area);
    return status;
}

// One sparsely named level: t[0..n) with counts from its naming, into sa[0..n).
template <typename Word>
uint32_t BuildSparse(const Word *t, Word *sa, Word n, NameCounts<Word> counts, Word *scratch)
{
    assert(n >= 2);
    void *area = AllocBuckets(counts.names);
    if (area == nullptr) {
        return KRV_ERR_NOMEM;
    }
    const SparseBuckets<Word> b = SparseBuckets<Word>::Make(area, sa, n, counts.repeated);
    Word *lms = scratch;
    const Word m = FindLms(t, n, lms);
    SparseSortLmsSubstrings(t, sa, n, lms, m, b);
    bool ranked = false;
    const uint32_t status = OrderLmsSuffixes(t, sa, n, lms, m, scratch, &ranked);
    if (status == KRV_OK) {
        SparseInduceFromSortedLms(t, sa, n, lms, m, ranked, b);
    }
    KRV_OsalMemFree(area);
    return status;
}

}  // namespace

template <typename Word>
uint32_t SaisBuild(const uint8_t *bytes, Word len, Word *sa)
{
    const Word n = len + 1;
    return BuildDense<false>(bytes, sa, n, static_cast<Word>(kByteAlphabet), sa + n);
}

template uint32_t SaisBuild<int32_t>(const uint8_t *bytes, int32_t len, int32_t *sa);
template uint32_t SaisBuild<int64_t>(const uint8_t *bytes, int64_t len, int64_t *sa);

}  // namespace krv::array
