// Parsing of whole documents from text: the accepted dialect, the trees built and the exact
// diagnostics of every refusal.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/krv_json_internal.h"
#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

using Msgs = std::vector<std::string>;

// Parses text expecting refusal with status 1 and returns every message but the final
// "parse failed" line, which is checked here (a line too long for the log is dropped whole).
Msgs Fail(const std::string &text)
{
    krvtest::DiagCapture diags;
    KrvJson *sentinel = reinterpret_cast<KrvJson *>(0x1);
    KrvJson *root = sentinel;
    EXPECT_EQ(KRV_JsonParseByString(text.c_str(), &root), 1u) << text;
    EXPECT_EQ(root, sentinel) << text;
    Msgs msgs;
    for (const krvtest::Diag &d : diags.Take()) {
        EXPECT_EQ(d.file, "krv_json");
        EXPECT_EQ(d.level, 2u);
        EXPECT_EQ(d.code, 1u) << d.msg;
        msgs.push_back(d.msg);
    }
    if (text.size() < 1000) {
        EXPECT_EQ(msgs.empty() ? "" : msgs.back(), "parse failed, jsonStr is " + text);
        if (!msgs.empty()) {
            msgs.pop_back();
        }
    }
    return msgs;
}

KrvJson *Parse(const std::string &text)
{
    KrvJson *root = nullptr;
    EXPECT_EQ(KRV_JsonParseByString(text.c_str(), &root), 0u) << text;
    return root;
}

KrvJson *Child(const KrvJson *node, unsigned index)
{
    const KrvJsonChild *link = node->child;
    for (; link != nullptr && index > 0; --index) {
        link = link->next;
    }
    return link != nullptr ? link->item : nullptr;
}

std::string Nest(unsigned depth, const std::string &open, const std::string &inner, const std::string &close)
{
    std::string text;
    for (unsigned i = 0; i < depth; ++i) {
        text += open;
    }
    text += inner;
    for (unsigned i = 0; i < depth; ++i) {
        text += close;
    }
    return text;
}

const Msgs kNested = {"The max nested layer json supported is 20"};
const Msgs kNoValue = {"valuetype isn't match, parser err"};

TEST(JsonParse, BuildsTreesInDocumentOrder)
{
    KrvJson *root = Parse(" {\"s\" : \"a\\\\b\xE2\x82\xAC\", \"n\":1.5,\"z\":null,\"t\":true,\"f\":false,"
                          "\"a\":[3, 2. ,1],\"e\":{},\"l\":[]}\r\n\t");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->valueType, KRV_JSON_OBJECT);
    EXPECT_STREQ(root->key, "");
    const char *keys[] = {"s", "n", "z", "t", "f", "a", "e", "l"};
    const uint32_t types[] = {4, 3, 0, 1, 2, 5, 6, 5};
    for (unsigned i = 0; i < 8; ++i) {
        ASSERT_NE(Child(root, i), nullptr);
        EXPECT_STREQ(Child(root, i)->key, keys[i]);
        EXPECT_EQ(Child(root, i)->valueType, types[i]);
    }
    EXPECT_EQ(Child(root, 8), nullptr);
    EXPECT_STREQ(Child(root, 0)->stringValue, "a\\\\b\xE2\x82\xAC");  // backslashes are plain bytes
    EXPECT_EQ(Child(root, 1)->numberValue, 1.5);
    KrvJson *array = Child(root, 5);
    EXPECT_EQ(array->arrType, KRV_JSON_NUMBER);
    EXPECT_EQ(array->arrLen, 3u);
    EXPECT_EQ(Child(array, 1)->numberValue, 2.0);
    EXPECT_STREQ(Child(array, 2)->key, "");
    EXPECT_EQ(Child(root, 6)->child, nullptr);
    EXPECT_EQ(Child(root, 7)->arrType, KRV_JSON_TYPE_NONE);
    EXPECT_EQ(Child(root, 7)->arrLen, 0u);
    KRV_JsonDelete(root);

    KrvJson *mixed = Parse("[[1],[\"a\"],[]]");  // only the outer element type is compared
    ASSERT_NE(mixed, nullptr);
    EXPECT_EQ(mixed->arrType, KRV_JSON_ARRAY);
    EXPECT_EQ(mixed->arrLen, 3u);
    KRV_JsonDelete(mixed);
    KRV_JsonDelete(nullptr);
}

TEST(JsonParse, ScalarsFollowTheDialect)
{
    KrvJson *number = Parse("007.250");
    ASSERT_NE(number, nullptr);
    EXPECT_EQ(number->numberValue, 7.25);
    KRV_JsonDelete(number);
    KrvJson *literal = Parse("false");
    ASSERT_NE(literal, nullptr);
    EXPECT_EQ(literal->valueType, KRV_JSON_FALSE);
    KRV_JsonDelete(literal);

    for (const char *text : {"-1", "+1", ".5", "nul", "tru", "fals", "'a'", " \t\n", "\x01"}) {
        EXPECT_EQ(Fail(text), kNoValue) << text;
    }
    // Literals and numbers end where the dialect stops reading; the rest is trailing content.
    EXPECT_EQ(Fail("1e5"), Msgs{"fileSize :4, offset is :1"});
    EXPECT_EQ(Fail("1.2.3"), Msgs{"fileSize :6, offset is :3"});
    EXPECT_EQ(Fail("nullx"), Msgs{"fileSize :6, offset is :4"});
    EXPECT_EQ(Fail("{\"a\":1} x"), Msgs{"fileSize :10, offset is :8"});
    EXPECT_EQ(Fail("[truex]"), Msgs{"offset: x isn't ]"});
    // Out-of-range conversions fail without a message of their own.
    EXPECT_TRUE(Fail(std::string(400, '9')).empty());
    EXPECT_TRUE(Fail("0." + std::string(400, '0') + "1").empty());

    EXPECT_EQ(Fail("\"a\\\"b\""), Msgs{"fileSize :7, offset is :4"});
    EXPECT_EQ(Fail("\"abc"), Msgs{"idx:4 isn't vaild"});
    std::string limit(4096, 'x');
    KrvJson *longest = Parse("\"" + limit + "\"");
    ASSERT_NE(longest, nullptr);
    EXPECT_EQ(std::string(longest->stringValue), limit);
    KRV_JsonDelete(longest);
    EXPECT_EQ(Fail("[\"" + limit + "y\"]"), Msgs{"strLen:4097 > MAXPATH"});
}

TEST(JsonParse, RefusesBadArgumentsAndLengths)
{
    krvtest::DiagCapture diags;
    KrvJson *root = nullptr;
    EXPECT_EQ(KRV_JsonParseByString(nullptr, &root), 22u);
    EXPECT_EQ(KRV_JsonParseByString("{}", nullptr), 22u);
    EXPECT_EQ(KRV_JsonParseByString("", &root), 1u);
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(diags.Messages(), (Msgs{"invaild param", "invaild param", "jsonStrLen:0 error"}));
}

TEST(JsonParse, ArraysHoldOneElementType)
{
    EXPECT_EQ(Fail("[1, \"a\"]"), Msgs{"arrType:3, type:4"});
    EXPECT_EQ(Fail("[true, false]"), Msgs{"arrType:1, type:2"});
    EXPECT_EQ(Fail("[{}, [], {}]"), Msgs{"arrType:6, type:5"});
    EXPECT_EQ(Fail("[1,]"), kNoValue);
    EXPECT_EQ(Fail("[1 2]"), Msgs{"offset: 2 isn't ]"});
    EXPECT_EQ(Fail("[1"), Msgs{"offset: "});  // the byte past the text reads as NUL
    EXPECT_EQ(Fail("[ "), Msgs{"idx isn't vaild"});
    EXPECT_EQ(Fail("[\"a"), Msgs{"idx:3 isn't vaild"});
}

TEST(JsonParse, ObjectMembersAreNamedOnce)
{
    std::string name31(31, 'k');
    KrvJson *root = Parse("{\"" + name31 + "\":1}");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(std::string(Child(root, 0)->key), name31);
    KRV_JsonDelete(root);
    EXPECT_EQ(Fail("{\"" + name31 + "k\":1}"), Msgs{"strcpy failed，errcode: 34"});

    EXPECT_EQ(Fail("{\"a\":1,\"b\":2,\"a\":3}"), Msgs{"key: a is equal with child'skey: a"});
    EXPECT_EQ(Fail("{\"a\":1,\"a\":2}"), Msgs{"key: a is equal with child's key: a"});
    EXPECT_EQ(Fail("{\"a\" 1}"), Msgs{"next symbol is not \":\""});
    EXPECT_EQ(Fail("{\"a\":1 \"b\":2}"), Msgs{"next symbol is not \"}\""});
    EXPECT_EQ(Fail("{\"a\":1,}"), Msgs{"offset:} isn't \""});
    EXPECT_EQ(Fail("{1:2}"), Msgs{"offset:1 isn't \""});
    EXPECT_EQ(Fail("{\"a\":}"), kNoValue);
    EXPECT_EQ(Fail("{\"\":1,\"\":2}"), Msgs{"key:  is equal with child's key: "});

    // Large objects find repeats through their name index; the texts must not change.
    std::string big = "{";
    for (int i = 0; i < 3000; ++i) {
        big += "\"m" + std::to_string(i) + "\":" + std::to_string(i) + ",";
    }
    KrvJson *large = Parse(big + "\"end\":0}");
    ASSERT_NE(large, nullptr);
    EXPECT_STREQ(Child(large, 2999)->key, "m2999");
    EXPECT_EQ(Child(large, 2999)->numberValue, 2999.0);
    KRV_JsonDelete(large);
    EXPECT_EQ(Fail(big + "\"m1500\":0}"), Msgs{"key: m1500 is equal with child'skey: m1500"});
    EXPECT_EQ(Fail(big + "\"m0\":0}"), Msgs{"key: m0 is equal with child'skey: m0"});
    EXPECT_EQ(Fail(big + "\"m2999\":0}"), Msgs{"key: m2999 is equal with child's key: m2999"});
}

TEST(JsonParse, NestingLimitCountsLevels)
{
    for (auto [open, close] : {std::pair<std::string, std::string>{"[", "]"}, {"{\"k\":", "}"}}) {
        KrvJson *deepest = Parse(Nest(19, open, open == "[" ? "[]" : "{}", close));
        EXPECT_NE(deepest, nullptr);
        KRV_JsonDelete(deepest);
        EXPECT_EQ(Fail(Nest(21, open, open == "[" ? "[]" : "{}", close)), kNested);
        EXPECT_EQ(Fail(Nest(20, open, "1", close)), kNested);
        KrvJson *shallower = Parse(Nest(19, open, "1", close));
        EXPECT_NE(shallower, nullptr);
        KRV_JsonDelete(shallower);
    }
    // The limit is checked after each child, so it hides faults further along the same level.
    EXPECT_EQ(Fail(Nest(30, "[", "1,\"a\"", "]")), kNested);
    EXPECT_EQ(Fail(Nest(20, "{\"a\":", "{\"b\":1,\"b\":2}", "}")), kNested);
    EXPECT_EQ(Fail(Nest(21, "[", "", "]") + "x"), kNested);
    EXPECT_EQ(Fail(Nest(25, "[", "x", "]")), kNoValue);
    EXPECT_EQ(Fail(std::string(21, '[') + "]"), kNested);
    EXPECT_EQ(Fail(std::string(30, '[')), Msgs{"idx isn't vaild"});
    // A repeated name is found before the level of its value is checked.
    EXPECT_EQ(Fail(Nest(18, "{\"a\":", "{\"b\":1,\"b\":2}", "}")), Msgs{"key: b is equal with child's key: b"});
}

TEST(JsonParse, ValueParseContinuesTheCounter)
{
    KrvJson *root = Parse("[]");  // leaves the counter at the root's level, 1
    KRV_JsonDelete(root);
    std::string deep19 = Nest(19, "[", "", "]");
    krv::json::Cursor cursor = {deep19.c_str(), static_cast<uint32_t>(deep19.size() + 1), 0};
    KrvJson *value = nullptr;
    ASSERT_EQ(krv::json::ValueParse(&cursor, &value), 0u);
    EXPECT_EQ(cursor.pos, deep19.size());
    KRV_JsonDelete(value);
    // Now one level higher still: nineteen levels no longer fit.
    cursor.pos = 0;
    krvtest::DiagCapture diags;
    EXPECT_EQ(krv::json::ValueParse(&cursor, &value), 1u);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(diags.Messages(), kNested);
}

}  // namespace
