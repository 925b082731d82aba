// The linear-time suffix-array check shared by the array tests and the array fuzz target.
#ifndef KRV_SA_CHECK_H
#define KRV_SA_CHECK_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace krvtest {

// Whether sa[0..n) is the suffix array of data[0..n): a permutation whose neighbours a, b have
// data[a] < data[b], or equal bytes and suffix a+1 ranked before suffix b+1 (the empty suffix first).
inline bool IsSuffixArray(const uint8_t *data, size_t n, const size_t *sa)
{
    std::vector<size_t> rank(n + 1, 0);  // rank[n] = 0: the empty suffix; the others 1..n
    for (size_t r = 0; r < n; ++r) {
        if (sa[r] >= n || rank[sa[r]] != 0) {
            return false;
        }
        rank[sa[r]] = r + 1;
    }
    for (size_t r = 1; r < n; ++r) {
        const size_t a = sa[r - 1];
        const size_t b = sa[r];
        if (data[a] > data[b] || (data[a] == data[b] && rank[a + 1] > rank[b + 1])) {
            return false;
        }
    }
    return true;
}

}  // namespace krvtest

#endif  // KRV_SA_CHECK_H
