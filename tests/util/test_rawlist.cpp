// The intrusive list under the log backend's module list and the hash buckets.
#include <gtest/gtest.h>

#include <vector>

#include "util/krv_rawlist.h"

namespace {

struct Item {
    krv::RawListNode link;  // first member: a node pointer is the item pointer
    int value;
    int releases;
};

TEST(RawList, KeepsOrderAndReleasesThroughTheGivenFunction)
{
    krv::RawList list;
    krv::RawListInit(&list, [](krv::RawListNode *n) { ++reinterpret_cast<Item *>(n)->releases; });
    EXPECT_TRUE(krv::RawListEmpty(&list) && krv::RawListFront(&list) == nullptr);
    Item items[4] = {{{}, 1, 0}, {{}, 2, 0}, {{}, 3, 0}, {{}, 4, 0}};
    for (Item &item : items) {
        krv::RawListPushBack(&list, &item.link);
    }
    krv::RawListErase(&list, &items[1].link);  // middle
    krv::RawListErase(&list, &items[3].link);  // tail
    std::vector<int> values;
    for (krv::RawListNode *n = krv::RawListFront(&list); n != nullptr; n = krv::RawListNext(&list, n)) {
        values.push_back(reinterpret_cast<Item *>(n)->value);
    }
    EXPECT_EQ((std::vector<int>{1, 3}), values);
    krv::RawListDeinit(&list);
    EXPECT_TRUE(krv::RawListEmpty(&list));
    for (const Item &item : items) {
        EXPECT_EQ(1, item.releases) << item.value;
    }
}

}  // namespace
