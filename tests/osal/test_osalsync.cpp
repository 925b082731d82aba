// Locks, conditions and atomics: the argument and failure rows of create/destroy, recursion,
// time-outs and lost updates.
#include <gtest/gtest.h>

#include <pthread.h>

#include <thread>
#include <vector>

#include "krv_osalsync.h"
#include "support/krv_test_support.h"

namespace {

// Runs create on a null address, an already filled variable and under a failing allocator, then
// destroy on a null address and a null variable. Returns the variable, filled by a real create.
template <typename Handle, typename Create>
Handle CheckCreateRows(Create create, uint32_t destroy(Handle *))
{
    Handle handle = nullptr;
    EXPECT_EQ(22u, create(nullptr));
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(12u, create(&handle));
    }
    EXPECT_EQ(nullptr, handle);
    EXPECT_EQ(0u, create(&handle));
    Handle before = handle;
    EXPECT_EQ(22u, create(&handle));
    EXPECT_EQ(before, handle);
    EXPECT_EQ(22u, destroy(nullptr));
    Handle empty = nullptr;
    EXPECT_EQ(22u, destroy(&empty));
    return handle;
}

}  // namespace

TEST(OsalSync, CreateDestroyRowsAndRecursiveMutex)
{
    KrvMutex mutex = CheckCreateRows<KrvMutex>([](KrvMutex *h) { return KRV_OsalMutexCreate(h); },
                                               KRV_OsalMutexDestroy);
    KRV_OsalMutexLock(nullptr);  // null handles are ignored
    KRV_OsalMutexUnLock(nullptr);
    KRV_OsalMutexLock(mutex);
    KRV_OsalMutexLock(mutex);
    KRV_OsalMutexUnLock(mutex);
    auto tryLockElsewhere = [mutex] {
        int rc = 0;
        std::thread([&] {
            rc = pthread_mutex_trylock(static_cast<pthread_mutex_t *>(mutex));
            if (rc == 0) {
                pthread_mutex_unlock(static_cast<pthread_mutex_t *>(mutex));
            }
        }).join();
        return rc;
    };
    EXPECT_NE(0, tryLockElsewhere());  // still held once
    KRV_OsalMutexUnLock(mutex);
    EXPECT_EQ(0, tryLockElsewhere());
    KRV_OsalMutexLock(mutex);
    EXPECT_EQ(14u, KRV_OsalMutexDestroy(&mutex));  // platform refuses a held mutex; freed anyway
    EXPECT_EQ(nullptr, mutex);

    KrvCondAttr attr = CheckCreateRows<KrvCondAttr>([](KrvCondAttr *h) { return KRV_OsalCondAttrCreate(h); },
                                                    KRV_OsalCondAttrDestroy);
    KrvCond cond = CheckCreateRows<KrvCond>([attr](KrvCond *h) { return KRV_OsalCondCreate(attr, h); },
                                            KRV_OsalCondDestroy);
    EXPECT_EQ(0u, KRV_OsalCondDestroy(&cond));
    EXPECT_EQ(0u, KRV_OsalCondAttrDestroy(&attr));
    EXPECT_EQ(nullptr, attr);

    KrvRWLock rw = nullptr;
    EXPECT_EQ(22u, KRV_OsalRWLockCreate(nullptr));
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(12u, KRV_OsalRWLockCreate(&rw));
    }
    ASSERT_EQ(0u, KRV_OsalRWLockCreate(&rw));
    EXPECT_EQ(22u, KRV_OsalRWLockCreate(&rw));
    EXPECT_EQ(22u, KRV_OsalRWReadLock(nullptr));
    EXPECT_EQ(22u, KRV_OsalRWWriteLock(nullptr));
    KRV_OsalRWUnlock(nullptr);
    EXPECT_EQ(0u, KRV_OsalRWWriteLock(rw));
    EXPECT_EQ(1u, KRV_OsalRWReadLock(rw));  // the writer itself may not read-lock: platform refuses
    EXPECT_EQ(1u, KRV_OsalRWWriteLock(rw));
    KRV_OsalRWUnlock(rw);
    EXPECT_EQ(0u, KRV_OsalRWReadLock(rw));
    EXPECT_EQ(0u, KRV_OsalRWReadLock(rw));
    KRV_OsalRWUnlock(rw);
    KRV_OsalRWUnlock(rw);
    KRV_OsalRWLockDestroy(nullptr);
    KRV_OsalRWLockDestroy(&rw);
    EXPECT_EQ(nullptr, rw);
    KRV_OsalRWLockDestroy(&rw);
}

TEST(OsalSync, ConditionAttributesSignalAndTimeout)
{
    KrvCondAttr attr = nullptr;
    ASSERT_EQ(0u, KRV_OsalCondAttrCreate(&attr));
    int32_t value = -1;
    EXPECT_EQ(22u, KRV_OsalCondAttrClockSet(nullptr, CLOCK_MONOTONIC));
    EXPECT_EQ(22u, KRV_OsalCondAttrClockGet(attr, nullptr));
    EXPECT_EQ(22u, KRV_OsalCondAttrPsharedSet(nullptr, 0));
    EXPECT_EQ(22u, KRV_OsalCondAttrPsharedGet(nullptr, &value));
    EXPECT_EQ(14u, KRV_OsalCondAttrClockSet(attr, CLOCK_PROCESS_CPUTIME_ID));
    EXPECT_EQ(14u, KRV_OsalCondAttrPsharedSet(attr, 7));
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedSet(attr, PTHREAD_PROCESS_SHARED));
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedGet(attr, &value));
    EXPECT_EQ(PTHREAD_PROCESS_SHARED, value);
    EXPECT_EQ(0u, KRV_OsalCondAttrPsharedSet(attr, PTHREAD_PROCESS_PRIVATE));
    EXPECT_EQ(0u, KRV_OsalCondAttrClockSet(attr, CLOCK_MONOTONIC));
    EXPECT_EQ(0u, KRV_OsalCondAttrClockGet(attr, &value));
    EXPECT_EQ(CLOCK_MONOTONIC, value);

    KrvMutex mutex = nullptr;
    KrvCond cond = nullptr;
    ASSERT_EQ(0u, KRV_OsalMutexCreate(&mutex));
    ASSERT_EQ(0u, KRV_OsalCondCreate(attr, &cond));
    timespec deadline = {};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    EXPECT_EQ(22u, KRV_OsalCondSignal(nullptr));
    EXPECT_EQ(22u, KRV_OsalCondBroadcast(nullptr));
    EXPECT_EQ(22u, KRV_OsalCondTimedWait(nullptr, cond, &deadline));
    EXPECT_EQ(22u, KRV_OsalCondTimedWait(mutex, nullptr, &deadline));
    EXPECT_EQ(22u, KRV_OsalCondTimedWait(mutex, cond, nullptr));

    KRV_OsalMutexLock(mutex);
    deadline.tv_sec -= 1;
    EXPECT_EQ(14u, KRV_OsalCondTimedWait(mutex, cond, &deadline));  // already past
    bool ready = false;
    std::thread signaller([&] {
        KRV_OsalMutexLock(mutex);
        ready = true;
        EXPECT_EQ(0u, KRV_OsalCondSignal(cond));
        KRV_OsalMutexUnLock(mutex);
    });
    deadline.tv_sec += 31;
    uint32_t rc = 0;
    while (!ready && rc == 0) {
        rc = KRV_OsalCondTimedWait(mutex, cond, &deadline);
    }
    EXPECT_EQ(0u, rc);
    KRV_OsalMutexUnLock(mutex);
    signaller.join();
    EXPECT_EQ(0u, KRV_OsalCondBroadcast(cond));
    EXPECT_EQ(0u, KRV_OsalCondDestroy(&cond));
    EXPECT_EQ(0u, KRV_OsalMutexDestroy(&mutex));
    EXPECT_EQ(0u, KRV_OsalCondAttrDestroy(&attr));
}

TEST(OsalSync, AtomicsEdgesAndNoLostUpdates)
{
    uint32_t word = 0;
    EXPECT_EQ(0u, KRV_OsalAtomicDec(&word));
    EXPECT_EQ(0xFFFFFFFFu, word);
    EXPECT_EQ(0xFFFFFFFFu, KRV_OsalAtomicInc(&word));
    EXPECT_EQ(0u, KRV_OsalAtomicSub(3, &word));
    EXPECT_EQ(0xFFFFFFFDu, KRV_OsalAtomicAdd(5, &word));
    EXPECT_EQ(2u, KRV_OsalAtomicGet(&word));
    EXPECT_EQ(2u, KRV_OsalAtomicSet(6, &word));
    EXPECT_FALSE(KRV_OsalAtomicCas(5, 7, &word));
    EXPECT_EQ(6u, word);
    EXPECT_TRUE(KRV_OsalAtomicCas(6, 7, &word));
    EXPECT_EQ(7u, KRV_OsalAtomic32TestSet(8, &word));
    EXPECT_EQ(8u, KRV_OsalAtomicInt32TestSet(9, &word));
    EXPECT_EQ(9u, word);

    uint32_t counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&counter] {
            for (int i = 0; i < 50000; ++i) {
                KRV_OsalAtomicInc(&counter);
                KRV_OsalAtomicAdd(2, &counter);
                KRV_OsalAtomicSub(1, &counter);
            }
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    EXPECT_EQ(4u * 50000u * 2u, KRV_OsalAtomicGet(&counter));
}
