// Serialisation and the two setters: exact output, exact diagnostics, failures that change nothing.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

using Lines = std::vector<std::string>;

// The serialised text of json, or "<status N>".
std::string Text(KrvJson *json)
{
    char *text = nullptr;
    size_t len = 0;
    uint32_t ret = KRV_JsonSerializesToString(json, &text, &len);
    if (ret != 0) {
        return "<status " + std::to_string(ret) + ">";
    }
    std::string out(text);
    EXPECT_EQ(out.size(), len);
    KRV_JsonStringValueFree(text);
    return out;
}

// Parses text into a tree owned by the test; a full parse also restarts the nesting count.
struct Tree {
    explicit Tree(const std::string &text) { EXPECT_EQ(KRV_JsonParseByString(text.c_str(), &root), 0u) << text; }
    ~Tree() { KRV_JsonDelete(root); }
    std::string Text() const { return ::Text(root); }
    KrvJson *root = nullptr;
};

// n members (or elements) holding the string "v".
std::string Container(bool object, unsigned n)
{
    std::string text(1, object ? '{' : '[');
    for (unsigned i = 0; i < n; i++) {
        text += (i == 0 ? "" : ",") + (object ? "\"k" + std::to_string(i) + "\":" : "") + "\"v\"";
    }
    return text + (object ? '}' : ']');
}

std::string Mismatch(unsigned expected) { return "1 valueType match failed, valueType :" + std::to_string(expected); }

class JsonOutput : public ::testing::Test {
protected:
    // Diagnostics since the last call as "code msg"; each must be an error line of krv_json.
    Lines Logged(size_t lastN = ~size_t{0})
    {
        Lines out;
        for (const krvtest::Diag &d : diags_.Take()) {
            EXPECT_TRUE(d.level == 2 && d.file == "krv_json") << d.msg;
            out.push_back(std::to_string(d.code) + " " + d.msg);
        }
        return lastN < out.size() ? Lines(out.end() - lastN, out.end()) : out;
    }
    krvtest::DiagCapture diags_;
};

TEST_F(JsonOutput, RoundTripIsCompactAndTypeTestsMatchThePredicates)
{
    Tree tree(" { \"a\" : \"x\",\n\t\"b\" : [ \"y\" , \"z\" ], \"c\" : { } } ");
    EXPECT_EQ(tree.Text(), R"({"a":"x","b":["y","z"],"c":{}})");  // Text() checks the length, 30
    // Each pass: "a", "y", "z" fail OBJECT and ARRAY, "b" fails OBJECT, from the predicates' line.
    std::vector<krvtest::Diag> raw = diags_.Take();
    KRV_JsonIsObject(nullptr);
    const uint32_t predicateLine = diags_.Take().at(0).line;
    ASSERT_EQ(raw.size(), 14u);
    for (size_t i = 0; i < raw.size(); i++) {
        EXPECT_EQ(std::to_string(raw[i].code) + " " + raw[i].msg, Mismatch("6566565"[i % 7] - '0')) << i;
        EXPECT_EQ(raw[i].line, predicateLine);
    }
    // A named node keeps its prefix even as the starting point; an empty member name is lost.
    KrvJson *b = nullptr;
    ASSERT_EQ(KRV_JsonItemGet(tree.root, "b", &b), 0u);
    EXPECT_EQ(Text(b), R"("b":["y","z"])");
    EXPECT_EQ(Tree(R"({"":"x","n":[[["deep"]],[]]})").Text(), R"({"x","n":[[["deep"]],[]]})");
    EXPECT_EQ(Tree(R"("solo")").Text(), R"("solo")");
}

TEST_F(JsonOutput, OtherTypesAndOversizedContainersAreRefused)
{
    Tree tree(R"({"a":1})");
    char marker = 0;
    char *text = &marker;
    size_t len = 99;
    EXPECT_EQ(KRV_JsonSerializesToString(tree.root, &text, &len), 1u);
    EXPECT_EQ(text, &marker);
    EXPECT_EQ(len, 2u);  // the pre-pass counts nothing for the number
    EXPECT_EQ(Logged(), (Lines{Mismatch(6), Mismatch(5), Mismatch(4), Mismatch(6), Mismatch(5), Mismatch(4),
                               "1 valueType(3) is error, ", "1 json Serializes fail", "12 Json Do Serializes failed"}));
    EXPECT_EQ(Tree(R"({"o":{"s":"ok","a":[false]}})").Text(), "<status 1>");
    EXPECT_EQ(Logged(5), (Lines{"1 valueType(2) is error, ", "1 json Serializes fail", "1 json Serializes fail",
                                "1 json Serializes fail", "12 Json Do Serializes failed"}));
    EXPECT_EQ(Tree("null").Text(), "<status 1>");
    EXPECT_EQ(Logged(2), (Lines{"1 valueType(0) is error, ", "12 Json Do Serializes failed"}));
    EXPECT_EQ(KRV_JsonSerializesToString(nullptr, &text, &len), 22u);
    EXPECT_EQ(KRV_JsonSerializesToString(tree.root, &text, nullptr), 22u);
    EXPECT_EQ(Logged(), Lines(2, "22 invaild param"));

    // At most fifty children per container, however many containers.
    EXPECT_EQ(Tree(Container(true, 50)).Text(), Container(true, 50));
    const std::string twice = "[" + Container(false, 50) + "," + Container(false, 50) + "]";
    EXPECT_EQ(Tree(twice).Text(), twice);
    EXPECT_EQ(Tree(Container(true, 51)).Text(), "<status 1>");
    EXPECT_EQ(Logged(2), (Lines{"1 depth is error, depth is 50", "12 Json Do Serializes failed"}));
    EXPECT_EQ(Tree("{\"w\":" + Container(false, 51) + "}").Text(), "<status 1>");
    EXPECT_EQ(Logged(3), (Lines{"1 depth is error, depth is 50", "1 json Serializes fail", "12 Json Do Serializes failed"}));
}

TEST_F(JsonOutput, StringValueSetReplacesStringsInPlaceAndAppendsOtherwise)
{
    Tree tree(R"({"a":"x","n":5})");
    EXPECT_EQ(KRV_JsonStringValueSet(tree.root, "a", "new"), 0u);
    EXPECT_EQ(KRV_JsonStringValueSet(tree.root, "n", "str"), 1u);
    EXPECT_EQ(KRV_JsonStringValueSet(tree.root, "z", std::string(4096, 'L').c_str()), 0u);
    EXPECT_EQ(KRV_JsonStringValueSet(tree.root, "a", std::string(4097, 'L').c_str()), 22u);
    EXPECT_EQ(KRV_JsonStringValueSet(tree.root, "a", nullptr), 22u);
    EXPECT_EQ(Logged(), (Lines{"1 valueType isn't STRING：3", "1 key isn't match :z", "22 strLen:4097 > MAXPATH",
                               "22 invaild param"}));
    EXPECT_EQ(KRV_JsonStringValueSet(tree.root, std::string(32, 'K').c_str(), "v"), 1u);  // name too long
    EXPECT_EQ(Logged(1), Lines{"1 Json Item Add To Object failed"});
    KrvJsonChild *first = tree.root->child;
    EXPECT_STREQ(first->item->stringValue, "new");
    EXPECT_EQ(first->next->item->numberValue, 5.0);
    EXPECT_STREQ(first->next->next->item->key, "z");
    EXPECT_EQ(first->next->next->next, nullptr);

    // Nothing is escaped, and on an array a named child joins the list while arrLen stays.
    Tree arr(R"(["y"])");
    EXPECT_EQ(KRV_JsonStringValueSet(arr.root, "k", R"(say "hi")"), 0u);
    EXPECT_EQ(Logged(), Lines{"1 valueType ：5 isn't OBJECT"});
    EXPECT_EQ(arr.root->arrLen, 1u);
    EXPECT_EQ(arr.Text(), R"(["y","k":"say "hi""])");
}

TEST_F(JsonOutput, ArrayValueSetReplacesInPlaceAndContinuesTheNestingCount)
{
    Tree tree(R"({"a":"x","z":"w"})");
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "k", "[1,2]"), 0u);
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "k", " [\"p\"] \n"), 0u);
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "a", R"([["q"],["r"]])"), 0u);  // any type is replaced
    EXPECT_EQ(tree.Text(), R"({"a":[["q"],["r"]],"z":"w","k":["p"]})");
    Logged();
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "k", "{}"), 1u);
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "k", "[1,2] x"), 1u);
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "k", nullptr), 22u);
    EXPECT_EQ(Logged(), (Lines{"1 valueType is error, valueType :6", "1 fileSize :8, offset is :6", "22 invaild param"}));
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, "k", "[1,"), 1u);
    EXPECT_EQ(Logged(1), Lines{"1 json Value Parse fail"});
    const std::string longKey(32, 'K');
    EXPECT_EQ(KRV_JsonArrayValueSet(tree.root, longKey.c_str(), "[]"), 1u);
    EXPECT_EQ(Logged(), (Lines{"1 strcpys failed str: " + longKey + ", errorcode: " + std::to_string(ERANGE),
                               "1 krv json object set failed, key is " + longKey}));
    EXPECT_EQ(tree.Text(), R"({"a":[["q"],["r"]],"z":"w","k":["p"]})");

    // From a fresh parse, each set starts a level deeper: the nineteenth puts "v" at level 21.
    Tree fresh("{}");
    for (int i = 1; i <= 18; i++) {
        ASSERT_EQ(KRV_JsonArrayValueSet(fresh.root, "k", R"(["v"])"), 0u) << i;
    }
    EXPECT_EQ(KRV_JsonArrayValueSet(fresh.root, "k", R"(["v"])"), 1u);
    EXPECT_EQ(Logged(2), (Lines{"1 The max nested layer json supported is 20", "1 json Value Parse fail"}));
    Tree("[]");
    EXPECT_EQ(KRV_JsonArrayValueSet(fresh.root, "k", R"(["v"])"), 0u);
}

}  // namespace
