// Fuzz target: sort the suffixes of arbitrary bytes and check the result is their suffix array.
//
// The check is linear: the result must be a permutation, and of each two neighbours a, b either
// data[a] < data[b], or the bytes are equal and suffix a+1 ranks before suffix b+1 (the empty
// suffix before all). Inputs of fewer than two bytes also check the refusal of length 0.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "krv_array.h"
#include "krv_log.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

bool IsSuffixArray(const uint8_t *data, size_t n, const std::vector<size_t> &sa)
{
    std::vector<size_t> rank(n + 1, 0);  // rank[n] = 0 for the empty suffix
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    std::vector<size_t> sa(size == 0 ? 1 : size, 0);
    const uint32_t status = KRV_ArraySaSort(data, size, sa.data(), size);
    if (size == 0 ? status != 22 : status != 0 || !IsSuffixArray(data, size, sa)) {
        std::abort();
    }
    return 0;
}
