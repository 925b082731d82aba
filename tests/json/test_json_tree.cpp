// Reading, changing and writing trees: predicates, lookup and getters, the two setters and the
// serialiser, each with its exact status and diagnostics.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

// n members (or elements) holding the string "v".
std::string Container(bool object, unsigned n)
{
    std::string text(1, object ? '{' : '[');
    for (unsigned i = 0; i < n; i++) {
        text += (i == 0 ? "" : ",") + (object ? "\"k" + std::to_string(i) + "\":" : "") + "\"v\"";
    }
    return text + (object ? '}' : ']');
}

class JsonTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = Tree(R"({"n":null,"t":true,"f":false,"x":1.5,"s":"txt","a":["p","q"],"o":{"in":2},)"
                     R"("e":"","nums":[1,2.5]})");
    }
    // A tree the fixture frees; the whole parse also restarts the nesting count.
    KrvJson *Tree(const std::string &text)
    {
        KrvJson *tree = nullptr;
        EXPECT_EQ(KRV_JsonParseByString(text.c_str(), &tree), 0u) << text;
        trees_.emplace_back(tree, KRV_JsonDelete);
        return tree;
    }
    KrvJson *Member(const char *key)
    {
        KrvJson *member = nullptr;
        EXPECT_EQ(KRV_JsonItemGet(root_, key, &member), 0u) << key;
        return member;
    }
    // A result and the last lastN diagnostics since the last call: "result; code msg; ...". Every
    // diagnostic must be an error of krv_json.
    std::string Out(uint32_t result, size_t lastN = 99)
    {
        std::vector<krvtest::Diag> diags = diags_.Take();
        std::string out = std::to_string(result);
        for (size_t i = 0; i < diags.size(); i++) {
            EXPECT_TRUE(diags[i].level == 2 && diags[i].file == "krv_json") << diags[i].msg;
            out += i + lastN < diags.size() ? "" : "; " + std::to_string(diags[i].code) + " " + diags[i].msg;
        }
        return out;
    }
    // The serialised text of json, whose length must be the one reported, or "<N>" for a status N.
    std::string Text(KrvJson *json)
    {
        char *text = nullptr;
        size_t len = 0;
        uint32_t ret = KRV_JsonSerializesToString(json, &text, &len);
        diags_.Take();
        std::string out = ret == 0 ? text : "<" + std::to_string(ret) + ">";
        EXPECT_TRUE(ret != 0 || out.size() == len);
        KRV_JsonStringValueFree(text);
        return out;
    }
    std::vector<std::unique_ptr<KrvJson, void (*)(KrvJson *)>> trees_;
    krvtest::DiagCapture diags_;
    KrvJson *root_ = nullptr;
    const std::string mismatch_ = "; 1 valueType match failed, valueType :";
};

TEST_F(JsonTree, PredicatesLogTheExpectedCode)
{
    uint32_t (*const predicates[])(const KrvJson *) = {KRV_JsonIsNull,   KRV_JsonIsTrue,  KRV_JsonIsFalse, KRV_JsonIsNumber,
                                                        KRV_JsonIsString, KRV_JsonIsArray, KRV_JsonIsObject};
    const char *byCode[] = {"n", "t", "f", "x", "s", "a", "o", nullptr};  // a member of each type, then no node
    for (unsigned p = 0; p < 7; p++) {
        for (unsigned k = 0; k < 8; k++) {
            KrvJson *node = byCode[k] != nullptr ? Member(byCode[k]) : nullptr;
            EXPECT_EQ(Out(predicates[p](node)), p == k ? "1" : "0" + mismatch_ + std::to_string(p)) << p << k;
        }
    }
    // TRUE is tested first: FALSE passes after one failed test, anything else fails both.
    EXPECT_EQ(Out(KRV_JsonIsBool(Member("f"))), "1" + mismatch_ + "1");
    EXPECT_EQ(Out(KRV_JsonIsBool(Member("x"))), "0" + mismatch_ + "1" + mismatch_ + "2");
}

TEST_F(JsonTree, GettersCheckTheirOutputThenTheMemberThenItsType)
{
    KrvJson *item = root_;
    uint8_t flag = 7;
    double num = -1;
    char marker = 0, *str = &marker;
    size_t size = 99;
    EXPECT_EQ(Out(KRV_JsonItemGet(root_, "in", &item)), "1; 1 key isn't match :in");  // direct members only
    EXPECT_EQ(Out(KRV_JsonIsKeyExist(root_, "e")), "1");
    EXPECT_EQ(Out(KRV_JsonIsKeyExist(root_, nullptr)), "0; 22 invaild param");
    // The output pointer is checked first (the string getters check all at once), then the lookup runs.
    EXPECT_EQ(Out(KRV_JsonBoolValueGet(nullptr, nullptr, nullptr)), "22; 22 boolVal is null");
    EXPECT_EQ(Out(KRV_JsonBoolValueGet(nullptr, "t", &flag)), "22; 22 invaild param");
    EXPECT_EQ(Out(KRV_JsonStringValueAndSizeGet(root_, "s", &str, nullptr)), "22; 22 invaild param");
    EXPECT_EQ(Out(KRV_JsonBoolValueGet(root_, "x", &flag)), "1; 1 valueType: 3 isn't BOOL");
    EXPECT_EQ(Out(KRV_JsonNumberValueGet(root_, "s", &num)), "1; 1 valueType：4 isn't NUMBER");
    EXPECT_EQ(Out(KRV_JsonStringValueGet(root_, "x", &str)), "1; 1 valueType isn't STRING：3");
    EXPECT_EQ(Out(KRV_JsonArrayGet(root_, "o", &item)), "1; 1 valueType isn't ARRAY : 6");
    EXPECT_EQ(Out(KRV_JsonNumberValueGet(root_, "missing", &num)), "1; 1 key isn't match :missing");
    EXPECT_TRUE(flag == 7 && num == -1 && item == root_ && str == &marker);  // untouched on failure

    EXPECT_TRUE(KRV_JsonBoolValueGet(root_, "t", &flag) == 0 && flag == 1);
    EXPECT_TRUE(KRV_JsonNumberValueGet(root_, "x", &num) == 0 && num == 1.5);
    EXPECT_TRUE(KRV_JsonArrayGet(root_, "a", &item) == 0 && item == Member("a"));  // borrowed
    ASSERT_EQ(KRV_JsonStringValueAndSizeGet(root_, "s", &str, &size), 0u);
    EXPECT_TRUE(str != Member("s")->stringValue && str == std::string("txt") && size == 3);  // a fresh copy
    KRV_JsonStringValueFree(str);
    EXPECT_EQ(Out(0), "0");
}

TEST_F(JsonTree, ArrayGettersCheckTypeBoundsAndTheWalk)
{
    KrvJson *strs = Member("a"), *nums = Member("nums"), *item = nullptr;
    uint32_t size = 0;
    char *str = nullptr;
    double val = 0;
    EXPECT_TRUE(KRV_JsonArraySizeGet(nums, &size) == 0 && size == 2);
    EXPECT_TRUE(KRV_JsonArrayNumberValueGet(nums, 1, &val) == 0 && val == 2.5);
    // A wrong container or element type is a bad argument (22); a bad index is a failure (1).
    EXPECT_EQ(Out(KRV_JsonArraySizeGet(Member("o"), &size)), "22; 22 invaild param");
    EXPECT_EQ(Out(KRV_JsonArrayNumberValueGet(strs, 0, &val)), "22; 22 invaild param");
    EXPECT_EQ(Out(KRV_JsonArrayItemGet(strs, 2, &item)), "1; 1 index：2 error, arrLen: 2");
    EXPECT_EQ(Out(KRV_JsonArrayNumberValueGet(nums, 0xFFFFFFFFu, &val)), "1; 1 index：4294967295 error, arrLen: 2");
    EXPECT_TRUE(item == nullptr && val == 2.5);
    // The array setter with the empty name replaces an element: arrType still says STRING, the element does not.
    ASSERT_EQ(KRV_JsonArrayValueSet(strs, "", "[\"z\"]"), 0u);
    EXPECT_EQ(Out(KRV_JsonArrayStringValueGet(strs, 0, &str)), "1; 1 valueType isn't STRING：5");
}

TEST_F(JsonTree, SerialisationIsCompactAndLimitedToObjectsArraysAndStrings)
{
    KrvJson *root = Tree(" { \"a\" : \"x\",\n\t\"b\" : [ \"y\" , \"z\" ], \"c\" : { } } ");
    EXPECT_EQ(Text(root), R"({"a":"x","b":["y","z"],"c":{}})");  // Text() checks the length, 30
    // A named node keeps its prefix even as the starting point; an empty member name is lost.
    EXPECT_EQ(Text(root->child->next->item), R"("b":["y","z"])");
    EXPECT_EQ(Text(Tree(R"({"":"x","n":[[["deep"]],[]]})")), R"({"x","n":[[["deep"]],[]]})");
    // At most fifty children per container, however many containers.
    const std::string twice = "{\"a\":" + Container(false, 50) + ",\"o\":" + Container(true, 50) + "}";
    EXPECT_EQ(Text(Tree(twice)), twice);
    char marker = 0, *text = &marker;
    size_t len = 99;
    EXPECT_EQ(Out(KRV_JsonSerializesToString(Tree(Container(true, 51)), &text, &len), 2),
              "1; 1 depth is error, depth is 50; 12 Json Do Serializes failed");
    const std::string typeTests = mismatch_ + "6" + mismatch_ + "5" + mismatch_ + "4";
    EXPECT_EQ(Out(KRV_JsonSerializesToString(Member("o"), &text, &len)),  // {"in":2}, named "o"
              "1" + typeTests + typeTests + "; 1 valueType(3) is error, ; 1 json Serializes fail; 12 Json Do Serializes failed");
    EXPECT_TRUE(text == &marker && len == 6u);  // the pre-pass counts nothing for the number
    EXPECT_EQ(Out(KRV_JsonSerializesToString(nullptr, &text, &len)), "22; 22 invaild param");
}

TEST_F(JsonTree, StringValueSetReplacesStringsInPlaceAndAppendsOtherwise)
{
    KrvJson *root = Tree(R"({"a":"x","n":5})");
    const std::string longKey(32, 'K');
    EXPECT_EQ(Out(KRV_JsonStringValueSet(root, "a", "new")), "0");
    EXPECT_EQ(Out(KRV_JsonStringValueSet(root, "n", "str")), "1; 1 valueType isn't STRING：3");
    EXPECT_EQ(Out(KRV_JsonStringValueSet(root, "z", std::string(4096, 'L').c_str())), "0; 1 key isn't match :z");
    EXPECT_EQ(Out(KRV_JsonStringValueSet(root, "a", std::string(4097, 'L').c_str())), "22; 22 strLen:4097 > MAXPATH");
    EXPECT_EQ(Out(KRV_JsonStringValueSet(root, "a", nullptr)), "22; 22 invaild param");
    EXPECT_EQ(Out(KRV_JsonStringValueSet(root, longKey.c_str(), "v")),
              "1; 1 key isn't match :" + longKey + "; 1 strcpys failed str: " + longKey +
                  ", errorcode: " + std::to_string(ERANGE) + "; 1 Json Item Add To Object failed");
    KrvJsonChild *first = root->child;
    EXPECT_TRUE(std::string(first->item->stringValue) == "new" && first->next->item->numberValue == 5.0);
    EXPECT_TRUE(std::string(first->next->next->item->key) == "z" && first->next->next->next == nullptr);

    // Nothing is escaped, and on an array a named child joins the list while arrLen stays.
    KrvJson *arr = Tree(R"(["y"])");
    EXPECT_EQ(Out(KRV_JsonStringValueSet(arr, "k", R"(say "hi")")), "0; 1 valueType ：5 isn't OBJECT");
    EXPECT_EQ(arr->arrLen, 1u);
    EXPECT_EQ(Text(arr), R"(["y","k":"say "hi""])");
}

TEST_F(JsonTree, ArrayValueSetReplacesInPlaceAndContinuesTheNestingCount)
{
    KrvJson *root = Tree(R"({"a":"x","z":"w"})");
    const std::string after = R"({"a":[["q"],["r"]],"z":"w","k":["p"]})";
    EXPECT_EQ(KRV_JsonArrayValueSet(root, "k", "[\"o\"]"), 0u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root, "k", " [\"p\"] \n"), 0u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root, "a", R"([["q"],["r"]])"), 0u);  // any type is replaced
    EXPECT_EQ(Text(root), after);
    EXPECT_EQ(Out(KRV_JsonArrayValueSet(root, "k", "{}")), "1; 1 valueType is error, valueType :6");
    EXPECT_EQ(Text(root), after);

    // From a fresh parse, each set starts a level deeper: the nineteenth puts "v" at level 21.
    KrvJson *fresh = Tree("{}");
    for (int i = 1; i <= 18; i++) {
        ASSERT_EQ(KRV_JsonArrayValueSet(fresh, "k", R"(["v"])"), 0u) << i;
    }
    EXPECT_EQ(Out(KRV_JsonArrayValueSet(fresh, "k", R"(["v"])")),
              "1; 1 The max nested layer json supported is 20; 1 json Value Parse fail");
    Tree("[]");
    EXPECT_EQ(KRV_JsonArrayValueSet(fresh, "k", R"(["v"])"), 0u);
}

}  // namespace
