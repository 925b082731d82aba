// The timing wheel: long-list filing and the collection of due timers, one bucket per tick.
#include "reltmr/krv_reltmr_wheel.h"

#include <cassert>

namespace krv::reltmr {

// Ties go before an equal head or middle node but after an equal tail; callers have come to rely on
// that order.
void LongListInsert(KrvRelTmrBucket *bucket, KrvRelTmrNode *node)
{
    uint32_t key = node->key;
    KrvRelTmrNode *head = bucket->longHead;
    if (head == nullptr) {
        ListAppend(&bucket->longHead, node);
        bucket->longLastKey = key;
    } else if (key >= bucket->longLastKey) {
        node->key = key - (bucket->longLastKey & kRevolutionMask);
        ListAppend(&bucket->longHead, node);
        bucket->longLastKey += node->key & kRevolutionMask;
    } else if (key <= head->key) {
        ListInsertBefore(head, node);
        head->key -= key & kRevolutionMask;
        bucket->longHead = node;
    } else {
        uint32_t remaining = key - (head->key & kRevolutionMask);
        KrvRelTmrNode *pos = head->next;
        // The walk ends before the tail at the latest, since key is below the tail's absolute key.
        while (pos->key < remaining) {
            remaining -= pos->key & kRevolutionMask;
            pos = pos->next;
            assert(pos != head);
        }
        pos->key -= remaining & kRevolutionMask;
        ListInsertBefore(pos, node);
        node->key = remaining;
    }
    ++bucket->longCount;
}

void LongListRemove(KrvRelTmrBucket *bucket, KrvRelTmrNode *node)
{
    uint32_t revolutions = node->key & kRevolutionMask;
    if (node->next != node) {
        if (node == bucket->longHead || node->next != bucket->longHead) {
            node->next->key += revolutions;  // the follower keeps its absolute due time
        } else {
            bucket->longLastKey -= revolutions;  // the node was the tail
        }
    }
    ListUnlink(&bucket->longHead, node);
    if (bucket->longCount > 0) {
        --bucket->longCount;
    }
}

namespace {

// Takes the due part of a bucket's long list: expired heads leave, the first later one loses a revolution.
void LongListTurn(KrvRelTmrBucket *bucket, KrvRelTmrNode **expired)
{
    if (bucket->longHead == nullptr) {
        return;
    }
    while (bucket->longHead != nullptr) {
        KrvRelTmrNode *head = bucket->longHead;
        if (head->key >= kWheelSize) {
            head->key -= kWheelSize;
            break;
        }
        // The follower's delta counts from this head, which is now at zero revolutions: it becomes absolute.
        ListUnlink(&bucket->longHead, head);
        head->status = KRV_RELTMR_STATUS_TIMEOUT;
        ListAppend(expired, head);
        if (bucket->longCount > 0) {
            --bucket->longCount;
        }
    }
    bucket->longLastKey -= kWheelSize;
}

}  // namespace

void WheelClear(KrvRelTmrBucket *buckets)
{
    for (uint32_t i = 0; i < kWheelSize; ++i) {
        buckets[i] = KrvRelTmrBucket{};
    }
}

void WheelCollect(KrvRelTmrBucket *buckets, uint32_t fromTick, uint32_t toTick, KrvRelTmrNode **expired)
{
    for (uint32_t tick = fromTick; tick != toTick;) {
        ++tick;
        KrvRelTmrBucket *bucket = &buckets[tick & kWheelMask];
        if (bucket->shortHead != nullptr) {
            KrvRelTmrNode *node = bucket->shortHead;
            do {
                node->status = KRV_RELTMR_STATUS_TIMEOUT;
                node = node->next;
            } while (node != bucket->shortHead);
            ListSplice(expired, &bucket->shortHead);
            bucket->shortCount = 0;
        }
        LongListTurn(bucket, expired);
    }
}

}  // namespace krv::reltmr
