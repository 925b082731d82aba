// Per-thread error stacks: module init and de-init, the node limit, push, pop, clears, references
// and removal. Every stack lives in one AVL tree keyed by pthread_self, guarded by the error-module
// mutex that the error-string table shares.
#include <pthread.h>

#include "eno/krv_avl.h"
#include "eno/krv_enocode.h"
#include "eno/krv_enolock.h"
#include "krv_osal.h"
#include "krv_osaleno.h"
#include "log/krv_diag.h"
#include "krv_status.h"

namespace {

constexpr char kKrvSource[] = "krv_osaleno";

constexpr uint32_t kDefaultMaxNodes = 65535;
constexpr uint32_t kMinMaxNodes = 255;
constexpr uint32_t kMaxNodesSpan = 0xFFFF00;  // limits run from 255 to 0xFFFFFF
constexpr uint32_t kMaxModule = 254;
constexpr uint32_t kMaxErrNo = 65534;
constexpr uint32_t kNodeLimitLine = 506;

using krv::eno::AvlNode;
using krv::eno::ErrorRecord;
using krv::eno::kRingSize;

// Null until KRV_EnoErrCodeInit; read by every entry point without a lock, so it is published
// and withdrawn atomically.
KrvMutex g_moduleMutex = nullptr;

// Guarded by the module mutex. Zero before the first init: no tree, no nodes, and a limit of 0 that
// still admits one thread.
AvlNode *g_root = nullptr;
uint32_t g_avlNodeCount = 0;
// Written without the mutex by KRV_EnoMaxErrorLimitSet, hence the atomic accesses.
uint32_t g_maxAvlNodes = 0;

uint64_t SelfId()
{
    return static_cast<uint64_t>(pthread_self());
}

// Returns a zeroed record with an empty ring, or null when out of memory.
ErrorRecord *RecordNew()
{
    auto *record = static_cast<ErrorRecord *>(KRV_OsalMemCalloc(1, sizeof(ErrorRecord)));
    if (record != nullptr) {
        record->top = -1;
    }
    return record;
}

// Stores code as the newest entry, overwriting the oldest once the ring is full.
void RecordPush(ErrorRecord *record, uint32_t code)
{
    record->top = (record->top + 1) % kRingSize;
    record->entries[record->top] = code;
}

// Empties the ring; the reference count is kept.
void RecordClear(ErrorRecord *record)
{
    record->top = -1;
    for (uint32_t &entry : record->entries) {
        entry = 0;
    }
}

// Runs op on the caller's record under the module lock. Threads without a node, or whose record
// could not be allocated, are left alone: to them the stack is empty.
void SelfRecordApply(void (*op)(ErrorRecord *record))
{
    KrvMutex lock = krv::eno::ModuleLock();
    AvlNode *node = krv::eno::AvlFind(g_root, SelfId());
    if (node != nullptr && node->stack != nullptr) {
        op(node->stack);
    }
    KRV_OsalMutexUnLock(lock);
}

// Creates the caller's node holding code (a zero code leaves the ring empty). The count is raised
// before the allocations and never lowered when they fail. A node whose record could not be
// allocated is kept, so the thread stays counted and retries on its next push.
void SelfNodeAdd(uint32_t code)
{
    ++g_avlNodeCount;
    ErrorRecord *record = RecordNew();
    if (record != nullptr && code != 0) {
        RecordPush(record, code);
    }
    AvlNode *node = krv::eno::AvlNodeNew(SelfId(), record);
    if (node == nullptr) {
        KRV_OsalMemFree(record);
        return;
    }
    g_root = krv::eno::AvlInsert(g_root, node);
}

}  // namespace

namespace krv::eno {

KrvMutex ModuleLock()
{
    KrvMutex mutex = __atomic_load_n(&g_moduleMutex, __ATOMIC_ACQUIRE);
    KRV_OsalMutexLock(mutex);
    return mutex;
}

}  // namespace krv::eno

extern "C" {

/* Stacks that survived an earlier de-init (or were made before the first init) are released here
 * rather than dropped, so re-initialising never leaks them. */
uint32_t KRV_EnoErrCodeInit(void)
{
    if (__atomic_load_n(&g_moduleMutex, __ATOMIC_ACQUIRE) != nullptr) {
        return KRV_OK;
    }
    krv::eno::AvlFreeAll(g_root);
    g_root = nullptr;
    g_avlNodeCount = 0;
    __atomic_store_n(&g_maxAvlNodes, kDefaultMaxNodes, __ATOMIC_RELAXED);
    KrvMutex created = nullptr;
    uint32_t rc = KRV_OsalMutexCreate(&created);
    __atomic_store_n(&g_moduleMutex, created, __ATOMIC_RELEASE);
    return rc;
}

/* The stacks stay; callers remove them first with KRV_EnoErrorStackRemove(true). */
uint32_t KRV_EnoErrCodeDeInit(void)
{
    KrvMutex mutex = __atomic_exchange_n(&g_moduleMutex, nullptr, __ATOMIC_ACQ_REL);
    return mutex == nullptr ? KRV_ERR_INVALID : KRV_OsalMutexDestroy(&mutex);
}

/* A lower limit keeps existing stacks; it only refuses threads that arrive later. */
uint32_t KRV_EnoMaxErrorLimitSet(int32_t limit)
{
    uint32_t value = static_cast<uint32_t>(limit);
    if (value - kMinMaxNodes > kMaxNodesSpan) {
        return KRV_ERR_UNKNOWN;
    }
    __atomic_store_n(&g_maxAvlNodes, value, __ATOMIC_RELAXED);
    return KRV_OK;
}

uint32_t KRV_EnoMaxErrorLimitGet(void)
{
    return __atomic_load_n(&g_maxAvlNodes, __ATOMIC_RELAXED);
}

/* errNo is not masked to 8 bits: larger numbers overlap the module bits, as callers expect. New
 * threads are refused only once the count exceeds the limit, so limit + 1 threads get a stack. */
void KRV_EnoErrorWrapperPush(uint32_t high, uint32_t module, uint32_t errNo)
{
    if (module > kMaxModule || errNo > kMaxErrNo) {
        return;
    }
    uint32_t code = (high << krv::eno::kHighShift) | (module << krv::eno::kModuleShift) | errNo;
    KrvMutex lock = krv::eno::ModuleLock();
    AvlNode *node = krv::eno::AvlFind(g_root, SelfId());
    bool refused = false;
    uint32_t count = g_avlNodeCount;
    uint32_t limit = __atomic_load_n(&g_maxAvlNodes, __ATOMIC_RELAXED);
    if (node != nullptr) {
        if (node->stack == nullptr) {
            node->stack = RecordNew();
        }
        if (node->stack != nullptr) {
            RecordPush(node->stack, code);
        }
    } else if (count > limit) {
        refused = true;
    } else {
        SelfNodeAdd(code);
    }
    KRV_OsalMutexUnLock(lock);
    if (refused) {
        // Reported outside the lock because the hook may block on output. The text prints the count
        // only; the limit is passed all the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
        KRV_DIAG_AT(kNodeLimitLine, KRV_ERR_INVALID, krv::kLevelError, "New Avl Node failed, avlNodeCount:%u, maxAvlNodes:",
                    count, limit);
#pragma GCC diagnostic pop
    }
}

/* Pops the newest code; an empty slot (0) ends the pops without moving top. */
uint32_t KRV_EnoLastErrorGet(void)
{
    KrvMutex lock = krv::eno::ModuleLock();
    uint32_t result = 0;
    if (g_root != nullptr) {
        AvlNode *node = krv::eno::AvlFind(g_root, SelfId());
        if (node == nullptr) {
            result = KRV_ERR_UNKNOWN;  // other threads have stacks, this one has none
        } else if (node->stack != nullptr) {
            ErrorRecord *record = node->stack;
            int32_t index = (record->top + kRingSize) % kRingSize;
            result = record->entries[index];
            if (result != 0) {
                record->entries[index] = 0;
                record->top = index - 1;
            }
        }
    }
    KRV_OsalMutexUnLock(lock);
    return result;
}

void KRV_EnoErrorStackClear(void)
{
    SelfRecordApply([](ErrorRecord *record) {
        if (record->refCount == 0) {
            RecordClear(record);
        }
    });
}

void KRV_EnoErrorStackForceClear(void)
{
    SelfRecordApply(RecordClear);
}

/* No upper bound: the 32-bit count simply wraps after 2^32 references. */
void KRV_EnoErrorRefInc(void)
{
    SelfRecordApply([](ErrorRecord *record) { ++record->refCount; });
}

void KRV_EnoErrorRefDec(void)
{
    SelfRecordApply([](ErrorRecord *record) {
        if (record->refCount != 0) {
            --record->refCount;
        }
    });
}

/* References are not consulted: a referenced stack is removed like any other. An empty tree is left
 * as it is, node count included. */
void KRV_EnoErrorStackRemove(bool all)
{
    KrvMutex lock = krv::eno::ModuleLock();
    if (all && g_root != nullptr) {
        krv::eno::AvlFreeAll(g_root);
        g_root = nullptr;
        g_avlNodeCount = 0;
    } else if (!all && g_avlNodeCount != 0 && krv::eno::AvlFind(g_root, SelfId()) != nullptr) {
        --g_avlNodeCount;
        g_root = krv::eno::AvlDelete(g_root, SelfId());
    }
    KRV_OsalMutexUnLock(lock);
}

}  // extern "C"
