// Synchronisation primitives: opaque handles over POSIX objects with the library's return numbers.
#include "krv_osalsync.h"

#include <pthread.h>

#include <cerrno>

#include "krv_osal.h"
#include "krv_status.h"

namespace {

constexpr uint32_t kRwFailed = KRV_ERR_FAILED;  // read-write locks report platform refusals as a generic failure

template <typename T>
T *Object(void *handle)
{
    return static_cast<T *>(handle);
}

// Shared shape of the create functions: check the variable, allocate, initialise, publish.
// initFailed is the number this family reports when the platform initialisation fails.
template <typename T, typename Init>
uint32_t CreateHandle(void **handle, uint32_t initFailed, Init init)
{
    if (handle == nullptr || *handle != nullptr) {
        return KRV_ERR_INVALID;
    }
    T *object = static_cast<T *>(KRV_OsalMemAlloc(sizeof(T)));
    if (object == nullptr) {
        return KRV_ERR_NOMEM;
    }
    if (!init(object)) {
        KRV_OsalMemFree(object);
        return initFailed;
    }
    *handle = object;
    return KRV_OK;
}

// Shared shape of the destroy functions: the memory is freed and the variable cleared even when the
// platform refuses, so a handle is never left half-alive.
template <typename T, typename Destroy>
uint32_t DestroyHandle(void **handle, Destroy destroy)
{
    if (handle == nullptr || *handle == nullptr) {
        return KRV_ERR_INVALID;
    }
    int rc = destroy(Object<T>(*handle));
    KRV_OsalMemFree(*handle);
    *handle = nullptr;
    return rc == 0 ? KRV_OK : KRV_ERR_PLATFORM;
}

uint32_t PlatformResult(int rc)
{
    return rc == 0 ? KRV_OK : KRV_ERR_PLATFORM;
}

}  // namespace

extern "C" {

/* Every library mutex is recursive: the timer code re-enters its locks from callbacks. */
uint32_t KRV_OsalMutexCreate(KrvMutex *mutex)
{
    return CreateHandle<pthread_mutex_t>(mutex, KRV_ERR_INVALID, [](pthread_mutex_t *object) {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        if (pthread_mutex_init(object, &attr) != 0) {
            pthread_mutexattr_destroy(&attr);
            return false;
        }
        return true;
    });
}

uint32_t KRV_OsalMutexDestroy(KrvMutex *mutex)
{
    return DestroyHandle<pthread_mutex_t>(mutex, pthread_mutex_destroy);
}

void KRV_OsalMutexLock(KrvMutex mutex)
{
    if (mutex != nullptr) {
        pthread_mutex_lock(Object<pthread_mutex_t>(mutex));
    }
}

void KRV_OsalMutexUnLock(KrvMutex mutex)
{
    if (mutex != nullptr) {
        pthread_mutex_unlock(Object<pthread_mutex_t>(mutex));
    }
}

uint32_t KRV_OsalCondAttrCreate(KrvCondAttr *attr)
{
    return CreateHandle<pthread_condattr_t>(attr, KRV_ERR_PLATFORM,
                                            [](pthread_condattr_t *object) { return pthread_condattr_init(object) == 0; });
}

uint32_t KRV_OsalCondAttrDestroy(KrvCondAttr *attr)
{
    return DestroyHandle<pthread_condattr_t>(attr, pthread_condattr_destroy);
}

uint32_t KRV_OsalCondAttrClockSet(KrvCondAttr attr, uint32_t clockId)
{
    if (attr == nullptr) {
        return KRV_ERR_INVALID;
    }
    return PlatformResult(pthread_condattr_setclock(Object<pthread_condattr_t>(attr), static_cast<clockid_t>(clockId)));
}

uint32_t KRV_OsalCondAttrClockGet(KrvCondAttr attr, int32_t *clockId)
{
    if (attr == nullptr || clockId == nullptr) {
        return KRV_ERR_INVALID;
    }
    clockid_t clock = 0;
    int rc = pthread_condattr_getclock(Object<pthread_condattr_t>(attr), &clock);
    if (rc == 0) {
        *clockId = static_cast<int32_t>(clock);
    }
    return PlatformResult(rc);
}

uint32_t KRV_OsalCondAttrPsharedSet(KrvCondAttr attr, uint32_t pshared)
{
    if (attr == nullptr) {
        return KRV_ERR_INVALID;
    }
    return PlatformResult(pthread_condattr_setpshared(Object<pthread_condattr_t>(attr), static_cast<int>(pshared)));
}

uint32_t KRV_OsalCondAttrPsharedGet(KrvCondAttr attr, int32_t *pshared)
{
    if (attr == nullptr || pshared == nullptr) {
        return KRV_ERR_INVALID;
    }
    return PlatformResult(pthread_condattr_getpshared(Object<pthread_condattr_t>(attr), pshared));
}

uint32_t KRV_OsalCondCreate(KrvCondAttr attr, KrvCond *cond)
{
    return CreateHandle<pthread_cond_t>(cond, KRV_ERR_PLATFORM, [attr](pthread_cond_t *object) {
        return pthread_cond_init(object, Object<pthread_condattr_t>(attr)) == 0;
    });
}

uint32_t KRV_OsalCondDestroy(KrvCond *cond)
{
    return DestroyHandle<pthread_cond_t>(cond, pthread_cond_destroy);
}

uint32_t KRV_OsalCondSignal(KrvCond cond)
{
    if (cond == nullptr) {
        return KRV_ERR_INVALID;
    }
    return PlatformResult(pthread_cond_signal(Object<pthread_cond_t>(cond)));
}

uint32_t KRV_OsalCondBroadcast(KrvCond cond)
{
    if (cond == nullptr) {
        return KRV_ERR_INVALID;
    }
    return PlatformResult(pthread_cond_broadcast(Object<pthread_cond_t>(cond)));
}

/* The mutex comes first, unlike the platform call; a time-out reads as any other failure. */
uint32_t KRV_OsalCondTimedWait(KrvMutex mutex, KrvCond cond, const struct timespec *absTime)
{
    if (mutex == nullptr || cond == nullptr || absTime == nullptr) {
        return KRV_ERR_INVALID;
    }
    return PlatformResult(
        pthread_cond_timedwait(Object<pthread_cond_t>(cond), Object<pthread_mutex_t>(mutex), absTime));
}

uint32_t KRV_OsalRWLockCreate(KrvRWLock *rwLock)
{
    return CreateHandle<pthread_rwlock_t>(rwLock, kRwFailed, [](pthread_rwlock_t *object) {
        return pthread_rwlock_init(object, nullptr) == 0;
    });
}

void KRV_OsalRWLockDestroy(KrvRWLock *rwLock)
{
    (void)DestroyHandle<pthread_rwlock_t>(rwLock, pthread_rwlock_destroy);
}

uint32_t KRV_OsalRWReadLock(KrvRWLock rwLock)
{
    if (rwLock == nullptr) {
        return KRV_ERR_INVALID;
    }
    return pthread_rwlock_rdlock(Object<pthread_rwlock_t>(rwLock)) == 0 ? KRV_OK : kRwFailed;
}

uint32_t KRV_OsalRWWriteLock(KrvRWLock rwLock)
{
    if (rwLock == nullptr) {
        return KRV_ERR_INVALID;
    }
    return pthread_rwlock_wrlock(Object<pthread_rwlock_t>(rwLock)) == 0 ? KRV_OK : kRwFailed;
}

void KRV_OsalRWUnlock(KrvRWLock rwLock)
{
    if (rwLock != nullptr) {
        pthread_rwlock_unlock(Object<pthread_rwlock_t>(rwLock));
    }
}

uint32_t KRV_OsalAtomicAdd(uint32_t value, uint32_t *p)
{
    return __atomic_fetch_add(p, value, __ATOMIC_SEQ_CST);
}

uint32_t KRV_OsalAtomicSub(uint32_t value, uint32_t *p)
{
    return __atomic_fetch_add(p, 0u - value, __ATOMIC_SEQ_CST);
}

uint32_t KRV_OsalAtomicInc(uint32_t *p)
{
    return __atomic_fetch_add(p, 1u, __ATOMIC_SEQ_CST);
}

uint32_t KRV_OsalAtomicDec(uint32_t *p)
{
    return __atomic_fetch_add(p, 0xFFFFFFFFu, __ATOMIC_SEQ_CST);
}

/* A plain aligned load: callers use it for monitoring reads that need no ordering. */
uint32_t KRV_OsalAtomicGet(const uint32_t *p)
{
    return __atomic_load_n(p, __ATOMIC_RELAXED);
}

uint32_t KRV_OsalAtomicSet(uint32_t value, uint32_t *p)
{
    uint32_t seen = __atomic_load_n(p, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(p, &seen, value, false, __ATOMIC_SEQ_CST, __ATOMIC_RELAXED)) {
    }
    return seen;
}

bool KRV_OsalAtomicCas(uint32_t expected, uint32_t newValue, uint32_t *p)
{
    return __atomic_compare_exchange_n(p, &expected, newValue, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

uint32_t KRV_OsalAtomic32TestSet(uint32_t value, uint32_t *p)
{
    return __atomic_exchange_n(p, value, __ATOMIC_SEQ_CST);
}

uint32_t KRV_OsalAtomicInt32TestSet(uint32_t value, uint32_t *p)
{
    return KRV_OsalAtomic32TestSet(value, p);
}

}  // extern "C"
