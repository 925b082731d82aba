// The intrusive list under the log backend's module list and the hash buckets.
#include <gtest/gtest.h>

#include <vector>

#include "util/krv_rawlist.h"

namespace {

struct Item {
    krv::RawListNode link;  // first member: a node pointer is the item pointer
    int value;
    bool released;
};

void MarkReleased(krv::RawListNode *node)
{
    reinterpret_cast<Item *>(node)->released = true;
}

std::vector<int> Values(const krv::RawList &list)
{
    std::vector<int> values;
    for (krv::RawListNode *n = krv::RawListFront(&list); n != nullptr; n = krv::RawListNext(&list, n)) {
        values.push_back(reinterpret_cast<Item *>(n)->value);
    }
    return values;
}

TEST(RawList, KeepsOrderAndReleasesThroughTheGivenFunction)
{
    krv::RawList list;
    krv::RawListInit(&list, MarkReleased);
    EXPECT_TRUE(krv::RawListEmpty(&list));
    EXPECT_EQ(krv::RawListFront(&list), nullptr);

    Item items[4] = {{{}, 1, false}, {{}, 2, false}, {{}, 3, false}, {{}, 4, false}};
    for (Item &item : items) {
        krv::RawListPushBack(&list, &item.link);
    }
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 3, 4}));

    krv::RawListErase(&list, &items[1].link);  // middle
    krv::RawListErase(&list, &items[3].link);  // tail
    EXPECT_TRUE(items[1].released);
    EXPECT_TRUE(items[3].released);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 3}));

    krv::RawListDeinit(&list);
    EXPECT_TRUE(krv::RawListEmpty(&list));
    EXPECT_TRUE(items[0].released && items[2].released);
}

TEST(RawList, WithoutReleaseFunctionTheCallerKeepsTheNodes)
{
    krv::RawList list;
    krv::RawListInit(&list, nullptr);
    Item a = {{}, 7, false};
    Item b = {{}, 8, false};
    krv::RawListPushBack(&list, &a.link);
    krv::RawListPushBack(&list, &b.link);
    krv::RawListDeinit(&list);
    EXPECT_TRUE(krv::RawListEmpty(&list));
    EXPECT_FALSE(a.released || b.released);
    // The list is reusable after a deinit.
    krv::RawListPushBack(&list, &a.link);
    EXPECT_EQ(Values(list), (std::vector<int>{7}));
}

}  // namespace
