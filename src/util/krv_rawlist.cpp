// RawList operations; see krv_rawlist.h.
#include "util/krv_rawlist.h"

#include <cassert>
#include <cstdint>

namespace krv {
namespace {

void Unlink(RawListNode *node)
{
    assert(node->next != nullptr && node->prev != nullptr);
    node->prev->next = node->next;
    node->next->prev = node->prev;
#ifndef NDEBUG
    // Poison the links: a stale pointer into an unlinked node then faults instead of corrupting.
    node->next = reinterpret_cast<RawListNode *>(static_cast<uintptr_t>(0xdead000000000100ULL));
    node->prev = reinterpret_cast<RawListNode *>(static_cast<uintptr_t>(0xdead000000000122ULL));
#endif
}

}  // namespace

void RawListInit(RawList *list, RawListFreeFunc freeFunc)
{
    list->head.next = &list->head;
    list->head.prev = &list->head;
    list->freeFunc = freeFunc;
}

void RawListDeinit(RawList *list)
{
    while (!RawListEmpty(list)) {
        RawListErase(list, list->head.next);
    }
}

void RawListErase(RawList *list, RawListNode *node)
{
    assert(node != &list->head);
    Unlink(node);
    if (list->freeFunc != nullptr) {
        list->freeFunc(node);
    }
}

void RawListPushBack(RawList *list, RawListNode *node)
{
    node->prev = list->head.prev;
    node->next = &list->head;
    list->head.prev->next = node;
    list->head.prev = node;
}

}  // namespace krv
