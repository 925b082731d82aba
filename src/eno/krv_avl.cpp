// AVL tree of per-thread error records.
#include "eno/krv_avl.h"

#include <cassert>

#include "krv_osal.h"

namespace krv::eno {

namespace {

// Recomputes node's height from its children: one more than the taller.
void HeightUpdate(AvlNode *node)
{
    uint64_t smaller = AvlHeight(node->smaller);
    uint64_t greater = AvlHeight(node->greater);
    node->height = (smaller > greater ? smaller : greater) + 1;
}

// Lifts the smaller child above node; returns the subtree's new root.
AvlNode *SmallerRaise(AvlNode *node)
{
    AvlNode *top = node->smaller;
    node->smaller = top->greater;
    top->greater = node;
    HeightUpdate(node);
    HeightUpdate(top);
    return top;
}

// Lifts the greater child above node; returns the subtree's new root.
AvlNode *GreaterRaise(AvlNode *node)
{
    AvlNode *top = node->greater;
    node->greater = top->smaller;
    top->smaller = node;
    HeightUpdate(node);
    HeightUpdate(top);
    return top;
}

// Restores the height bound at node, whose subtrees are balanced and differ in height by at most 2.
// A single rotation suffices when the heavy child's outer grandchild is at least as tall as its inner
// one; otherwise the inner grandchild is lifted first (double rotation). Returns the subtree's root.
AvlNode *Rebalance(AvlNode *node)
{
    HeightUpdate(node);
    uint64_t smaller = AvlHeight(node->smaller);
    uint64_t greater = AvlHeight(node->greater);
    if (smaller > greater + 1) {
        AvlNode *heavy = node->smaller;
        if (AvlHeight(heavy->smaller) < AvlHeight(heavy->greater)) {
            node->smaller = GreaterRaise(heavy);
        }
        return SmallerRaise(node);
    }
    if (greater > smaller + 1) {
        AvlNode *heavy = node->greater;
        if (AvlHeight(heavy->greater) < AvlHeight(heavy->smaller)) {
            node->greater = SmallerRaise(heavy);
        }
        return GreaterRaise(node);
    }
    return node;
}

}  // namespace

uint64_t AvlHeight(const AvlNode *node)
{
    return node == nullptr ? 0 : node->height;
}

AvlNode *AvlNodeNew(uint64_t threadId, ErrorRecord *record)
{
    auto *node = static_cast<AvlNode *>(KRV_OsalMemAlloc(sizeof(AvlNode)));
    if (node == nullptr) {
        return nullptr;
    }
    *node = AvlNode{1, threadId, nullptr, nullptr, record};
    return node;
}

AvlNode *AvlFind(AvlNode *root, uint64_t threadId)
{
    AvlNode *node = root;
    while (node != nullptr && node->threadId != threadId) {
        node = threadId > node->threadId ? node->greater : node->smaller;
    }
    return node;
}

/* Keys not smaller than a node's go to its greater side; equal keys never arrive (callers search first). */
AvlNode *AvlInsert(AvlNode *root, AvlNode *node)
{
    assert(node != nullptr && node->height == 1 && node->greater == nullptr && node->smaller == nullptr);
    if (root == nullptr) {
        return node;
    }
    if (node->threadId >= root->threadId) {
        root->greater = AvlInsert(root->greater, node);
    } else {
        root->smaller = AvlInsert(root->smaller, node);
    }
    return Rebalance(root);
}

/* A node with two children keeps its place and takes over the key and record of its in-order
 * predecessor, whose own node is then removed from the smaller subtree. */
AvlNode *AvlDelete(AvlNode *root, uint64_t threadId)
{
    if (root == nullptr) {
        return nullptr;
    }
    if (threadId > root->threadId) {
        root->greater = AvlDelete(root->greater, threadId);
    } else if (threadId < root->threadId) {
        root->smaller = AvlDelete(root->smaller, threadId);
    } else if (root->smaller != nullptr && root->greater != nullptr) {
        KRV_OsalMemFree(root->stack);
        AvlNode *predecessor = root->smaller;
        while (predecessor->greater != nullptr) {
            predecessor = predecessor->greater;
        }
        root->threadId = predecessor->threadId;
        root->stack = predecessor->stack;
        predecessor->stack = nullptr;  // the record moved; only the husk is freed below
        root->smaller = AvlDelete(root->smaller, root->threadId);
    } else {
        AvlNode *child = root->smaller != nullptr ? root->smaller : root->greater;
        KRV_OsalMemFree(root->stack);
        KRV_OsalMemFree(root);
        return child;
    }
    return Rebalance(root);
}

/* Recursion depth is the tree height, about 1.44 log2 of the node count. */
void AvlFreeAll(AvlNode *root)
{
    if (root == nullptr) {
        return;
    }
    AvlFreeAll(root->smaller);
    AvlFreeAll(root->greater);
    KRV_OsalMemFree(root->stack);
    KRV_OsalMemFree(root);
}

}  // namespace krv::eno
