/* CPU tick: the processor's time-stamp counter (or a registered read function) and its calibration.
   The tick base is the number of CPU ticks in one 10 ms jiffy. */
#ifndef KRV_CPUTICK_H
#define KRV_CPUTICK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* KRV_CpuTickInit: no tick base could be obtained (it came out 0). */
#define KRV_CPUTICK_ERR_BASE_ZERO 0x203B1002u
/* KRV_CpuTickInit: the base is below 10 ticks per jiffy, so a millisecond holds no whole tick. */
#define KRV_CPUTICK_ERR_MS_BASE_ZERO 0x203B1003u

/* A replacement for the counter read; it should count at the rate of the calibrated tick base. */
typedef uint64_t (*KrvCpuTickGetFunc)(void);

/* Creates the shared tick state or counts one more user; returns KRV_OK, KRV_ERR_NOMEM,
   KRV_CPUTICK_ERR_BASE_ZERO or KRV_CPUTICK_ERR_MS_BASE_ZERO.
   Call from one thread at a time (start-up); the first call may take about a second to calibrate. */
uint32_t KRV_CpuTickInit(void);
/* Counts one user out; the last one frees the state. Unbalanced calls are not detected. */
void KRV_CpuTickFini(void);
/* Returns the current CPU tick: the registered read function's value, else the time-stamp counter. */
uint64_t KRV_CpuTickGet(void);
/* Registers func as the tick read for the life of the process; returns KRV_OK, KRV_ERR_INVALID (null)
   or KRV_ERR_REGISTERED (one is registered already; the first stays). There is no unregistration. */
uint32_t KRV_CpuTickGetFuncReg(KrvCpuTickGetFunc func);
/* Returns the registered read function, or null. */
KrvCpuTickGetFunc KRV_CpuTickGetFuncGet(void);
/* Stores the tick base in *cpuTickBase; returns KRV_OK, KRV_ERR_INVALID (null pointer, or a
   base of 0 or 0xFFFFFFFF) or KRV_ERR_NOT_INIT. */
uint32_t KRV_CpuTickBaseGet(uint32_t *cpuTickBase);
/* Stores *cpuTick converted to whole milliseconds in *milliSecs; returns KRV_OK, KRV_ERR_INVALID (a
   null pointer) or KRV_ERR_NOT_INIT. */
uint32_t KRV_CpuTick2Ms(const uint64_t *cpuTick, uint64_t *milliSecs);
/* Returns ticks in nanoseconds; above 1844674407370 ticks the sub-jiffy part is dropped to avoid
   overflow. Returns 0 when not initialised. */
uint64_t KRV_CpuTick2Ns(uint64_t ticks);
/* Returns nanoseconds in ticks; when ns * base would overflow, whole jiffies only. Returns 0 when not
   initialised. */
uint64_t KRV_Ns2CpuTick(uint64_t nanoSecs);
/* Returns jiffies * 10 (milliseconds), without an overflow check. */
uint64_t KRV_CpuTickJiffiesToMS(uint64_t jiffies);
/* Finds the tick base from the "cpu MHz" line of /proc/cpuinfo, else by counting ticks over a
   one-second SIGALRM; returns KRV_OK, KRV_ERR_INVALID (null pointer), KRV_ERR_FAILED (no SIGALRM handler
   could be installed) or the code of KRV_64Div32RoundUp. The alarm replaces the SIGALRM action meanwhile. */
uint32_t KRV_OsalCpuTickBaseGet(uint32_t *cpuTickBase);

#ifdef __cplusplus
}
#endif

#endif /* KRV_CPUTICK_H */
