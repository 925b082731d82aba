/* Composed error codes, error strings and the per-thread error stack. */
#ifndef KRV_OSALENO_H
#define KRV_OSALENO_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* KRV_OSALENO_H */
