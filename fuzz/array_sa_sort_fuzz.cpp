// Fuzz target: sort the suffixes of arbitrary bytes and check, in linear time, that the result is
// their suffix array; the empty input must be refused.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "krv_array.h"
#include "krv_log.h"
#include "support/krv_sa_check.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    std::vector<size_t> sa(size == 0 ? 1 : size, 0);
    const uint32_t status = KRV_ArraySaSort(data, size, sa.data(), size);
    if (size == 0 ? status != 22 : status != 0 || !krvtest::IsSuffixArray(data, size, sa.data())) {
        std::abort();
    }
    return 0;
}
