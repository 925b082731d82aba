// The thread tree as an internal unit: shape invariants under random churn, and the deletion choice
// that decides which record stays where.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "eno/krv_avl.h"
#include "krv_osal.h"

using namespace krv::eno;

namespace {

// Inserts a leaf whose record remembers its key, so a record parted from its key shows.
AvlNode *Insert(AvlNode *root, uint64_t key)
{
    auto *record = static_cast<ErrorRecord *>(KRV_OsalMemCalloc(1, sizeof(ErrorRecord)));
    record->entries[0] = static_cast<uint32_t>(key);
    return AvlInsert(root, AvlNodeNew(key, record));
}

// Checks heights, balance and record pairing below node and appends its keys in order; the search
// order holds exactly when the keys come out sorted.
void Walk(const AvlNode *node, std::vector<uint64_t> *keys)
{
    if (node != nullptr) {
        uint64_t hs = AvlHeight(node->smaller), hg = AvlHeight(node->greater);
        ASSERT_TRUE(node->height == std::max(hs, hg) + 1 && hs <= hg + 1 && hg <= hs + 1) << node->threadId;
        ASSERT_EQ(static_cast<uint32_t>(node->threadId), node->stack->entries[0]);
        Walk(node->smaller, keys);
        keys->push_back(node->threadId);
        Walk(node->greater, keys);
    }
}

TEST(AvlTree, RandomChurnKeepsTreeBalancedOrderedAndComplete)
{
    std::mt19937_64 rng(20240611);
    std::set<uint64_t> keys;
    AvlNode *root = nullptr;
    for (int step = 0; step < 3000; ++step) {
        // Mostly grow, then mostly shrink, so rebalancing runs at many shapes in both directions.
        bool insert = keys.empty() || rng() % 100 < (step < 2000 ? 70u : 30u);
        uint64_t key = rng() % 1000 * 0x9E3779B97F4A7C15ull;  // spread over the whole unsigned range
        if (insert && keys.insert(key).second) {
            root = Insert(root, key);
        } else if (!insert) {
            auto victim = std::next(keys.begin(), rng() % keys.size());
            root = AvlDelete(root, *victim);
            keys.erase(victim);
        }
        ASSERT_EQ(keys.count(key) == 1, AvlFind(root, key) != nullptr);
        std::vector<uint64_t> walked;
        ASSERT_NO_FATAL_FAILURE(Walk(root, &walked));
        ASSERT_EQ(std::vector<uint64_t>(keys.begin(), keys.end()), walked);
    }
    AvlFreeAll(root);
}

TEST(AvlTree, TwoChildDeletionTakesThePredecessorInPlace)
{
    AvlNode *root = nullptr;
    for (uint64_t key : {20, 10, 30, 5, 15, 25, 35}) {
        root = Insert(root, key);
    }
    AvlNode *top = root;
    ErrorRecord *predecessorRecord = AvlFind(root, 15)->stack;
    root = AvlDelete(root, 20);
    EXPECT_TRUE(root == top && root->threadId == 15 && root->stack == predecessorRecord);
    AvlFreeAll(root);
}

}  // namespace
