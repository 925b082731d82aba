// Rounded 64-by-32-bit division.
#include "krv_arith.h"

#include "krv_status.h"
#include "log/krv_diag.h"

namespace {
constexpr char kKrvSource[] = "krv_arith";
}  // namespace

extern "C" {

/* Nearest-integer rounding with the threshold divisor / 2 rounded down, so an odd divisor rounds up
   a little early (5 / 3 = 2): established results that callers' tick bases depend on. */
uint32_t KRV_64Div32RoundUp(uint64_t dividend, uint32_t divisor, uint64_t *result)
{
    if (divisor == 0) {
        KRV_DIAG(KRV_ERR_INVALID, "Param Invalid");
        return KRV_ERR_INVALID;
    }
    uint64_t quotient = dividend / divisor;
    if (divisor > 1 && dividend % divisor >= divisor / 2) {
        ++quotient;  // cannot wrap: divisor >= 2 keeps the quotient at most half the range
    }
    *result = quotient;
    return KRV_OK;
}

}  // extern "C"
