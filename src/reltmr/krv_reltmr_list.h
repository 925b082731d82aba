// Circular doubly-linked lists of timer nodes through their next/prev fields: bucket lists and the
// trigger thread's expired list. Inline, since a start and a stop each run one append or unlink.
#ifndef KRV_RELTMR_LIST_H
#define KRV_RELTMR_LIST_H

#include <cassert>

#include "krv_reltmr.h"

namespace krv::reltmr {

// Appends node at the tail of the circular list *head.
inline void ListAppend(KrvRelTmrNode **head, KrvRelTmrNode *node)
{
    KrvRelTmrNode *first = *head;
    if (first == nullptr) {
        node->next = node;
        node->prev = node;
        *head = node;
        return;
    }
    KrvRelTmrNode *tail = first->prev;
    node->prev = tail;
    node->next = first;
    tail->next = node;
    first->prev = node;
}

// Links node in front of pos, which stays in the same list; the list head is not changed.
inline void ListInsertBefore(KrvRelTmrNode *pos, KrvRelTmrNode *node)
{
    node->next = pos;
    node->prev = pos->prev;
    pos->prev->next = node;
    pos->prev = node;
}

// Unlinks node from the circular list *head; its successor becomes the head when node was the head.
inline void ListUnlink(KrvRelTmrNode **head, KrvRelTmrNode *node)
{
    KrvRelTmrNode *next = node->next;
    if (next == node) {
        assert(*head == node);
        *head = nullptr;
    } else {
        KrvRelTmrNode *prev = node->prev;
        prev->next = next;
        next->prev = prev;
        if (*head == node) {
            *head = next;
        }
    }
    node->next = nullptr;
    node->prev = nullptr;
}

// Moves every node of the circular list *from, in order, to the tail of *to.
inline void ListSplice(KrvRelTmrNode **to, KrvRelTmrNode **from)
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

// Unlinks and returns the first node of the circular list *list (next and prev cleared), or null.
inline KrvRelTmrNode *ListPopFront(KrvRelTmrNode **list)
{
    KrvRelTmrNode *node = *list;
    if (node != nullptr) {
        ListUnlink(list, node);
    }
    return node;
}

}  // namespace krv::reltmr

#endif  // KRV_RELTMR_LIST_H
