// KRV_ArraySaSort: argument checks, the working area and the copy-out around the SA-IS construction.
#include "krv_array.h"

#include <cstdint>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "util/krv_array_sais.h"

namespace {

constexpr char kKrvSource[] = "krv_array";
constexpr uint64_t kWordBytes = sizeof(int64_t);

// Sorts data's suffixes in `work` and, on success, copies them to sa. work[0] is the sentinel's own
// suffix, always first, so it is dropped.
template <typename Word>
uint32_t CopySorted(Word *work, const uint8_t *data, Word len, size_t *sa)
{
    const uint32_t status = krv::array::SaisBuild(data, len, work);
    if (status == KRV_OK) {
        for (Word r = 0; r < len; ++r) {
            sa[r] = static_cast<size_t>(work[r + 1]);
        }
    }
    return status;
}

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
    // The construction reads the caller's bytes in place and uses the area only for its suffix
    // array and reduced strings, in 32-bit words when every position fits in one.
    uint32_t status = KRV_OK;
    if (len < static_cast<size_t>(INT32_MAX)) {
        status = CopySorted(reinterpret_cast<int32_t *>(area), data, static_cast<int32_t>(len), sa);
    } else {
        status = CopySorted(area, data, static_cast<int64_t>(len), sa);
    }
    KRV_OsalMemFree(area);
    return status;
}
