/* System tick: a count of 10 ms jiffies from the CPU tick that stands still while the system
   sleeps (between KRV_SleepStart and KRV_SleepEnd). */
#ifndef KRV_TICK_H
#define KRV_TICK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Starts the tick (holding the CPU tick and one sleep hook pair) or counts one more user; returns KRV_OK,
   KRV_ERR_NOMEM, or the code of KRV_CpuTickInit, KRV_SleepFuncReg or KRV_CpuTickBaseGet. A failure leaves
   nothing behind. Call from one thread at a time (start-up). */
uint32_t KRV_TickInit(void);
/* Stores the current tick in *tick; returns KRV_OK, KRV_ERR_INVALID (null pointer, logged; or a
   counter that went back below its reference, not logged, *tick untouched) or KRV_ERR_NOT_INIT. */
uint32_t KRV_TickGet(uint64_t *tick);
/* Counts one user out; the last one removes the hook pair and releases the CPU tick. */
void KRV_TickFini(void);

#ifdef __cplusplus
}
#endif

#endif /* KRV_TICK_H */
