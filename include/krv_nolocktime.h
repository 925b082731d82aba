/* Lock-free local time: a 5-second snapshot of the local time and the CPU tick, kept by an updater
   thread, read without a lock or a system call. */
#ifndef KRV_NOLOCKTIME_H
#define KRV_NOLOCKTIME_H

#include <stdint.h>

#include "krv_time.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Takes the first snapshot and starts the updater thread, or counts one more user; returns 0, the code
   of KRV_CpuTickInit, or 1 when the snapshot or the thread cannot be made. */
uint32_t KRV_NolockTimeInit(void);
/* Counts one user out; the last one stops and joins the updater thread (up to 5 s) and releases the
   CPU tick. Readers must have finished before the last call. */
void KRV_NolockTimeFini(void);
/* Stores the local time in *date to the millisecond (microsecond 0), without a lock, system call or
   allocation; returns 0, 22 for a null date, or 124 when the module is not initialised. */
uint32_t KRV_LmtTimeGetNoLock(KrvDateTime *date);

#ifdef __cplusplus
}
#endif

#endif /* KRV_NOLOCKTIME_H */
