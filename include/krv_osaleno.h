/* Composed error codes, error strings and the per-thread error stack.
 *
 * A composed code holds the error number in bits 0-7, the module number in bits 8-15 and a caller's
 * high part in bits 16-31. Error-string functions are registered per module family; each thread that
 * pushes an error gets a ring of its 40 most recent codes. All of it is guarded by one recursive
 * mutex made by KRV_EnoErrCodeInit; before that call (or after KRV_EnoErrCodeDeInit) the functions
 * run unlocked and must not be used from several threads at once.
 *
 * A thread whose error record could not be allocated when its first error was pushed keeps its
 * node without a record. Its next push retries the allocation; until one succeeds the thread reads
 * as an empty stack: KRV_EnoLastErrorGet returns 0 and the clear and reference functions do nothing.
 */
#ifndef KRV_OSALENO_H
#define KRV_OSALENO_H

#include <stdbool.h>
#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Turns a composed error code into text; the text is owned by the registering component. */
typedef const char *(*KrvEnoErrorStrFunc)(uint32_t code);

/* Returns the library's error number (0-123) for an errno value, or KRV_ERR_UNKNOWN when it has none. */
uint32_t KRV_OsalEnoTransfer(int64_t err);
/* Returns bits 0-7 (the error number) of code. */
uint32_t KRV_EnoErrorCodeGet(uint32_t code);
/* Returns bits 8-15 (the module number) of code. */
uint32_t KRV_EnoErrorModuleGet(uint32_t code);
/* Returns true when (module << 8 | errNo) equals the whole of code, high bits included. */
bool KRV_EnoErrorCodeCheck(uint32_t code, uint32_t module, uint32_t errNo);
/* Returns the text of code from its module family's string function, or "Unknown"; never freed. */
const char *KRV_EnoErrorStrGet(uint32_t code);
/* Sets (fn non-null) or clears the string function of the family whose name starts with name and
 * whose module range is exactly firstModule..lastModule; returns KRV_OK, or KRV_ERR_INVALID for a null or
 * unmatched name. */
uint32_t KRV_EnoErrorStrFuncRegister(const char *name, int32_t firstModule, int32_t lastModule,
                                     KrvEnoErrorStrFunc fn);

/* Creates the module mutex and resets the stacks and the node limit (65535); returns KRV_OK when already
 * initialised, else the mutex creation's result (KRV_OK, KRV_ERR_NOMEM or KRV_ERR_INVALID). Stacks left from
 * before are released. */
uint32_t KRV_EnoErrCodeInit(void);
/* Destroys the module mutex only; returns KRV_OK, KRV_ERR_PLATFORM, or KRV_ERR_INVALID when not initialised.
 * Remove the stacks first. */
uint32_t KRV_EnoErrCodeDeInit(void);
/* Sets the number of thread stacks beyond which new threads are refused; returns KRV_OK, or
 * KRV_ERR_UNKNOWN when limit lies outside 255..16777215. */
uint32_t KRV_EnoMaxErrorLimitSet(int32_t limit);
/* Returns the current thread-stack limit. */
uint32_t KRV_EnoMaxErrorLimitGet(void);
/* Pushes (high << 16 | module << 8 | errNo) on the calling thread's stack, creating it on first use;
 * ignored when module > 254 or errNo > 65534. Returns nothing. */
void KRV_EnoErrorWrapperPush(uint32_t high, uint32_t module, uint32_t errNo);
/* Pops and returns the calling thread's newest code; 0 when its stack is empty or no thread has one,
 * KRV_ERR_UNKNOWN (255) when other threads have stacks but the caller has none. */
uint32_t KRV_EnoLastErrorGet(void);
/* Empties the calling thread's stack unless it is referenced; returns nothing. */
void KRV_EnoErrorStackClear(void);
/* Empties the calling thread's stack even while it is referenced; returns nothing. */
void KRV_EnoErrorStackForceClear(void);
/* Adds a reference to the calling thread's stack, protecting it from KRV_EnoErrorStackClear. */
void KRV_EnoErrorRefInc(void);
/* Drops a reference from the calling thread's stack, if it has any. */
void KRV_EnoErrorRefDec(void);
/* Frees every thread's stack (all true) or the calling thread's own, references notwithstanding. */
void KRV_EnoErrorStackRemove(bool all);

#ifdef __cplusplus
}
#endif

#endif /* KRV_OSALENO_H */
