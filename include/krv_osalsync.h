/* Synchronisation primitives: recursive mutexes, conditions, read-write locks and 32-bit atomics. */
#ifndef KRV_OSALSYNC_H
#define KRV_OSALSYNC_H

#include <stdbool.h>
#include <stdint.h>
#include <time.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque handles; a null handle means no object exists. */
typedef void *KrvMutex;
typedef void *KrvCondAttr;
typedef void *KrvCond;
typedef void *KrvRWLock;

/* Creates a recursive mutex into *mutex (which must be null); returns KRV_OK, KRV_ERR_INVALID (bad address or
   set variable, or init failed) or KRV_ERR_NOMEM. */
uint32_t KRV_OsalMutexCreate(KrvMutex *mutex);
/* Destroys *mutex and nulls it; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM (platform refused;
   memory freed all the same). */
uint32_t KRV_OsalMutexDestroy(KrvMutex *mutex);
/* Locks mutex; a null handle is ignored. */
void KRV_OsalMutexLock(KrvMutex mutex);
/* Unlocks mutex; a null handle is ignored. */
void KRV_OsalMutexUnLock(KrvMutex mutex);

/* Creates a condition attribute into *attr (which must be null); returns KRV_OK, KRV_ERR_INVALID, KRV_ERR_NOMEM
   or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondAttrCreate(KrvCondAttr *attr);
/* Destroys *attr and nulls it; returns KRV_OK, KRV_ERR_INVALID or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondAttrDestroy(KrvCondAttr *attr);
/* Selects the clock of conditions made with attr; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondAttrClockSet(KrvCondAttr attr, uint32_t clockId);
/* Reads the clock of attr into *clockId; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondAttrClockGet(KrvCondAttr attr, int32_t *clockId);
/* Sets the process-shared flag of attr; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondAttrPsharedSet(KrvCondAttr attr, uint32_t pshared);
/* Reads the process-shared flag of attr into *pshared; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondAttrPsharedGet(KrvCondAttr attr, int32_t *pshared);

/* Creates a condition (attr may be null for defaults) into *cond (which must be null); returns KRV_OK,
   KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondCreate(KrvCondAttr attr, KrvCond *cond);
/* Destroys *cond and nulls it; returns KRV_OK, KRV_ERR_INVALID or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondDestroy(KrvCond *cond);
/* Wakes one waiter; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondSignal(KrvCond cond);
/* Wakes every waiter; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_PLATFORM. */
uint32_t KRV_OsalCondBroadcast(KrvCond cond);
/* Waits on cond with mutex (mutex first) until absTime; returns KRV_OK, KRV_ERR_INVALID (null) or
   KRV_ERR_PLATFORM (failure or time-out). */
uint32_t KRV_OsalCondTimedWait(KrvMutex mutex, KrvCond cond, const struct timespec *absTime);

/* Creates a read-write lock into *rwLock (which must be null); returns KRV_OK, KRV_ERR_INVALID, KRV_ERR_NOMEM or
   KRV_ERR_FAILED (platform refused). */
uint32_t KRV_OsalRWLockCreate(KrvRWLock *rwLock);
/* Destroys *rwLock and nulls it; null addresses and handles are ignored. */
void KRV_OsalRWLockDestroy(KrvRWLock *rwLock);
/* Takes a read lock; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_FAILED (platform refused). */
uint32_t KRV_OsalRWReadLock(KrvRWLock rwLock);
/* Takes the write lock; returns KRV_OK, KRV_ERR_INVALID (null) or KRV_ERR_FAILED (platform refused). */
uint32_t KRV_OsalRWWriteLock(KrvRWLock rwLock);
/* Releases a read or write lock; a null handle is ignored. */
void KRV_OsalRWUnlock(KrvRWLock rwLock);

/* The atomics work on a caller's aligned 32-bit word and are full barriers, except the plain Get. */
/* Adds value to *p; returns the value before. */
uint32_t KRV_OsalAtomicAdd(uint32_t value, uint32_t *p);
/* Subtracts value from *p (wrapping); returns the value before. */
uint32_t KRV_OsalAtomicSub(uint32_t value, uint32_t *p);
/* Adds 1 to *p; returns the value before. */
uint32_t KRV_OsalAtomicInc(uint32_t *p);
/* Subtracts 1 from *p, 0 wrapping to 0xFFFFFFFF; returns the value before. */
uint32_t KRV_OsalAtomicDec(uint32_t *p);
/* Returns *p by a plain aligned load, without ordering. */
uint32_t KRV_OsalAtomicGet(const uint32_t *p);
/* Stores value in *p by a compare-and-swap loop; returns the value before. */
uint32_t KRV_OsalAtomicSet(uint32_t value, uint32_t *p);
/* Stores newValue when *p holds expected; returns true when it did. */
bool KRV_OsalAtomicCas(uint32_t expected, uint32_t newValue, uint32_t *p);
/* Exchanges *p for value unconditionally; returns the value before. */
uint32_t KRV_OsalAtomic32TestSet(uint32_t value, uint32_t *p);
/* The same exchange under its second name; returns the value before. */
uint32_t KRV_OsalAtomicInt32TestSet(uint32_t value, uint32_t *p);

#ifdef __cplusplus
}
#endif

#endif /* KRV_OSALSYNC_H */
