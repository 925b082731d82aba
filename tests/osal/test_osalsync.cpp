// Locks, conditions and atomics: create/destroy rows, recursion, clocks, time-outs and wrapping.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "krv_osalsync.h"
#include "support/krv_test_support.h"

namespace {

// Set to make the next platform initialisation on this thread fail, as a starved platform may.
thread_local bool t_refuseInit = false;

template <typename... Args>
int InitOrRefuse(const char *name, Args... args)
{
    static auto next = reinterpret_cast<int (*)(Args...)>(dlsym(RTLD_NEXT, name));
    return std::exchange(t_refuseInit, false) ? EAGAIN : next(args...);
}

}  // namespace

// Defined in the executable, these come before the C library's for every caller in the process.
extern "C" int pthread_mutex_init(pthread_mutex_t *m, const pthread_mutexattr_t *a) noexcept
{
    return InitOrRefuse("pthread_mutex_init", m, a);
}
extern "C" int pthread_rwlock_init(pthread_rwlock_t *rw, const pthread_rwlockattr_t *a) noexcept
{
    return InitOrRefuse("pthread_rwlock_init", rw, a);
}

// Under ThreadSanitizer: destroying a held mutex is reported as an error in its own right, but here
// it is the way to make the platform refuse a destroy (EBUSY), the row under test. Only that helper
// is exempt; unused in other builds.
extern "C" const char *__tsan_default_suppressions()
{
    return "mutex:DestroyHeldMutex\n";
}

namespace {

// Destroys a mutex this thread still holds; the platform refuses.
__attribute__((noinline)) uint32_t DestroyHeldMutex(KrvMutex *mutex)
{
    return KRV_OsalMutexDestroy(mutex);
}

// Checks the create rows (null address, allocation failure, the platform refusal unless 0, variable
// already set); returns the handle.
void *Created(const std::function<uint32_t(void **)> &create, uint32_t refused)
{
    void *handle = nullptr;
    EXPECT_EQ(22u, create(nullptr));
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(12u, create(&handle));
    }
    if (refused != 0) {
        t_refuseInit = true;
        EXPECT_EQ(refused, create(&handle));
    }
    EXPECT_EQ(0u, create(&handle));
    void *before = handle;
    EXPECT_EQ(22u, create(&handle));
    EXPECT_EQ(before, handle);
    return handle;
}

TEST(OsalSync, LockAndConditionRowsRecursionClocksAndWaits)
{
    KrvMutex mutex = Created(KRV_OsalMutexCreate, 22);
    KrvCondAttr attr = Created(KRV_OsalCondAttrCreate, 0);
    int32_t clock = -1;
    EXPECT_EQ(14u, KRV_OsalCondAttrClockSet(attr, CLOCK_PROCESS_CPUTIME_ID));
    EXPECT_EQ(0u, KRV_OsalCondAttrClockSet(attr, CLOCK_MONOTONIC));
    EXPECT_EQ(0u, KRV_OsalCondAttrClockGet(attr, &clock));
    EXPECT_EQ(CLOCK_MONOTONIC, clock);
    int32_t pshared = -1;
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedSet(attr, PTHREAD_PROCESS_SHARED));
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedGet(attr, &pshared));
    EXPECT_EQ(PTHREAD_PROCESS_SHARED, pshared);
    EXPECT_EQ(14u, KRV_OsalCondAttrPsharedSet(attr, 7));  // the platform refuses an unknown flag
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedSet(attr, PTHREAD_PROCESS_PRIVATE));
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedGet(attr, &pshared));
    EXPECT_EQ(PTHREAD_PROCESS_PRIVATE, pshared);
    EXPECT_EQ(22u, KRV_OsalCondAttrPsharedSet(nullptr, PTHREAD_PROCESS_PRIVATE));
    EXPECT_EQ(22u, KRV_OsalCondAttrPsharedGet(nullptr, &pshared));
    KrvCond cond = Created([attr](void **h) { return KRV_OsalCondCreate(attr, h); }, 0);

    timespec deadline = {};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    EXPECT_EQ(22u, KRV_OsalCondTimedWait(mutex, nullptr, &deadline));
    KRV_OsalMutexLock(mutex);
    KRV_OsalMutexLock(mutex);  // recursive: no deadlock
    KRV_OsalMutexUnLock(mutex);
    EXPECT_EQ(14u, KRV_OsalCondTimedWait(mutex, cond, &deadline));  // already past
    // A minute ahead on the monotonic clock is the distant past on the real-time clock, so a signalled
    // wake-up shows that the attribute reached the condition and the handles their places.
    deadline.tv_sec += 60;
    std::thread signaller([&] {
        KRV_OsalMutexLock(mutex);  // granted only once the waiter sleeps
        KRV_OsalCondSignal(cond);
        KRV_OsalMutexUnLock(mutex);
    });
    EXPECT_EQ(0u, KRV_OsalCondTimedWait(mutex, cond, &deadline));
    signaller.join();
    // A broadcast wakes every waiter: three threads wait, one broadcast releases them all.
    KRV_OsalMutexUnLock(mutex);  // the waiters need it; held again for the destroy below
    int waiting = 0, woken = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] {
            KRV_OsalMutexLock(mutex);
            ++waiting;
            woken += KRV_OsalCondTimedWait(mutex, cond, &deadline) == 0;
            KRV_OsalMutexUnLock(mutex);
        });
    }
    EXPECT_TRUE(krvtest::WaitFor([&] {
        KRV_OsalMutexLock(mutex);
        const bool all = waiting == 3;  // each waiter sleeps once it has released the mutex
        KRV_OsalMutexUnLock(mutex);
        return all;
    }));
    KRV_OsalMutexLock(mutex);
    EXPECT_EQ(0u, KRV_OsalCondBroadcast(cond));
    KRV_OsalMutexUnLock(mutex);
    for (std::thread &w : waiters) {
        w.join();
    }
    EXPECT_EQ(3, woken);
    KRV_OsalMutexLock(mutex);
    EXPECT_EQ(22u, KRV_OsalCondBroadcast(nullptr));

    for (auto destroy : {KRV_OsalMutexDestroy, KRV_OsalCondAttrDestroy, KRV_OsalCondDestroy}) {
        void *empty = nullptr;
        EXPECT_EQ(22u, destroy(nullptr));
        EXPECT_EQ(22u, destroy(&empty));
    }
    EXPECT_EQ(14u, DestroyHeldMutex(&mutex));  // refused, but freed all the same
    EXPECT_EQ(nullptr, mutex);
    EXPECT_EQ(0u, KRV_OsalCondDestroy(&cond));
    EXPECT_EQ(0u, KRV_OsalCondAttrDestroy(&attr));
    KRV_OsalMutexLock(nullptr);

    KrvRWLock rw = Created(KRV_OsalRWLockCreate, 1);
    EXPECT_EQ(22u, KRV_OsalRWReadLock(nullptr));
    EXPECT_EQ(0u, KRV_OsalRWWriteLock(rw));
    EXPECT_EQ(1u, KRV_OsalRWReadLock(rw));  // the writer itself: the platform refuses
    KRV_OsalRWUnlock(rw);
    KRV_OsalRWLockDestroy(&rw);
    EXPECT_EQ(nullptr, rw);
    KRV_OsalRWLockDestroy(&rw);  // a null variable is ignored
}

TEST(OsalSync, AtomicsReturnThePreviousValueAndWrap)
{
    uint32_t word = 0;
    EXPECT_EQ(0u, KRV_OsalAtomicDec(&word));
    EXPECT_EQ(0xFFFFFFFFu, KRV_OsalAtomicInc(&word));
    EXPECT_EQ(0u, KRV_OsalAtomicSub(3, &word));
    EXPECT_EQ(0xFFFFFFFDu, KRV_OsalAtomicAdd(5, &word));
    EXPECT_EQ(2u, KRV_OsalAtomicSet(6, &word));
    EXPECT_FALSE(KRV_OsalAtomicCas(5, 7, &word));
    EXPECT_TRUE(KRV_OsalAtomicCas(6, 7, &word));
    EXPECT_EQ(7u, KRV_OsalAtomic32TestSet(8, &word));
    EXPECT_EQ(8u, KRV_OsalAtomicInt32TestSet(9, &word));
    EXPECT_EQ(9u, KRV_OsalAtomicGet(&word));
}

// Four threads contend for one word through every read-modify-write and for one recursive mutex:
// no update may be lost, and no protected increment may interleave with another.
TEST(OsalSync, AtomicsAndTheMutexHoldUnderContention)
{
    constexpr uint32_t kThreads = 4, kRounds = 20000;
    uint32_t word = 0, casWord = 0;
    uint64_t guarded = 0;
    KrvMutex mutex = nullptr;
    ASSERT_EQ(0u, KRV_OsalMutexCreate(&mutex));
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (uint32_t i = 0; i < kRounds; ++i) {
                KRV_OsalAtomicInc(&word);
                KRV_OsalAtomicAdd(3, &word);
                KRV_OsalAtomicSub(2, &word);
                KRV_OsalAtomicDec(&word);
                for (uint32_t seen = KRV_OsalAtomicGet(&casWord); !KRV_OsalAtomicCas(seen, seen + 1, &casWord);
                     seen = KRV_OsalAtomicGet(&casWord)) {
                }
                KRV_OsalMutexLock(mutex);
                KRV_OsalMutexLock(mutex);  // recursive
                guarded = guarded + 1;
                KRV_OsalMutexUnLock(mutex);
                KRV_OsalMutexUnLock(mutex);
            }
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    EXPECT_EQ(kThreads * kRounds, KRV_OsalAtomicGet(&word));
    EXPECT_EQ(kThreads * kRounds, KRV_OsalAtomicGet(&casWord));
    EXPECT_EQ(uint64_t{kThreads} * kRounds, guarded);
    EXPECT_EQ(0u, KRV_OsalMutexDestroy(&mutex));
}

}  // namespace
