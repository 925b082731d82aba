// SA-IS suffix sorting. The byte level reads 16-bit symbols; the reduced strings are 64-bit.
//
// Empty suffix-array slots hold 0. Position 0 never induces anything (it has no left neighbour), so
// it may look empty too without harm; every other entry is a position >= 1.
#include "util/krv_array_sais.h"

#include <sys/types.h>

#include <algorithm>
#include <cassert>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"

namespace krv::array {
namespace {

constexpr char kKrvSource[] = "krv_array";
// How many slots ahead of a scan the text it will read is fetched; the induced-sorting passes over
// a large alphabet fetch in three stages of this distance each (see PrefetchInduce).
constexpr int64_t kPrefetchAhead = 16;
// From this many symbols on, the bucket pointers no longer stay in the faster caches.
constexpr int64_t kLargeAlphabet = int64_t{1} << 16;

using Word = int64_t;

// Prefetches have no side effects the optimiser can see, so an out-of-line helper made only of them
// counts as pure and its calls are deleted; forced inlining keeps them.
#define KRV_PREFETCH_INLINE __attribute__((always_inline)) inline

// One level's bucket area: the symbol counts, then the moving bucket pointers.
struct Buckets {
    Word *count;
    Word *ptr;
    Word k;
};

// Points every bucket at its first slot.
void SetBucketHeads(const Buckets &b)
{
    Word sum = 0;
    for (Word c = 0; c < b.k; ++c) {
        b.ptr[c] = sum;
        sum += b.count[c];
    }
}

// Points every bucket one past its last slot.
void SetBucketEnds(const Buckets &b)
{
    Word sum = 0;
    for (Word c = 0; c < b.k; ++c) {
        sum += b.count[c];
        b.ptr[c] = sum;
    }
}

// Starts fetching the text left of the suffix in `slot` (empty or 0: position 0, harmless).
template <typename Sym>
KRV_PREFETCH_INLINE void PrefetchLeftOf(const Sym *t, Word slot)
{
    __builtin_prefetch(t + (slot > 0 ? slot - 1 : 0));
}

// Fetches for an induced-sorting pass, given three slots ahead of its scan from farthest to nearest:
// the text left of the suffix in the farthest; with kLarge, also the bucket pointer that suffix in
// the middle slot will use, and the slot that pointer (already fetched) designates for the nearest.
// Entries may still change before the scan gets there; a stale fetch only costs a miss.
template <bool kLarge, typename Sym>
KRV_PREFETCH_INLINE void PrefetchInduce(const Sym *t, const Word *sa, const Buckets &b, Word far, Word mid, Word near)
{
    PrefetchLeftOf(t, sa[far]);
    if (kLarge) {
        const Word q = sa[mid];
        if (q > 0) {
            __builtin_prefetch(b.ptr + t[q - 1]);
        }
        const Word r = sa[near];
        if (r > 0) {
            __builtin_prefetch(sa + b.ptr[t[r - 1]], 1);
        }
    }
}

// Calls fn(p) for every LMS position p (an S-type position whose left neighbour is L-type), from
// right to left; the sentinel n-1 comes first.
template <typename Sym, typename Fn>
void ForEachLmsRightToLeft(const Sym *t, Word n, Fn fn)
{
    bool rightIsS = true;  // the sentinel is S-type
    Word right = t[n - 1];
    for (Word i = n - 2; i >= 0; --i) {
        const Word c = t[i];
        const bool isS = c < right || (c == right && rightIsS);
        if (!isS && rightIsS) {
            fn(i + 1);
        }
        rightIsS = isS;
        right = c;
    }
}

// Left-to-right pass: every L-type suffix goes to the head of its bucket, after the suffix right of
// it has been passed. An entry p in this pass is LMS or L-type, so p-1 is L-type exactly when
// t[p-1] >= t[p]. With kDrop, entries that have induced their neighbour are emptied, leaving only
// the L-type suffixes the S-type pass will need.
template <bool kDrop, bool kLarge, typename Sym>
void InduceL(const Sym *t, Word *sa, Word n, const Buckets &b)
{
    SetBucketHeads(b);
    // sa[0] is the sentinel, alone in bucket 0; its left neighbour is L-type.
    sa[b.ptr[t[n - 2]]++] = n - 2;
    const Word stages = kLarge ? 3 : 1;
    for (Word i = 1; i < n; ++i) {
        PrefetchInduce<kLarge>(t, sa, b, std::min(i + stages * kPrefetchAhead, n - 1),
                               std::min(i + 2 * kPrefetchAhead, n - 1), std::min(i + kPrefetchAhead, n - 1));
        const Word p = sa[i];
        if (p > 0) {
            const Word c = t[p - 1];
            if (c >= t[p]) {
                sa[b.ptr[c]++] = p - 1;
                if (kDrop) {
                    sa[i] = 0;
                }
            }
        }
    }
}

// Right-to-left pass: every S-type suffix goes to the end of its bucket. p-1 is S-type when
// t[p-1] < t[p], or when they are equal and p is S-type; p is S-type exactly when slot i lies in
// the part of its bucket this pass has already filled. With kDrop, inducing entries are emptied,
// so only the LMS suffixes remain.
template <bool kDrop, bool kLarge, typename Sym>
void InduceS(const Sym *t, Word *sa, Word n, const Buckets &b)
{
    SetBucketEnds(b);
    const Word stages = kLarge ? 3 : 1;
    for (Word i = n - 1; i > 0; --i) {
        PrefetchInduce<kLarge>(t, sa, b, std::max<Word>(i - stages * kPrefetchAhead, 0),
                               std::max<Word>(i - 2 * kPrefetchAhead, 0), std::max<Word>(i - kPrefetchAhead, 0));
        const Word p = sa[i];
        if (p > 0) {
            const Word c = t[p - 1];
            const Word right = t[p];
            if (c < right || (c == right && i >= b.ptr[right])) {
                sa[--b.ptr[c]] = p - 1;
                if (kDrop) {
                    sa[i] = 0;
                }
            }
        }
    }
}

// Sorts the LMS substrings: LMS positions at their bucket ends, then both induced passes. Leaves
// the m LMS positions in substring order in sa[0..m) and returns m.
template <bool kLarge, typename Sym>
Word SortLmsSubstrings(const Sym *t, Word *sa, Word n, const Buckets &b)
{
    SetBucketEnds(b);
    std::fill(sa, sa + n, 0);
    Word m = 0;
    ForEachLmsRightToLeft(t, n, [&](Word p) {
        sa[--b.ptr[t[p]]] = p;
        ++m;
    });
    InduceL<true, kLarge>(t, sa, n, b);
    InduceS<true, kLarge>(t, sa, n, b);
    Word kept = 0;
    for (Word i = 0; i < n; ++i) {
        if (sa[i] > 0) {
            sa[kept++] = sa[i];
        }
    }
    assert(kept == m);
    return m;
}

// Whether a[0..len) equals b[0..len). Substrings are short, so a plain loop beats a library call.
template <typename Sym>
bool SameSymbols(const Sym *a, const Sym *b, Word len)
{
    for (Word i = 0; i < len; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}

// Names the sorted LMS substrings in sa[0..m) (equal neighbours share a name) and writes the reduced
// string, the names in text order, to sa[n-m..n). Returns the number of names.
template <typename Sym>
Word NameLmsSubstrings(const Sym *t, Word *sa, Word n, Word m)
{
    // LMS positions are at least two apart, so p/2 gives each its own slot above sa[0..m).
    Word *slot = sa + m;
    std::fill(slot, sa + n, 0);
    Word right = n - 1;
    ForEachLmsRightToLeft(t, n, [&](Word p) {
        slot[p / 2] = right - p + 1;  // its substring runs to the next LMS position, inclusive
        right = p;
    });
    // Equal lengths and symbols mean equal types too: both substrings end in an LMS position.
    Word names = 0;
    Word prev = 0;
    Word prevLen = 0;
    for (Word i = 0; i < m; ++i) {
        if (i + kPrefetchAhead < m) {
            const Word ahead = sa[i + kPrefetchAhead];
            __builtin_prefetch(t + ahead);
            __builtin_prefetch(slot + ahead / 2);
        }
        const Word p = sa[i];
        const Word len = slot[p / 2];
        if (len != prevLen || !SameSymbols(t + p, t + prev, len)) {
            ++names;
            prev = p;
            prevLen = len;
        }
        slot[p / 2] = names;  // one-based here: 0 still marks an empty slot
    }
    Word top = n;
    for (Word j = m + (n - 1) / 2; j >= m; --j) {
        if (sa[j] != 0) {
            sa[--top] = sa[j] - 1;
        }
    }
    assert(top == n - m);
    return names;
}

// Puts the m LMS suffixes of sa[0..m), in their final order, at the ends of their buckets and
// induces the whole suffix array from them.
template <bool kLarge, typename Sym>
void InduceFromSortedLms(const Sym *t, Word *sa, Word n, Word m, const Buckets &b)
{
    SetBucketEnds(b);
    std::fill(sa + m, sa + n, 0);
    for (Word i = m - 1; i >= 0; --i) {
        if (i >= kPrefetchAhead) {
            __builtin_prefetch(t + sa[i - kPrefetchAhead]);
        }
        const Word p = sa[i];
        sa[i] = 0;
        sa[--b.ptr[t[p]]] = p;
    }
    InduceL<false, kLarge>(t, sa, n, b);
    InduceS<false, kLarge>(t, sa, n, b);
}

template <bool kLarge, typename Sym>
uint32_t Build(const Sym *t, Word *sa, Word n, Word k);

// Runs Build with the prefetching that suits the alphabet size.
template <typename Sym>
uint32_t BuildFor(const Sym *t, Word *sa, Word n, Word k)
{
    return k >= kLargeAlphabet ? Build<true>(t, sa, n, k) : Build<false>(t, sa, n, k);
}

template <bool kLarge, typename Sym>
uint32_t Build(const Sym *t, Word *sa, Word n, Word k)
{
    assert(n >= 2 && t[n - 1] == 0);
    auto *area = static_cast<Word *>(KRV_OsalMemAlloc(2 * static_cast<uint64_t>(k) * sizeof(Word)));
    if (area == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc error, size is %zd", static_cast<ssize_t>(2 * k));
        return KRV_ERR_NOMEM;
    }
    const Buckets b = {area, area + k, k};
    std::fill(b.count, b.count + k, 0);
    for (Word i = 0; i < n; ++i) {
        if (kLarge && i + kPrefetchAhead < n) {
            __builtin_prefetch(b.count + t[i + kPrefetchAhead], 1);
        }
        ++b.count[t[i]];
    }
    const Word m = SortLmsSubstrings<kLarge>(t, sa, n, b);
    const Word names = NameLmsSubstrings(t, sa, n, m);
    if (names < m) {
        // Sort the reduced string; its suffix order is the order of the LMS suffixes.
        const Word *reduced = sa + n - m;
        const uint32_t status = BuildFor(reduced, sa, m, names);
        if (status != KRV_OK) {
            KRV_OsalMemFree(area);
            return status;
        }
        Word *positions = sa + n - m;  // the reduced string is no longer needed
        Word top = n;
        ForEachLmsRightToLeft(t, n, [&](Word p) { sa[--top] = p; });
        for (Word i = 0; i < m; ++i) {
            if (i + kPrefetchAhead < m) {
                __builtin_prefetch(positions + sa[i + kPrefetchAhead]);
            }
            sa[i] = positions[sa[i]];
        }
    }
    InduceFromSortedLms<kLarge>(t, sa, n, m, b);
    KRV_OsalMemFree(area);
    return KRV_OK;
}

}  // namespace

uint32_t SaisBuild(const uint16_t *t, int64_t *sa, int64_t n, int64_t k)
{
    return BuildFor(t, sa, n, k);
}

}  // namespace krv::array
