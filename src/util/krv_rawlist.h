// RawList: an intrusive, circular, doubly-linked list with a sentinel head.
//
// A node type embeds RawListNode as its first member, so a RawListNode pointer converts back to the
// owning record. The list never allocates; RawListErase and RawListDeinit hand unlinked nodes to the
// release function given at init (none means the caller keeps ownership). In debug builds unlinked
// nodes are poisoned so that a use after unlinking faults at once.
#ifndef KRV_RAWLIST_H
#define KRV_RAWLIST_H

namespace krv {

struct RawListNode {
    RawListNode *next;
    RawListNode *prev;
};

using RawListFreeFunc = void (*)(RawListNode *node);

struct RawList {
    RawListNode head;
    RawListFreeFunc freeFunc;
};

// Makes list empty; freeFunc (may be null) releases nodes that RawListErase or RawListDeinit unlink.
void RawListInit(RawList *list, RawListFreeFunc freeFunc);
// Unlinks every node, releasing each through freeFunc when one was given; the list is empty after.
void RawListDeinit(RawList *list);
// True when the list holds no node.
inline bool RawListEmpty(const RawList *list)
{
    return list->head.next == &list->head;
}
// Unlinks node (which must be on list) and releases it through freeFunc when one was given.
void RawListErase(RawList *list, RawListNode *node);
// The first node, or null when the list is empty.
inline RawListNode *RawListFront(const RawList *list)
{
    return RawListEmpty(list) ? nullptr : list->head.next;
}
// The node after node, or null when node is the last.
inline RawListNode *RawListNext(const RawList *list, const RawListNode *node)
{
    return node->next == &list->head ? nullptr : node->next;
}
// Appends node (not on any list) at the end.
void RawListPushBack(RawList *list, RawListNode *node);

}  // namespace krv

#endif  // KRV_RAWLIST_H
