/* Relative timers on a 4096-bucket timing wheel driven by one trigger thread. */
#ifndef KRV_RELTMR_H
#define KRV_RELTMR_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* KRV_RELTMR_H */
