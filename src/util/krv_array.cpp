// KRV_ArraySaSort: argument checks, the working area and the copy-out around the SA-IS construction.
#include "krv_array.h"

#include <cstdint>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "util/krv_array_sais.h"

namespace {

constexpr char kKrvSource[] = "krv_array";
// Bytes in 0..255 become symbols 1..256, leaving 0 for the sentinel.
constexpr int64_t kByteAlphabet = 257;
constexpr uint64_t kWordBytes = sizeof(int64_t);

}  // namespace

extern "C" uint32_t KRV_ArraySaSort(const uint8_t *data, size_t len, size_t *sa, size_t saLen)
{
    if (len != saLen || len == 0 || data == nullptr || sa == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "input para is err, len is %zu, saLen is %zu", len, saLen);
        return KRV_ERR_INVALID;
    }
    // The text and the suffix array of n = len + 1 symbols, in words. Sizes that overflow are refused
    // without asking the allocator; a word count past SIZE_MAX is reported saturated, not wrapped.
    uint64_t words = 0;
    uint64_t bytes = 0;
    const bool wordsFit = !__builtin_add_overflow(static_cast<uint64_t>(len), 1u, &words) &&
                          !__builtin_mul_overflow(words, 2u, &words);
    const bool bytesFit = wordsFit && !__builtin_mul_overflow(words, kWordBytes, &bytes);
    auto *area = bytesFit ? static_cast<int64_t *>(KRV_OsalMemAlloc(bytes)) : nullptr;
    if (area == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc err, size is %zu", wordsFit ? static_cast<size_t>(words) : SIZE_MAX);
        return KRV_ERR_NOMEM;
    }
    const auto n = static_cast<int64_t>(len) + 1;
    // The text's n symbols fit in 16 bits each, so they take the front quarter of their n words.
    auto *t = reinterpret_cast<uint16_t *>(area);
    int64_t *suffixes = area + n;
    for (int64_t i = 0; i < n - 1; ++i) {
        t[i] = static_cast<uint16_t>(data[i] + 1);
    }
    t[n - 1] = 0;
    uint32_t status = krv::array::SaisBuild(t, suffixes, n, kByteAlphabet);
    if (status == KRV_OK) {
        // suffixes[0] is the sentinel's own suffix, always first.
        for (int64_t r = 1; r < n; ++r) {
            sa[r - 1] = static_cast<size_t>(suffixes[r]);
        }
    }
    KRV_OsalMemFree(area);
    return status;
}
