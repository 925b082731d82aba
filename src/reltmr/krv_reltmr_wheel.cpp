// The timing wheel: insertion, removal and collection of due timers, one bucket per tick.
#include "reltmr/krv_reltmr_wheel.h"

#include <cassert>

namespace krv::reltmr {

namespace {

// Appends node at the tail of the circular list *head.
void ListAppend(KrvRelTmrNode **head, KrvRelTmrNode *node)
{
    if (*head == nullptr) {
        node->next = node;
        node->prev = node;
        *head = node;
        return;
    }
    KrvRelTmrNode *tail = (*head)->prev;
    node->prev = tail;
    node->next = *head;
    tail->next = node;
    (*head)->prev = node;
}

// Links node in front of pos, which stays in the same list; the list head is not changed.
void ListInsertBefore(KrvRelTmrNode *pos, KrvRelTmrNode *node)
{
    node->next = pos;
    node->prev = pos->prev;
    pos->prev->next = node;
    pos->prev = node;
}

// Unlinks node from the circular list *head; its successor becomes the head when node was the head.
void ListUnlink(KrvRelTmrNode **head, KrvRelTmrNode *node)
{
    if (node->next == node) {
        assert(*head == node);
        *head = nullptr;
    } else {
        node->prev->next = node->next;
        node->next->prev = node->prev;
        if (*head == node) {
            *head = node->next;
        }
    }
    node->next = nullptr;
    node->prev = nullptr;
}

// Moves every node of the circular list *from, in order, to the tail of *to.
void ListSplice(KrvRelTmrNode **to, KrvRelTmrNode **from)
{
    KrvRelTmrNode *first = *from;
    if (first == nullptr) {
        return;
    }
    *from = nullptr;
    if (*to == nullptr) {
        *to = first;
        return;
    }
    KrvRelTmrNode *last = first->prev;
    KrvRelTmrNode *toTail = (*to)->prev;
    toTail->next = first;
    first->prev = toTail;
    last->next = *to;
    (*to)->prev = last;
}

// Files a node due whole revolutions later into its bucket's delta list. Ties go before an equal
// head or middle node but after an equal tail; callers have come to rely on that order.
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

void WheelInsert(KrvRelTmrBucket *buckets, uint32_t currentTick, KrvRelTmrNode *node)
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

void WheelRemove(KrvRelTmrBucket *buckets, KrvRelTmrNode *node)
{
    assert(node->status == KRV_RELTMR_STATUS_RUNNING);
    KrvRelTmrBucket *bucket = &buckets[node->key & kWheelMask];
    if (node->listKind == kShortList) {
        ListUnlink(&bucket->shortHead, node);
        if (bucket->shortCount > 0) {
            --bucket->shortCount;
        }
        return;
    }
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

KrvRelTmrNode *ListPopFront(KrvRelTmrNode **list)
{
    KrvRelTmrNode *node = *list;
    if (node != nullptr) {
        ListUnlink(list, node);
    }
    return node;
}

}  // namespace krv::reltmr
