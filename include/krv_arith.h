/* Integer arithmetic helpers. */
#ifndef KRV_ARITH_H
#define KRV_ARITH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Stores dividend / divisor in *result (not checked for null), adding one when divisor > 1 and the
   remainder is at least divisor / 2 (halved, rounded down): 5 / 2 = 3, 5 / 3 = 2, 5 / 4 = 1.
   Returns KRV_OK, or KRV_ERR_INVALID for divisor 0 (logged, *result untouched). */
uint32_t KRV_64Div32RoundUp(uint64_t dividend, uint32_t divisor, uint64_t *result);

#ifdef __cplusplus
}
#endif

#endif /* KRV_ARITH_H */
