// Typed access to parsed trees: predicates and their log lines, lookup, getters, array getters.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

using Tree = std::unique_ptr<KrvJson, decltype(&KRV_JsonDelete)>;
using Lines = std::vector<std::string>;

Tree Parse(const char *text)
{
    KrvJson *root = nullptr;
    EXPECT_EQ(KRV_JsonParseByString(text, &root), 0u) << text;
    return Tree(root, KRV_JsonDelete);
}

class JsonAccess : public ::testing::Test {
protected:
    // Every diagnostic since the last call as "code msg"; each must be an error line of krv_json.
    Lines Logged()
    {
        Lines out;
        for (const krvtest::Diag &d : diags_.Take()) {
            EXPECT_EQ(d.level, 2u) << d.msg;
            EXPECT_EQ(d.file, "krv_json") << d.msg;
            out.push_back(std::to_string(d.code) + " " + d.msg);
        }
        return out;
    }
    std::vector<krvtest::Diag> Raw() { return diags_.Take(); }

private:
    krvtest::DiagCapture diags_;
};

const char kAllTypes[] = R"({"n":null,"t":true,"f":false,"x":1.5,"s":"txt","e":"","a":["p","q"],"o":{"in":2}})";

TEST_F(JsonAccess, PredicatesLogTheExpectedCodeFromOneLine)
{
    Tree root = Parse(kAllTypes);
    using Predicate = uint32_t (*)(const KrvJson *);
    const Predicate predicates[] = {KRV_JsonIsNull,   KRV_JsonIsTrue,  KRV_JsonIsFalse, KRV_JsonIsNumber,
                                    KRV_JsonIsString, KRV_JsonIsArray, KRV_JsonIsObject};
    const uint32_t expected[] = {0, 1, 2, 3, 4, 5, 6};
    const char *keys[] = {"n", "t", "f", "x", "s", "a", "o"};
    for (size_t p = 0; p < 7; p++) {
        for (size_t k = 0; k < 7; k++) {
            KrvJson *node = nullptr;
            ASSERT_EQ(KRV_JsonItemGet(root.get(), keys[k], &node), 0u);
            EXPECT_EQ(predicates[p](node), p == k ? 1u : 0u) << p << " on " << keys[k];
            Lines want;
            if (p != k) {
                want.push_back("1 valueType match failed, valueType :" + std::to_string(expected[p]));
            }
            EXPECT_EQ(Logged(), want) << p << " on " << keys[k];
        }
        EXPECT_EQ(predicates[p](nullptr), 0u);
        EXPECT_EQ(Logged(), Lines{"1 valueType match failed, valueType :" + std::to_string(expected[p])});
    }

    // Every predicate reports from the same place, which the serialiser shares.
    KRV_JsonIsNull(root.get());
    KRV_JsonIsObject(nullptr);
    KRV_JsonIsString(root.get());
    std::vector<krvtest::Diag> raw = Raw();
    ASSERT_EQ(raw.size(), 3u);
    EXPECT_EQ(raw[0].line, raw[1].line);
    EXPECT_EQ(raw[1].line, raw[2].line);
}

TEST_F(JsonAccess, IsBoolTestsTrueBeforeFalse)
{
    Tree root = Parse(kAllTypes);
    KrvJson *t = nullptr, *f = nullptr, *x = nullptr;
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "t", &t), 0u);
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "f", &f), 0u);
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "x", &x), 0u);

    EXPECT_EQ(KRV_JsonIsBool(t), 1u);
    EXPECT_EQ(Logged(), Lines{});
    EXPECT_EQ(KRV_JsonIsBool(f), 1u);
    EXPECT_EQ(Logged(), Lines{"1 valueType match failed, valueType :1"});
    EXPECT_EQ(KRV_JsonIsBool(x), 0u);
    EXPECT_EQ(Logged(), (Lines{"1 valueType match failed, valueType :1", "1 valueType match failed, valueType :2"}));
    EXPECT_EQ(KRV_JsonIsBool(nullptr), 0u);
    EXPECT_EQ(Logged(), (Lines{"1 valueType match failed, valueType :1", "1 valueType match failed, valueType :2"}));
}

TEST_F(JsonAccess, ItemGetFindsDirectMembersOnly)
{
    Tree root = Parse(kAllTypes);
    KrvJson *item = nullptr;
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "o", &item), 0u);
    const KrvJsonChild *last = root->child;
    while (last->next != nullptr) {
        last = last->next;
    }
    EXPECT_EQ(item, last->item);  // borrowed, not copied

    KrvJson *const sentinel = root.get();
    item = sentinel;
    EXPECT_EQ(KRV_JsonItemGet(root.get(), "in", &item), 1u);  // nested member is not visible
    EXPECT_EQ(KRV_JsonItemGet(root.get(), "S", &item), 1u);   // case matters
    EXPECT_EQ(KRV_JsonItemGet(root.get(), "", &item), 1u);
    EXPECT_EQ(item, sentinel);
    EXPECT_EQ(Logged(), (Lines{"1 key isn't match :in", "1 key isn't match :S", "1 key isn't match :"}));

    KrvJson *arr = nullptr;
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "a", &arr), 0u);
    EXPECT_EQ(KRV_JsonItemGet(arr, "p", &item), 1u);
    EXPECT_EQ(Logged(), Lines{"1 valueType ：5 isn't OBJECT"});

    EXPECT_EQ(KRV_JsonItemGet(nullptr, "a", &item), 22u);
    EXPECT_EQ(KRV_JsonItemGet(root.get(), nullptr, &item), 22u);
    EXPECT_EQ(KRV_JsonItemGet(root.get(), "a", nullptr), 22u);
    EXPECT_EQ(Logged(), (Lines{"22 invaild param", "22 invaild param", "22 invaild param"}));

    EXPECT_TRUE(KRV_JsonIsKeyExist(root.get(), "e"));
    EXPECT_FALSE(KRV_JsonIsKeyExist(root.get(), "zz"));
    EXPECT_FALSE(KRV_JsonIsKeyExist(arr, "p"));
    EXPECT_FALSE(KRV_JsonIsKeyExist(nullptr, "p"));
    EXPECT_FALSE(KRV_JsonIsKeyExist(root.get(), nullptr));
    EXPECT_EQ(Logged(), (Lines{"1 key isn't match :zz", "1 valueType ：5 isn't OBJECT", "22 invaild param",
                               "22 invaild param"}));
}

TEST_F(JsonAccess, ScalarGettersCheckTheirOutputFirstThenLookUpThenType)
{
    Tree root = Parse(kAllTypes);
    uint8_t flag = 7;
    double num = -1;
    KrvJson *arr = nullptr;

    // The output pointer wins over every other bad argument.
    EXPECT_EQ(KRV_JsonBoolValueGet(nullptr, nullptr, nullptr), 22u);
    EXPECT_EQ(KRV_JsonNumberValueGet(nullptr, nullptr, nullptr), 22u);
    EXPECT_EQ(KRV_JsonArrayGet(nullptr, nullptr, nullptr), 22u);
    EXPECT_EQ(Logged(), (Lines{"22 boolVal is null", "22 val is null", "22 jsonArrPtr is null"}));
    EXPECT_EQ(KRV_JsonBoolValueGet(nullptr, "t", &flag), 22u);
    EXPECT_EQ(KRV_JsonNumberValueGet(root.get(), nullptr, &num), 22u);
    EXPECT_EQ(Logged(), (Lines{"22 invaild param", "22 invaild param"}));

    EXPECT_EQ(KRV_JsonBoolValueGet(root.get(), "t", &flag), 0u);
    EXPECT_EQ(flag, 1u);
    EXPECT_EQ(KRV_JsonBoolValueGet(root.get(), "f", &flag), 0u);
    EXPECT_EQ(flag, 0u);
    EXPECT_EQ(KRV_JsonNumberValueGet(root.get(), "x", &num), 0u);
    EXPECT_EQ(num, 1.5);
    EXPECT_EQ(KRV_JsonArrayGet(root.get(), "a", &arr), 0u);
    EXPECT_EQ(arr->valueType, KRV_JSON_ARRAY);
    EXPECT_STREQ(arr->key, "a");
    EXPECT_EQ(Logged(), Lines{});

    flag = 7;
    num = -1;
    KrvJson *const sentinel = root.get();
    arr = sentinel;
    EXPECT_EQ(KRV_JsonBoolValueGet(root.get(), "x", &flag), 1u);
    EXPECT_EQ(KRV_JsonBoolValueGet(root.get(), "n", &flag), 1u);
    EXPECT_EQ(KRV_JsonNumberValueGet(root.get(), "s", &num), 1u);
    EXPECT_EQ(KRV_JsonArrayGet(root.get(), "o", &arr), 1u);
    EXPECT_EQ(KRV_JsonNumberValueGet(root.get(), "missing", &num), 1u);
    EXPECT_EQ(flag, 7u);
    EXPECT_EQ(num, -1);
    EXPECT_EQ(arr, sentinel);
    EXPECT_EQ(Logged(), (Lines{"1 valueType: 3 isn't BOOL", "1 valueType: 0 isn't BOOL", "1 valueType：4 isn't NUMBER",
                               "1 valueType isn't ARRAY : 6", "1 key isn't match :missing"}));
}

TEST_F(JsonAccess, StringGettersHandOutFreshCopies)
{
    Tree root = Parse(kAllTypes);
    char *str = nullptr;
    size_t size = 99;
    ASSERT_EQ(KRV_JsonStringValueGet(root.get(), "s", &str), 0u);
    KrvJson *member = nullptr;
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "s", &member), 0u);
    EXPECT_STREQ(str, "txt");
    EXPECT_NE(str, member->stringValue);
    str[0] = 'X';  // the copy is the caller's: the tree must not see this
    EXPECT_STREQ(member->stringValue, "txt");
    KRV_JsonStringValueFree(str);

    str = nullptr;
    ASSERT_EQ(KRV_JsonStringValueAndSizeGet(root.get(), "s", &str, &size), 0u);
    EXPECT_STREQ(str, "txt");
    EXPECT_EQ(size, 3u);
    KRV_JsonStringValueFree(str);
    ASSERT_EQ(KRV_JsonStringValueAndSizeGet(root.get(), "e", &str, &size), 0u);
    EXPECT_STREQ(str, "");
    EXPECT_EQ(size, 0u);
    KRV_JsonStringValueFree(str);
    KRV_JsonStringValueFree(nullptr);
    EXPECT_EQ(Logged(), Lines{});

    char marker = 0;
    str = &marker;
    size = 99;
    EXPECT_EQ(KRV_JsonStringValueGet(root.get(), "x", &str), 1u);
    EXPECT_EQ(KRV_JsonStringValueAndSizeGet(root.get(), "a", &str, &size), 1u);
    EXPECT_EQ(str, &marker);  // a wrong type leaves the output alone
    EXPECT_EQ(size, 99u);
    EXPECT_EQ(KRV_JsonStringValueGet(root.get(), nullptr, &str), 22u);
    EXPECT_EQ(KRV_JsonStringValueGet(root.get(), "s", nullptr), 22u);
    EXPECT_EQ(KRV_JsonStringValueAndSizeGet(root.get(), "s", &str, nullptr), 22u);
    EXPECT_EQ(Logged(), (Lines{"1 valueType isn't STRING：3", "1 valueType isn't STRING：5", "22 invaild param",
                               "22 invaild param", "22 invaild param"}));
}

TEST_F(JsonAccess, StringCopyOutOfMemoryLeavesNullAndLogsOnce)
{
    Tree root = Parse(R"({"s":"abc","a":["x"]})");
    KrvJson *arr = nullptr;
    ASSERT_EQ(KRV_JsonArrayGet(root.get(), "a", &arr), 0u);
    char marker = 0;
    char *outs[3] = {&marker, &marker, &marker};
    size_t size = 99;
    uint32_t rets[3];
    unsigned failed[3];
    {
        krvtest::AllocFailure fail(0, 1);
        rets[0] = KRV_JsonStringValueGet(root.get(), "s", &outs[0]);
        failed[0] = fail.Failed();
    }
    {
        krvtest::AllocFailure fail(0, 1);
        rets[1] = KRV_JsonStringValueAndSizeGet(root.get(), "s", &outs[1], &size);
        failed[1] = fail.Failed();
    }
    {
        krvtest::AllocFailure fail(0, 1);
        rets[2] = KRV_JsonArrayStringValueGet(arr, 0, &outs[2]);
        failed[2] = fail.Failed();
    }
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(failed[i], 1u) << i;
        EXPECT_EQ(rets[i], 12u) << i;
        EXPECT_EQ(outs[i], nullptr) << i;
    }
    EXPECT_EQ(size, 99u);
    Lines oom(3, "12 Krv Json Cast2String malloc failed");
    EXPECT_EQ(Logged(), oom);
}

TEST_F(JsonAccess, ArrayGettersCheckTypeBoundsAndTheWalk)
{
    Tree root = Parse(R"({"s":["a","b","c"],"n":[1,2.5],"e":[],"o":{}})");
    KrvJson *strs = nullptr, *nums = nullptr, *empty = nullptr, *obj = nullptr;
    ASSERT_EQ(KRV_JsonArrayGet(root.get(), "s", &strs), 0u);
    ASSERT_EQ(KRV_JsonArrayGet(root.get(), "n", &nums), 0u);
    ASSERT_EQ(KRV_JsonArrayGet(root.get(), "e", &empty), 0u);
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "o", &obj), 0u);

    uint32_t size = 0;
    EXPECT_EQ(KRV_JsonArraySizeGet(strs, &size), 0u);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(KRV_JsonArraySizeGet(empty, &size), 0u);
    EXPECT_EQ(size, 0u);

    KrvJson *item = nullptr;
    EXPECT_EQ(KRV_JsonArrayItemGet(strs, 2, &item), 0u);
    EXPECT_STREQ(item->stringValue, "c");
    char *str = nullptr;
    EXPECT_EQ(KRV_JsonArrayStringValueGet(strs, 1, &str), 0u);
    EXPECT_STREQ(str, "b");
    KRV_JsonStringValueFree(str);
    double val = 0;
    EXPECT_EQ(KRV_JsonArrayNumberValueGet(nums, 1, &val), 0u);
    EXPECT_EQ(val, 2.5);
    EXPECT_EQ(Logged(), Lines{});

    // Wrong container or wrong element type is a bad argument (22), a bad index a failure (1).
    EXPECT_EQ(KRV_JsonArraySizeGet(obj, &size), 22u);
    EXPECT_EQ(KRV_JsonArraySizeGet(strs, nullptr), 22u);
    EXPECT_EQ(KRV_JsonArrayItemGet(obj, 0, &item), 22u);
    EXPECT_EQ(KRV_JsonArrayItemGet(strs, 0, nullptr), 22u);
    EXPECT_EQ(KRV_JsonArrayStringValueGet(nums, 0, &str), 22u);
    EXPECT_EQ(KRV_JsonArrayStringValueGet(empty, 0, &str), 22u);
    EXPECT_EQ(KRV_JsonArrayNumberValueGet(strs, 0, &val), 22u);
    EXPECT_EQ(KRV_JsonArrayNumberValueGet(nums, 0, nullptr), 22u);
    EXPECT_EQ(Logged(), Lines(8, "22 invaild param"));

    EXPECT_EQ(KRV_JsonArrayItemGet(strs, 3, &item), 1u);
    EXPECT_EQ(KRV_JsonArrayStringValueGet(strs, 3, &str), 1u);
    EXPECT_EQ(KRV_JsonArrayNumberValueGet(nums, 0xFFFFFFFFu, &val), 1u);
    EXPECT_EQ(KRV_JsonArrayItemGet(empty, 0, &item), 1u);
    EXPECT_EQ(Logged(), (Lines{"1 index：3 error, arrLen: 3", "1 index：3 error, arrLen: 3",
                               "1 index：4294967295 error, arrLen: 2", "1 index：0 error, arrLen: 0"}));

    // A length that overstates the list must not walk off its end.
    strs->arrLen = 5;
    item = nullptr;
    EXPECT_EQ(KRV_JsonArrayItemGet(strs, 4, &item), 1u);
    strs->arrLen = 3;
    EXPECT_EQ(item, nullptr);
    EXPECT_EQ(Logged(), Lines{"1 arr item get failed, idx: 4, i: 3"});
}

}  // namespace
