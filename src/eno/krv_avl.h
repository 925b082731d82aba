// The tree of per-thread error records: an AVL tree keyed by the owning thread's pthread_self value.
//
// Nodes and records come from KRV_OsalMemAlloc; a node owns its record, and every function here that
// removes a node frees both. Nothing here locks: callers hold the error-module mutex.
#ifndef KRV_ENO_AVL_H
#define KRV_ENO_AVL_H

#include <cstdint>

namespace krv::eno {

constexpr int32_t kRingSize = 40;

// The error ring of one thread. top is the index of the newest code, -1 when fresh or cleared;
// a 0 entry marks an empty slot.
struct ErrorRecord {
    int32_t top;
    uint32_t refCount;
    uint32_t entries[kRingSize];
};

// One thread's node. height is 1 for a leaf (an empty subtree counts 0). stack may be null when the
// record could not be allocated.
struct AvlNode {
    uint64_t height;
    uint64_t threadId;
    AvlNode *greater;
    AvlNode *smaller;
    ErrorRecord *stack;
};

// Height of a subtree; 0 for null.
uint64_t AvlHeight(const AvlNode *node);
// Returns a new leaf holding threadId and owning record (which may be null), or null when out of memory.
AvlNode *AvlNodeNew(uint64_t threadId, ErrorRecord *record);
// Returns the node keyed threadId under root, or null.
AvlNode *AvlFind(AvlNode *root, uint64_t threadId);
// Links node (a fresh leaf whose key is absent) into the tree under root; returns the new root.
AvlNode *AvlInsert(AvlNode *root, AvlNode *node);
// Unlinks and frees the node keyed threadId with its record, if present; returns the new root.
AvlNode *AvlDelete(AvlNode *root, uint64_t threadId);
// Frees every node and record under root.
void AvlFreeAll(AvlNode *root);

}  // namespace krv::eno

#endif  // KRV_ENO_AVL_H
