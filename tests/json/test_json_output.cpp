// Serialisation and the two setters: exact output, exact diagnostics, failures that change nothing.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "krv_json.h"
#include "krv_log.h"
#include "support/krv_test_support.h"

namespace {

using Tree = std::unique_ptr<KrvJson, decltype(&KRV_JsonDelete)>;
using Lines = std::vector<std::string>;

Tree Parse(const std::string &text)
{
    KrvJson *root = nullptr;
    EXPECT_EQ(KRV_JsonParseByString(text.c_str(), &root), 0u) << text;
    return Tree(root, KRV_JsonDelete);
}

// The serialised text, or "<status N>" when serialisation fails.
std::string Serialise(KrvJson *json)
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

// n members (or elements, for an array) holding the one-letter string "v".
std::string Container(bool object, unsigned n)
{
    std::string text(1, object ? '{' : '[');
    for (unsigned i = 0; i < n; i++) {
        text += i == 0 ? "" : ",";
        text += object ? "\"k" + std::to_string(i) + "\":\"v\"" : "\"v\"";
    }
    return text + (object ? '}' : ']');
}

size_t MemberCount(const KrvJson *json)
{
    size_t n = 0;
    for (const KrvJsonChild *link = json->child; link != nullptr; link = link->next) {
        n++;
    }
    return n;
}

class JsonOutput : public ::testing::Test {
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

std::string TypeTest(unsigned expected)
{
    return "1 valueType match failed, valueType :" + std::to_string(expected);
}

TEST_F(JsonOutput, RoundTripIsCompactAndBothPassesTestTypesLikeThePredicates)
{
    Tree root = Parse(" { \"a\" : \"x\",\n\t\"b\" : [ \"y\" , \"z\" ], \"c\" : { } } ");
    char *text = nullptr;
    size_t len = 0;
    ASSERT_EQ(KRV_JsonSerializesToString(root.get(), &text, &len), 0u);
    EXPECT_STREQ(text, R"({"a":"x","b":["y","z"],"c":{}})");
    EXPECT_EQ(len, 30u);
    KRV_JsonStringValueFree(text);

    // Per pass: "a" and each element fail OBJECT and ARRAY, "b" fails OBJECT; the objects test clean.
    const Lines pass = {TypeTest(6), TypeTest(5), TypeTest(6), TypeTest(6), TypeTest(5), TypeTest(6), TypeTest(5)};
    std::vector<krvtest::Diag> raw = Raw();
    KRV_JsonIsObject(nullptr);
    const uint32_t predicateLine = Raw().at(0).line;
    Lines got;
    for (const krvtest::Diag &d : raw) {
        EXPECT_EQ(d.line, predicateLine) << d.msg;
        got.push_back(std::to_string(d.code) + " " + d.msg);
    }
    Lines both = pass;
    both.insert(both.end(), pass.begin(), pass.end());
    EXPECT_EQ(got, both);

    // A non-root node carries its member name; a member with an empty name loses it.
    KrvJson *b = nullptr;
    ASSERT_EQ(KRV_JsonItemGet(root.get(), "b", &b), 0u);
    EXPECT_EQ(Serialise(b), R"("b":["y","z"])");
    EXPECT_EQ(Serialise(Parse(R"("solo")").get()), R"("solo")");
    EXPECT_EQ(Serialise(Parse(R"({"":"x","e":[],"n":[[["deep"]],[]]})").get()), R"({"x","e":[],"n":[[["deep"]],[]]})");
    std::string key31(31, 'k');
    EXPECT_EQ(Serialise(Parse("{\"" + key31 + "\":{}}").get()), "{\"" + key31 + "\":{}}");
}

TEST_F(JsonOutput, ScalarsOtherThanStringsAreRefused)
{
    Tree root = Parse(R"({"a":1})");
    char marker = 0;
    char *text = &marker;
    size_t len = 99;
    EXPECT_EQ(KRV_JsonSerializesToString(root.get(), &text, &len), 1u);
    EXPECT_EQ(text, &marker);
    EXPECT_EQ(len, 2u);  // the pre-pass counts nothing for the number
    EXPECT_EQ(Logged(), (Lines{TypeTest(6), TypeTest(5), TypeTest(4), TypeTest(6), TypeTest(5), TypeTest(4),
                               "1 valueType(3) is error, ", "1 json Serializes fail", "12 Json Do Serializes failed"}));

    EXPECT_EQ(Serialise(Parse("null").get()), "<status 1>");
    EXPECT_EQ(Logged(), (Lines{TypeTest(6), TypeTest(5), TypeTest(4), TypeTest(6), TypeTest(5), TypeTest(4),
                               "1 valueType(0) is error, ", "12 Json Do Serializes failed"}));

    // Every enclosing container reports the failure on the way up.
    EXPECT_EQ(Serialise(Parse(R"({"o":{"s":"ok","a":[false]}})").get()), "<status 1>");
    Lines lines = Logged();
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(Lines(lines.end() - 5, lines.end()), (Lines{"1 valueType(2) is error, ", "1 json Serializes fail",
                                                           "1 json Serializes fail", "1 json Serializes fail",
                                                           "12 Json Do Serializes failed"}));
    EXPECT_EQ(Serialise(Parse("[true]").get()), "<status 1>");
    EXPECT_EQ(Logged().back(), "12 Json Do Serializes failed");

    EXPECT_EQ(KRV_JsonSerializesToString(nullptr, &text, &len), 22u);
    EXPECT_EQ(KRV_JsonSerializesToString(root.get(), nullptr, &len), 22u);
    EXPECT_EQ(KRV_JsonSerializesToString(root.get(), &text, nullptr), 22u);
    EXPECT_EQ(Logged(), Lines(3, "22 invaild param"));
}

TEST_F(JsonOutput, FiftyChildrenPerContainerAtMost)
{
    EXPECT_EQ(Serialise(Parse(Container(true, 50)).get()), Container(true, 50));
    EXPECT_EQ(Serialise(Parse(Container(false, 50)).get()), Container(false, 50));
    // The limit is per container: fifty arrays of fifty strings pass.
    std::string grid = "[" + Container(false, 50);
    for (int i = 1; i < 50; i++) {
        grid += "," + Container(false, 50);
    }
    grid += "]";
    EXPECT_EQ(Serialise(Parse(grid).get()), grid);
    Logged();

    char marker = 0;
    char *text = &marker;
    size_t len = 0;
    EXPECT_EQ(KRV_JsonSerializesToString(Parse(Container(true, 51)).get(), &text, &len), 1u);
    EXPECT_EQ(text, &marker);
    EXPECT_EQ(len, Container(true, 51).size());
    Lines lines = Logged();
    EXPECT_EQ(Lines(lines.end() - 2, lines.end()), (Lines{"1 depth is error, depth is 50", "12 Json Do Serializes failed"}));
    EXPECT_EQ(Serialise(Parse("{\"w\":" + Container(false, 51) + "}").get()), "<status 1>");
    lines = Logged();
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"1 depth is error, depth is 50", "1 json Serializes fail", "12 Json Do Serializes failed"}));
}

TEST_F(JsonOutput, StringValueSetReplacesInPlaceOrAppends)
{
    Tree root = Parse(R"({"a":"x","n":5,"b":"y"})");
    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), "a", "new"), 0u);
    EXPECT_STREQ(root->child->item->key, "a");
    EXPECT_STREQ(root->child->item->stringValue, "new");
    EXPECT_EQ(Logged(), Lines{});

    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), "n", "str"), 1u);
    EXPECT_EQ(root->child->next->item->valueType, KRV_JSON_NUMBER);
    EXPECT_EQ(root->child->next->item->numberValue, 5.0);
    EXPECT_EQ(Logged(), Lines{"1 valueType isn't STRING：3"});

    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), "z", std::string(4096, 'L').c_str()), 0u);
    ASSERT_EQ(MemberCount(root.get()), 4u);
    EXPECT_STREQ(root->child->next->next->next->item->key, "z");
    EXPECT_EQ(std::strlen(root->child->next->next->next->item->stringValue), 4096u);
    EXPECT_EQ(Logged(), Lines{"1 key isn't match :z"});

    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), "a", std::string(4097, 'L').c_str()), 22u);
    EXPECT_EQ(KRV_JsonStringValueSet(nullptr, "a", "v"), 22u);
    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), nullptr, "v"), 22u);
    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), "a", nullptr), 22u);
    EXPECT_STREQ(root->child->item->stringValue, "new");
    EXPECT_EQ(Logged(), (Lines{"22 strLen:4097 > MAXPATH", "22 invaild param", "22 invaild param", "22 invaild param"}));

    // A name too long for a member is refused when attaching; nothing is added.
    EXPECT_EQ(KRV_JsonStringValueSet(root.get(), std::string(32, 'K').c_str(), "v"), 1u);
    EXPECT_EQ(MemberCount(root.get()), 4u);
    EXPECT_EQ(Logged().back(), "1 Json Item Add To Object failed");
}

TEST_F(JsonOutput, StringValueSetTrustsItsCallerOnContent)
{
    // Quotes are not escaped, so the output no longer parses.
    Tree root = Parse("{}");
    ASSERT_EQ(KRV_JsonStringValueSet(root.get(), "q", R"(say "hi")"), 0u);
    std::string text = Serialise(root.get());
    EXPECT_EQ(text, R"({"q":"say "hi""})");
    KrvJson *back = nullptr;
    EXPECT_NE(KRV_JsonParseByString(text.c_str(), &back), 0u);
    Logged();

    // On an array the parent's type is not checked: a named child joins the list, arrLen stays.
    Tree arr = Parse(R"(["y"])");
    EXPECT_EQ(KRV_JsonStringValueSet(arr.get(), "k", "v"), 0u);
    EXPECT_EQ(arr->arrLen, 1u);
    EXPECT_EQ(Serialise(arr.get()), R"(["y","k":"v"])");
    EXPECT_EQ(Logged().at(0), "1 valueType ：5 isn't OBJECT");
}

TEST_F(JsonOutput, ArrayValueSetParsesTextAndReplacesInPlace)
{
    Tree root = Parse(R"({"a":"x","z":"w"})");
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", "[1,2]"), 0u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", " [\"p\"] \n"), 0u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "a", R"(["q",["r"]])"), 0u);  // replaces a string too
    EXPECT_EQ(Serialise(root.get()), R"({"a":["q",["r"]],"z":"w","k":["p"]})");
    Logged();

    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", "{}"), 1u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", "\"s\""), 1u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", "[1,2] x"), 1u);
    EXPECT_EQ(Logged(), (Lines{"1 valueType is error, valueType :6", "1 valueType is error, valueType :4",
                               "1 fileSize :8, offset is :6"}));
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", "[1,"), 1u);
    EXPECT_EQ(Logged().back(), "1 json Value Parse fail");

    const std::string longKey(32, 'K');
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), longKey.c_str(), "[]"), 1u);
    EXPECT_EQ(Logged(), (Lines{"1 strcpys failed str: " + longKey + ", errorcode: " + std::to_string(ERANGE),
                               "1 krv json object set failed, key is " + longKey}));

    EXPECT_EQ(KRV_JsonArrayValueSet(nullptr, "k", "[]"), 22u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), nullptr, "[]"), 22u);
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", nullptr), 22u);
    EXPECT_EQ(Logged(), Lines(3, "22 invaild param"));
    EXPECT_EQ(Serialise(root.get()), R"({"a":["q",["r"]],"z":"w","k":["p"]})");
}

TEST_F(JsonOutput, ArrayValueSetContinuesTheParsersNestingCount)
{
    // Each set starts one level below the last; only a full parse starts afresh. From a fresh
    // parse, the nineteenth set puts its element at level 21.
    Tree root = Parse("{}");
    for (int i = 1; i <= 18; i++) {
        ASSERT_EQ(KRV_JsonArrayValueSet(root.get(), "k", R"(["v"])"), 0u) << i;
    }
    EXPECT_EQ(Logged(), Lines{});
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", R"(["v"])"), 1u);
    EXPECT_EQ(Logged(), (Lines{"1 The max nested layer json supported is 20", "1 json Value Parse fail"}));
    Parse("[]");
    EXPECT_EQ(KRV_JsonArrayValueSet(root.get(), "k", R"(["v"])"), 0u);
    EXPECT_EQ(Serialise(root.get()), R"({"k":["v"]})");
}

// Diagnostic receiver that never allocates, so it can stay installed while mallocs fail.
uint32_t g_quietCode;
unsigned g_quietCount;

void QuietHook(uint32_t code, uint32_t, const char *, uint32_t, const char *)
{
    g_quietCode = code;
    g_quietCount++;
}

struct QuietLog {
    QuietLog() { EXPECT_EQ(KRV_LogHookReg(QuietHook), 0u); }
    ~QuietLog() { KRV_LogHookUnReg(); }
};

// Fails each allocation of op in turn: each must give 12 and leave root as it was. Returns how
// many allocation points op has.
template <typename Op>
unsigned FailEachAllocation(KrvJson *root, Op op)
{
    const std::string before = Serialise(root);
    for (unsigned skip = 0; skip < 100; skip++) {
        Parse("{}");  // restart the nesting count a parsing setter continues
        g_quietCount = 0;
        uint32_t ret;
        unsigned failed;
        {
            krvtest::AllocFailure fail(skip, 1);
            ret = op();
            failed = fail.Failed();
        }
        if (failed == 0) {
            EXPECT_EQ(ret, 0u);
            return skip;
        }
        EXPECT_EQ(ret, 12u) << "allocation " << skip;
        EXPECT_EQ(g_quietCode, 12u) << "allocation " << skip;
        EXPECT_EQ(Serialise(root), before) << "allocation " << skip;
    }
    ADD_FAILURE() << "never succeeded";
    return 0;
}

TEST(JsonOutputMemory, EveryAllocationFailureLeavesTheTreeAlone)
{
    QuietLog quiet;
    Tree root = Parse(R"({"a":"x","b":["y"],"c":{}})");
    EXPECT_EQ(FailEachAllocation(root.get(), [&] { return KRV_JsonStringValueSet(root.get(), "a", "v1"); }), 1u);
    EXPECT_EQ(FailEachAllocation(root.get(), [&] { return KRV_JsonStringValueSet(root.get(), "d", "v2"); }), 3u);
    EXPECT_EQ(Serialise(root.get()), R"({"a":"v1","b":["y"],"c":{},"d":"v2"})");
    EXPECT_GE(FailEachAllocation(root.get(), [&] { return KRV_JsonArrayValueSet(root.get(), "b", R"(["p",["q"]])"); }),
              2u);
    EXPECT_GE(FailEachAllocation(root.get(), [&] { return KRV_JsonArrayValueSet(root.get(), "e", "[]"); }), 2u);
    EXPECT_EQ(Serialise(root.get()), R"({"a":"v1","b":["p",["q"]],"c":{},"d":"v2","e":[]})");

    char marker = 0;
    char *text = &marker;
    size_t len = 0;
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(KRV_JsonSerializesToString(root.get(), &text, &len), 12u);
    }
    EXPECT_EQ(text, &marker);
    EXPECT_EQ(g_quietCode, 12u);
}

}  // namespace
