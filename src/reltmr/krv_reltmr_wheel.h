// The timing wheel: 4096 buckets of 10 ms ticks, each with a short list of timers due when the wheel
// next reaches the bucket and a delta-keyed long list of timers due whole revolutions later.
//
// The unit knows nothing of clocks, locks or pools: callers hold the timer mutex, pass the current
// tick and get expired nodes back in a list, so it can be driven tick by tick without real time.
#ifndef KRV_RELTMR_WHEEL_H
#define KRV_RELTMR_WHEEL_H

#include <cassert>
#include <cstdint>

#include "krv_reltmr.h"
#include "reltmr/krv_reltmr_list.h"

namespace krv::reltmr {

// One wheel slot. Both lists are circular and doubly linked through the nodes' next/prev.
struct KrvRelTmrBucket {
    KrvRelTmrNode *shortHead;
    KrvRelTmrNode *longHead;  // head holds its absolute key, later nodes their revolutions past the one before
    uint32_t longLastKey;     // absolute key of the long list's last node
    uint32_t shortCount;
    uint32_t longCount;
};

constexpr uint32_t kWheelSize = 4096;
constexpr uint32_t kWheelMask = kWheelSize - 1;
constexpr uint32_t kRevolutionMask = ~kWheelMask;
constexpr uint8_t kShortList = 0;
constexpr uint8_t kLongList = 1;

// Empties every bucket of a wheel of kWheelSize buckets.
void WheelClear(KrvRelTmrBucket *buckets);

// Files node (key already set) into its bucket's delta-keyed long list.
void LongListInsert(KrvRelTmrBucket *bucket, KrvRelTmrNode *node);

// Takes node out of its bucket's long list, handing its revolutions to its follower.
void LongListRemove(KrvRelTmrBucket *bucket, KrvRelTmrNode *node);

// Arms node (interval already set) so that it expires exactly at tick currentTick + max(interval, 1);
// sets its list kind, key and RUNNING status. Inline: the short-list case is all a start of a timer
// within one revolution costs.
inline void WheelInsert(KrvRelTmrBucket *buckets, uint32_t currentTick, KrvRelTmrNode *node)
{
    uint32_t delay = node->interval == 0 ? 1 : node->interval;
    uint32_t index = (currentTick + delay) & kWheelMask;
    KrvRelTmrBucket *bucket = &buckets[index];
    node->key = ((delay - 1) & kRevolutionMask) + index;
    if (delay <= kWheelSize) {
        node->listKind = kShortList;
        ListAppend(&bucket->shortHead, node);
        ++bucket->shortCount;
    } else {
        node->listKind = kLongList;
        LongListInsert(bucket, node);
    }
    node->status = KRV_RELTMR_STATUS_RUNNING;
}

// Takes a RUNNING node out of its bucket, handing its revolutions to its long-list follower.
inline void WheelRemove(KrvRelTmrBucket *buckets, KrvRelTmrNode *node)
{
    assert(node->status == KRV_RELTMR_STATUS_RUNNING);
    KrvRelTmrBucket *bucket = &buckets[node->key & kWheelMask];
    if (node->listKind != kShortList) {
        LongListRemove(bucket, node);
        return;
    }
    ListUnlink(&bucket->shortHead, node);
    if (bucket->shortCount > 0) {
        --bucket->shortCount;
    }
}

// Visits the buckets of ticks fromTick + 1 .. toTick (32-bit wrapping), marks every node due then
// TIMEOUT and appends it, in bucket order, to the circular list *expired.
void WheelCollect(KrvRelTmrBucket *buckets, uint32_t fromTick, uint32_t toTick, KrvRelTmrNode **expired);

}  // namespace krv::reltmr

#endif  // KRV_RELTMR_WHEEL_H
