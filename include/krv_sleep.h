/* Sleep registry: hook pairs run around a system sleep, so that time measured with the CPU counter
   can leave the sleep out. */
#ifndef KRV_SLEEP_H
#define KRV_SLEEP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Most hook pairs registered at once. */
#define KRV_SLEEP_MAX_PAIRS 10u

/* A sleep hook; its result is ignored by the registry. */
typedef uint32_t (*KrvSleepFunc)(void);

/* Appends the pair (both non-null), creating the registry on first use; returns KRV_OK or KRV_ERR_INVALID
   (null hook, registry not allocated, or 10 pairs registered already). Call at start-up, one thread at a time. */
uint32_t KRV_SleepFuncReg(KrvSleepFunc startFunc, KrvSleepFunc endFunc);
/* Removes the pair, which must be the last one registered; the registry goes with the last pair.
   Returns KRV_OK, KRV_ERR_INVALID (null hook, or not the last pair) or KRV_ERR_NOT_INIT (no registry). */
uint32_t KRV_SleepFuncUnRegister(KrvSleepFunc startFunc, KrvSleepFunc endFunc);
/* Before the system sleeps: marks the registry sleeping, then runs every start hook in registration
   order. Does nothing without a registry or when already sleeping. */
void KRV_SleepStart(void);
/* After the system wakes: runs every end hook in registration order, then clears the sleeping mark.
   Does nothing without a registry or when not sleeping. */
void KRV_SleepEnd(void);

#ifdef __cplusplus
}
#endif

#endif /* KRV_SLEEP_H */
