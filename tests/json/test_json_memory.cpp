// Running out of memory at each allocation in turn, in parses, getters, setters and serialisation:
// every refusal returns 12 with its exact texts, leaks nothing and leaves trees as they were.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <set>
#include <string>

#include "krv_json.h"
#include "krv_log.h"
#include "support/krv_test_support.h"

namespace {

using Texts = std::set<std::string>;

// The hook runs while mallocs fail, so it keeps its "code msg" lines in fixed storage.
char g_lines[64][1024];
unsigned g_count;
void Record(uint32_t code, uint32_t, const char *, uint32_t, const char *msg)
{
    if (g_count < 64) {
        std::snprintf(g_lines[g_count++], sizeof(g_lines[0]), "%u %s", code, msg);
    }
}

// Runs op with its first, second, ... allocation refused until it makes no more, each time after a
// whole parse has restarted the nesting count. A refused run must return a status in allowed and
// leave intact() true; the last run must return normal. Returns the distinct lines of refused runs.
Texts FailEach(const std::function<uint32_t()> &op, const std::function<bool()> &intact, uint32_t normal = 0,
               const std::set<uint32_t> &allowed = {12})
{
    Texts seen;
    for (unsigned skip = 0; skip < 500; ++skip) {
        KrvJson *fresh = nullptr;
        KRV_JsonParseByString("0", &fresh);
        KRV_JsonDelete(fresh);
        g_count = 0;
        uint32_t status;
        unsigned failed;
        {
            krvtest::AllocFailure fault(skip, 1);
            status = op();
            failed = fault.Failed();
        }
        if (failed == 0) {
            EXPECT_EQ(status, normal);
            return seen;
        }
        seen.insert(g_lines, g_lines + g_count);
        EXPECT_TRUE(allowed.count(status) == 1 && intact()) << "allocation " << skip << " gave " << status;
    }
    ADD_FAILURE() << "never ran out of allocations";
    return seen;
}

// The serialised text of json, or "" when it cannot be written.
std::string Text(KrvJson *json)
{
    char *text = nullptr;
    size_t len = 0;
    std::string out = KRV_JsonSerializesToString(json, &text, &len) == 0 ? text : "";
    KRV_JsonStringValueFree(text);
    return out;
}

class JsonMemory : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(KRV_LogHookReg(Record), 0u); }
    void TearDown() override
    {
        KRV_JsonDelete(root_);
        KRV_LogHookUnReg();
    }
    // Runs a whole parse into root_ under FailEach: a refusal must leave no tree behind.
    Texts ParseEach(const std::function<uint32_t()> &parse, uint32_t normal = 0, const std::set<uint32_t> &allowed = {12})
    {
        bool consistent = true;
        auto op = [&] {
            KRV_JsonDelete(root_);
            root_ = nullptr;
            uint32_t status = parse();
            consistent = (status == 0) == (root_ != nullptr);
            return status;
        };
        return FailEach(op, [&] { return consistent; }, normal, allowed);
    }
    KrvJson *root_ = nullptr;
    const std::string create_ = "12 Krv Json Create malloc failed", link_ = "12 Krv Json Child Init malloc failed";
    const std::string string_ = "12 Krv Json String Parse malloc failed", node_ = "12 string json create failed";
};

TEST_F(JsonMemory, ParsesFailWith12AndTheirTexts)
{
    std::string doc = "{\"n\":1.5,\"a\":[true],\"o\":{\"k\":null}";
    for (int i = 0; i < 40; ++i) {
        doc += ",\"k" + std::to_string(i) + "\":\"v\"";  // enough members for the parser's name index
    }
    const std::string repeat = doc + ",\"k3\":0}", deep = std::string(30, '[') + std::string(30, ']');
    doc += "}";
    // Losing the name index costs nothing: the document parses and a repeat is still found.
    EXPECT_EQ(ParseEach([&] { return KRV_JsonParseByString(doc.c_str(), &root_); }, 0, {12, 0}),
              (Texts{create_, link_, string_, node_, "12 Krv Json Number Parse malloc failed",
                     "12 parse failed, jsonStr is " + doc}));
    ParseEach([&] { return KRV_JsonParseByString(repeat.c_str(), &root_); }, 1, {12, 1});
    EXPECT_EQ(ParseEach([&] { return KRV_JsonParseByString(deep.c_str(), &root_); }, 1),
              (Texts{create_, link_, "12 Krv Json Value Parse malloc failed", "12 parse failed, jsonStr is " + deep}));

    krvtest::TempDir dir;
    const std::string path = dir.Path() + "/doc.json";
    std::ofstream(path) << "{\"a\":[\"b\"]}";
    // The C library's own allocations (path resolution, fopen, stdio buffers) fail in their own ways.
    Texts seen = ParseEach([&] { return KRV_JsonParse(path.c_str(), &root_); }, 0, {0, 1, 12});
    for (const char *line : {"12 mem alloc failed", "12 Krv Json File Read malloc failed", "1 fopen failed",
                             "12 Json Parse By String failed, fileBuffer :{\"a\":[\"b\"]}"}) {
        EXPECT_EQ(seen.count(line), 1u) << line;
    }
}

TEST_F(JsonMemory, GettersSettersAndSerialisationLeaveTheTreeAsItWas)
{
    ASSERT_EQ(KRV_JsonParseByString(R"({"a":"x","b":["y"],"c":{}})", &root_), 0u);
    KrvJson *arr = root_->child->next->item;
    char marker = 0, *str = nullptr;
    auto get = [&] {  // every getter copies strings out through one routine
        str = &marker;
        return KRV_JsonArrayStringValueGet(arr, 0, &str);
    };
    EXPECT_EQ(FailEach(get, [&] { return str == nullptr; }), Texts{"12 Krv Json Cast2String malloc failed"});
    KRV_JsonStringValueFree(str);

    const std::string copy = "12 malloc failed, mallocLen 3", parsed = "12 json Value Parse fail";
    const std::pair<std::function<uint32_t()>, Texts> setters[] = {
        {[&] { return KRV_JsonStringValueSet(root_, "a", "v1"); }, {copy}},
        {[&] { return KRV_JsonStringValueSet(root_, "d", "v2"); },
         {copy, "1 key isn't match :d", create_, node_, link_, "12 Json Item Add To Object failed"}},
        {[&] { return KRV_JsonArrayValueSet(root_, "e", "[]"); },
         {create_, parsed, link_, "12 Json Child Init failed", "12 krv json object set failed, key is e"}},
        {[&] { return KRV_JsonArrayValueSet(root_, "b", R"([["p"],["q"]])"); },
         {create_, string_, node_, link_, parsed, "12 Json Child Init failed", "12 krv json object set failed, key is b"}},
    };
    for (const auto &[op, texts] : setters) {
        const std::string before = Text(root_);
        EXPECT_EQ(FailEach(op, [&] { return Text(root_) == before; }), texts);
    }
    const std::string after = R"({"a":"v1","b":[["p"],["q"]],"c":{},"d":"v2","e":[]})";
    EXPECT_EQ(Text(root_), after);

    size_t len = 0;
    auto serialise = [&] {
        str = nullptr;
        return KRV_JsonSerializesToString(root_, &str, &len);
    };
    EXPECT_EQ(FailEach(serialise, [&] { return str == nullptr; }),
              (Texts{"1 valueType match failed, valueType :6", "1 valueType match failed, valueType :5",
                     "12 malloc failed, mallocLen " + std::to_string(after.size() + 1)}));
    EXPECT_EQ(std::string(str), after);
    KRV_JsonStringValueFree(str);
}

}  // namespace
