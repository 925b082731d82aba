// Typed access to parsed trees: predicates and their log lines, lookup, getters, array getters.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

using Lines = std::vector<std::string>;

class JsonAccess : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(KRV_JsonParseByString(R"({"n":null,"t":true,"f":false,"x":1.5,"s":"txt","a":["p","q"],"o":{"in":2},)"
                                        R"("e":"","nums":[1,2.5],"none":[]})",
                                        &root_),
                  0u);
    }
    void TearDown() override { KRV_JsonDelete(root_); }
    KrvJson *Member(const char *key)
    {
        KrvJson *member = nullptr;
        EXPECT_EQ(KRV_JsonItemGet(root_, key, &member), 0u) << key;
        return member;
    }
    // Diagnostics since the last call as "code msg"; each must be an error line of krv_json.
    Lines Logged()
    {
        Lines out;
        for (const krvtest::Diag &d : diags_.Take()) {
            EXPECT_TRUE(d.level == 2 && d.file == "krv_json") << d.msg;
            out.push_back(std::to_string(d.code) + " " + d.msg);
        }
        return out;
    }
    std::string Mismatch(unsigned expected) { return "1 valueType match failed, valueType :" + std::to_string(expected); }

    krvtest::DiagCapture diags_;
    KrvJson *root_ = nullptr;
};

TEST_F(JsonAccess, PredicatesLogTheExpectedCode)
{
    using Predicate = uint32_t (*)(const KrvJson *);
    const std::pair<Predicate, const char *> byCode[] = {{KRV_JsonIsNull, "n"},   {KRV_JsonIsTrue, "t"},  {KRV_JsonIsFalse, "f"},
                                                         {KRV_JsonIsNumber, "x"}, {KRV_JsonIsString, "s"}, {KRV_JsonIsArray, "a"},
                                                         {KRV_JsonIsObject, "o"}};
    for (unsigned p = 0; p < 7; p++) {
        for (unsigned k = 0; k < 7; k++) {
            EXPECT_EQ(byCode[p].first(Member(byCode[k].second)), p == k ? 1u : 0u) << p << k;
            EXPECT_EQ(Logged(), p == k ? Lines{} : Lines{Mismatch(p)}) << p << k;
        }
        EXPECT_EQ(byCode[p].first(nullptr), 0u);
        EXPECT_EQ(Logged(), Lines{Mismatch(p)});
    }
    // TRUE is tested first: FALSE passes after one failed test, anything else fails both.
    EXPECT_EQ(KRV_JsonIsBool(Member("t")), 1u);
    EXPECT_EQ(KRV_JsonIsBool(Member("f")), 1u);
    EXPECT_EQ(Logged(), Lines{Mismatch(1)});
    EXPECT_EQ(KRV_JsonIsBool(Member("x")), 0u);
    EXPECT_EQ(KRV_JsonIsBool(nullptr), 0u);
    EXPECT_EQ(Logged(), (Lines{Mismatch(1), Mismatch(2), Mismatch(1), Mismatch(2)}));
}

TEST_F(JsonAccess, LookupAndScalarGettersCheckOutputThenMemberThenType)
{
    KrvJson *item = root_;
    EXPECT_EQ(KRV_JsonItemGet(root_, "in", &item), 1u);  // direct members only
    EXPECT_EQ(KRV_JsonItemGet(root_, "S", &item), 1u);   // exact case
    EXPECT_EQ(KRV_JsonItemGet(Member("a"), "p", &item), 1u);
    EXPECT_EQ(KRV_JsonItemGet(nullptr, "a", &item), 22u);
    EXPECT_TRUE(KRV_JsonIsKeyExist(root_, "e"));
    EXPECT_FALSE(KRV_JsonIsKeyExist(Member("a"), "p"));
    EXPECT_FALSE(KRV_JsonIsKeyExist(root_, nullptr));
    EXPECT_EQ(Logged(), (Lines{"1 key isn't match :in", "1 key isn't match :S", "1 valueType ：5 isn't OBJECT",
                               "22 invaild param", "1 valueType ：5 isn't OBJECT", "22 invaild param"}));

    // The getter's own output pointer is checked before json and key.
    uint8_t flag = 7;
    double num = -1;
    EXPECT_EQ(KRV_JsonBoolValueGet(nullptr, nullptr, nullptr), 22u);
    EXPECT_EQ(KRV_JsonNumberValueGet(nullptr, nullptr, nullptr), 22u);
    EXPECT_EQ(KRV_JsonArrayGet(nullptr, nullptr, nullptr), 22u);
    EXPECT_EQ(KRV_JsonBoolValueGet(nullptr, "t", &flag), 22u);
    EXPECT_EQ(KRV_JsonBoolValueGet(root_, "x", &flag), 1u);
    EXPECT_EQ(KRV_JsonNumberValueGet(root_, "s", &num), 1u);
    EXPECT_EQ(KRV_JsonArrayGet(root_, "o", &item), 1u);
    EXPECT_EQ(KRV_JsonNumberValueGet(root_, "missing", &num), 1u);
    EXPECT_TRUE(flag == 7 && num == -1 && item == root_);  // untouched on failure
    EXPECT_EQ(Logged(), (Lines{"22 boolVal is null", "22 val is null", "22 jsonArrPtr is null", "22 invaild param",
                               "1 valueType: 3 isn't BOOL", "1 valueType：4 isn't NUMBER", "1 valueType isn't ARRAY : 6",
                               "1 key isn't match :missing"}));

    EXPECT_TRUE(KRV_JsonBoolValueGet(root_, "t", &flag) == 0 && flag == 1);
    EXPECT_TRUE(KRV_JsonBoolValueGet(root_, "f", &flag) == 0 && flag == 0);
    EXPECT_TRUE(KRV_JsonNumberValueGet(root_, "x", &num) == 0 && num == 1.5);
    EXPECT_TRUE(KRV_JsonArrayGet(root_, "a", &item) == 0 && item == Member("a"));  // borrowed
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(JsonAccess, StringGettersHandOutFreshCopies)
{
    char *str = nullptr;
    size_t size = 99;
    ASSERT_EQ(KRV_JsonStringValueAndSizeGet(root_, "s", &str, &size), 0u);
    EXPECT_TRUE(std::string(str) == "txt" && size == 3 && str != Member("s")->stringValue);
    KRV_JsonStringValueFree(str);
    ASSERT_EQ(KRV_JsonStringValueAndSizeGet(root_, "e", &str, &size), 0u);
    EXPECT_TRUE(str[0] == '\0' && size == 0);
    KRV_JsonStringValueFree(str);

    char marker = 0;
    str = &marker;
    EXPECT_EQ(KRV_JsonStringValueGet(root_, "x", &str), 1u);
    EXPECT_EQ(KRV_JsonStringValueAndSizeGet(root_, "s", &str, nullptr), 22u);
    EXPECT_EQ(str, &marker);
    EXPECT_EQ(Logged(), (Lines{"1 valueType isn't STRING：3", "22 invaild param"}));
}

TEST_F(JsonAccess, ArrayGettersCheckTypeBoundsAndTheWalk)
{
    KrvJson *strs = Member("a"), *nums = Member("nums"), *none = Member("none"), *item = nullptr;
    uint32_t size = 0;
    char *str = nullptr;
    double val = 0;
    EXPECT_TRUE(KRV_JsonArraySizeGet(nums, &size) == 0 && size == 2);
    EXPECT_TRUE(KRV_JsonArrayNumberValueGet(nums, 1, &val) == 0 && val == 2.5);
    ASSERT_EQ(KRV_JsonArrayStringValueGet(strs, 1, &str), 0u);
    EXPECT_STREQ(str, "q");
    KRV_JsonStringValueFree(str);

    // A wrong container or element type is a bad argument (22); a bad index is a failure (1).
    EXPECT_EQ(KRV_JsonArraySizeGet(Member("o"), &size), 22u);
    EXPECT_EQ(KRV_JsonArrayItemGet(Member("o"), 0, &item), 22u);
    EXPECT_EQ(KRV_JsonArrayStringValueGet(nums, 0, &str), 22u);
    EXPECT_EQ(KRV_JsonArrayStringValueGet(none, 0, &str), 22u);
    EXPECT_EQ(KRV_JsonArrayNumberValueGet(strs, 0, &val), 22u);
    EXPECT_EQ(KRV_JsonArrayItemGet(strs, 2, &item), 1u);
    EXPECT_EQ(KRV_JsonArrayNumberValueGet(nums, 0xFFFFFFFFu, &val), 1u);
    EXPECT_EQ(KRV_JsonArrayItemGet(none, 0, &item), 1u);
    EXPECT_EQ(Logged(), (Lines{"22 invaild param", "22 invaild param", "22 invaild param", "22 invaild param",
                               "22 invaild param", "1 index：2 error, arrLen: 2", "1 index：4294967295 error, arrLen: 2",
                               "1 index：0 error, arrLen: 0"}));

    // The walk stops at the end of a list shorter than arrLen.
    strs->arrLen = 5;
    EXPECT_EQ(KRV_JsonArrayItemGet(strs, 4, &item), 1u);
    strs->arrLen = 2;
    EXPECT_TRUE(item == nullptr && val == 2.5);
    EXPECT_EQ(Logged(), (Lines{"1 arr item get failed, idx: 4, i: 2"}));
}

}  // namespace
