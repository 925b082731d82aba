// Memory pools: the module context, the pool descriptors and the lock-free free list.
//
// The free list is a stack of unit indices threaded through the unit table. Its head is paired with
// a change counter in one 64-bit word (freeList) that only compare-and-swap changes, so a thread
// whose view of the head went stale (another thread took that unit and gave it back meanwhile)
// fails its swap instead of linking in a successor that is no longer free. The low half of the word
// is the head index at the descriptor's freeHead offset; the counter takes the four bytes that
// alignment left unused before unitTable, so the descriptor keeps its size and field offsets.
#ifndef KRV_MEMPOOL_INTERNAL_H
#define KRV_MEMPOOL_INTERNAL_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "krv_mempool.h"
#include "krv_osalsync.h"

constexpr uint32_t kKrvMemNoUnit = 0xFFFFFFFFu;  // ends the free list

struct KrvMemUnitEntry {
    uint8_t *unit;  // start of the unit (its header)
    uint32_t next;  // next free index while the unit is free
};

struct KrvMemPoolDesc {
    char name[KRV_MEMPOOL_NAME_SIZE];
    uint32_t poolId;
    uint32_t poolSize;
    uint32_t unitSize;
    uint32_t unitNum;
    uint32_t usedNum;  // units handed out; atomic updates only
    uint8_t *startAddr;
    uint8_t *endAddr;  // one past the region
    uint64_t freeList; // bits 0-31 freeHead (kKrvMemNoUnit when empty), bits 32-63 the change counter
    KrvMemUnitEntry *unitTable;
};
static_assert(offsetof(KrvMemPoolDesc, freeList) == 72 && offsetof(KrvMemPoolDesc, unitTable) == 80 &&
                  sizeof(KrvMemPoolDesc) == 88,
              "the descriptor keeps the layout it had with a 32-bit freeHead");

struct KrvMemPool {
    KrvMemPoolDesc *pools;    // maxPools descriptors
    uint32_t maxPools;
    uint32_t currentPoolNum;  // pools created, published with release order after each descriptor
    KrvMutex mutex;           // serialises creation
    uint32_t initCount;
};

namespace krv::mempool {

// The published context, null when the module is not initialised.
extern std::atomic<KrvMemPool *> g_context;

// The number of pools whose descriptors are complete.
inline uint32_t PoolCount(const KrvMemPool *ctx)
{
    return __atomic_load_n(&ctx->currentPoolNum, __ATOMIC_ACQUIRE);
}

// A head of the free list as one thread saw it, with the successor it read for that head.
struct FreeListView {
    uint64_t word;  // freeList as read
    uint32_t next;  // unitTable[head].next as read; meaningless when the list was empty
};

inline uint32_t FreeListHead(uint64_t word)
{
    return static_cast<uint32_t>(word);
}

// The head index with the change counter advanced past word's.
inline uint64_t FreeListWord(uint64_t word, uint32_t head)
{
    return (((word >> 32) + 1) << 32) | head;
}

// The view of word: its head and, when there is one, that unit's successor.
inline FreeListView FreeListViewOf(const KrvMemPoolDesc *pool, uint64_t word)
{
    FreeListView view = {word, kKrvMemNoUnit};
    if (FreeListHead(word) != kKrvMemNoUnit) {
        view.next = __atomic_load_n(&pool->unitTable[FreeListHead(word)].next, __ATOMIC_RELAXED);
    }
    return view;
}

// Reads the head and its successor.
inline FreeListView FreeListRead(const KrvMemPoolDesc *pool)
{
    return FreeListViewOf(pool, __atomic_load_n(&pool->freeList, __ATOMIC_ACQUIRE));
}

// Takes the head of view when the list has not changed since view was read: the successor read
// then is still the successor. Otherwise returns false with view read afresh.
inline bool FreeListTake(KrvMemPoolDesc *pool, FreeListView *view)
{
    uint64_t seen = view->word;
    if (__atomic_compare_exchange_n(&pool->freeList, &seen, FreeListWord(seen, view->next), false, __ATOMIC_ACQUIRE,
                                    __ATOMIC_ACQUIRE)) {
        return true;
    }
    *view = FreeListViewOf(pool, seen);
    return false;
}

// Takes the head of the free list into *index; false when the list is empty.
inline bool FreeListPop(KrvMemPoolDesc *pool, uint32_t *index)
{
    FreeListView view = FreeListRead(pool);
    while (FreeListHead(view.word) != kKrvMemNoUnit) {
        uint32_t head = FreeListHead(view.word);
        if (FreeListTake(pool, &view)) {
            *index = head;
            return true;
        }
    }
    return false;
}

// Makes unit index the head of the free list.
inline void FreeListPush(KrvMemPoolDesc *pool, uint32_t index)
{
    uint64_t seen = __atomic_load_n(&pool->freeList, __ATOMIC_RELAXED);
    do {
        __atomic_store_n(&pool->unitTable[index].next, FreeListHead(seen), __ATOMIC_RELAXED);
    } while (!__atomic_compare_exchange_n(&pool->freeList, &seen, FreeListWord(seen, index), true, __ATOMIC_RELEASE,
                                          __ATOMIC_RELAXED));
}

}  // namespace krv::mempool

#endif  // KRV_MEMPOOL_INTERNAL_H
