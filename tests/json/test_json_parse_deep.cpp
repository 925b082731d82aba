// Pathological shapes: nesting far beyond the limit on a small thread stack, and very long lists.
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

using Msgs = std::vector<std::string>;

void *RunTask(void *task)
{
    (*static_cast<std::function<void()> *>(task))();
    return nullptr;
}

// Runs task on a thread whose whole stack is 512 KiB.
void OnSmallStack(std::function<void()> task)
{
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, 512 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attr, RunTask, &task), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

std::string Repeat(const std::string &piece, unsigned times)
{
    std::string text;
    text.reserve(piece.size() * times);
    for (unsigned i = 0; i < times; ++i) {
        text += piece;
    }
    return text;
}

TEST(JsonParseDeep, FollowsAnyDepthToItsBottomOnASmallStack)
{
    constexpr unsigned kDepth = 100000;
    const Msgs nested = {"The max nested layer json supported is 20"};
    struct Case {
        std::string text;
        Msgs msgs;  // the final "parse failed" line is too long for the log and is dropped
    };
    const std::vector<Case> cases = {
        {std::string(kDepth, '['), {"idx isn't vaild"}},
        {Repeat("[", kDepth) + Repeat("]", kDepth), nested},
        {Repeat("[", kDepth) + "1", nested},
        {Repeat("{\"k\":", kDepth) + "1" + Repeat("}", kDepth), nested},
        {Repeat("[{\"k\":", kDepth / 2) + "x", {"valuetype isn't match, parser err"}},
        {Repeat("{\"k\":", kDepth) + "{\"k\" 1", {"next symbol is not \":\""}},
    };
    for (const Case &c : cases) {
        krvtest::DiagCapture diags;
        uint32_t status = 0;
        KrvJson *root = nullptr;
        OnSmallStack([&] { status = KRV_JsonParseByString(c.text.c_str(), &root); });
        EXPECT_EQ(status, 1u) << c.text.substr(0, 40);
        EXPECT_EQ(root, nullptr);
        EXPECT_EQ(diags.Messages(), c.msgs) << c.text.substr(0, 40);
    }
}

TEST(JsonParseDeep, LongListsParseCompletely)
{
    constexpr unsigned kCount = 100000;
    std::string array = "[" + Repeat("12.5,", kCount - 1) + "7]";
    KrvJson *root = nullptr;
    ASSERT_EQ(KRV_JsonParseByString(array.c_str(), &root), 0u);
    EXPECT_EQ(root->arrLen, kCount);
    const KrvJsonChild *link = root->child;
    unsigned links = 1;
    for (; link->next != nullptr; link = link->next) {
        ++links;
    }
    EXPECT_EQ(links, kCount);
    EXPECT_EQ(link->item->numberValue, 7.0);
    KRV_JsonDelete(root);

    std::string object = "{";
    for (unsigned i = 0; i < kCount; ++i) {
        object += "\"" + std::to_string(i) + "\":[],";
    }
    object.back() = '}';
    ASSERT_EQ(KRV_JsonParseByString(object.c_str(), &root), 0u);
    KRV_JsonDelete(root);

    krvtest::DiagCapture diags;
    object.back() = ',';
    EXPECT_EQ(KRV_JsonParseByString((object + "\"4711\":[]}").c_str(), &root), 1u);
    EXPECT_EQ(diags.Messages(), Msgs{"key: 4711 is equal with child'skey: 4711"});
}

}  // namespace
