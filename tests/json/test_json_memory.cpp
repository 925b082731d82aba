// Running out of memory at each allocation in turn, in parses, getters, setters and serialisation:
// every refusal returns 12 with its texts, leaks nothing and leaves trees as they were.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <tuple>

#include "krv_json.h"
#include "krv_log.h"
#include "support/krv_test_support.h"

namespace {

// The hook runs while mallocs fail, so it keeps its "code msg" lines in fixed storage.
char g_lines[64][1024];
unsigned g_count;
void Record(uint32_t code, uint32_t, const char *, uint32_t, const char *msg)
{
    if (g_count < 64) {
        std::snprintf(g_lines[g_count++], sizeof(g_lines[0]), "%u %s", code, msg);
    }
}

using Texts = std::set<std::string>;

// Runs op with its first, second, ... allocation refused until it makes no more (and then succeeds),
// each time after a whole parse has restarted the nesting count. A refused run must return a status
// in allowed and leave intact(status) true; each line of want must come from some refused run.
void FailEach(const std::function<uint32_t()> &op, const std::function<bool(uint32_t)> &intact,
              const Texts &want, const std::set<uint32_t> &allowed)
{
    Texts seen;
    unsigned skip = 0;
    for (unsigned failed = 1; failed != 0 && skip < 500; ++skip) {
        KrvJson *fresh = nullptr;
        KRV_JsonParseByString("0", &fresh);
        KRV_JsonDelete(fresh);
        g_count = 0;
        uint32_t status;
        {
            krvtest::AllocFailure fault(skip, 1);
            status = op();
            failed = fault.Failed();
        }
        seen.insert(g_lines, g_lines + g_count);
        EXPECT_TRUE(failed == 0 ? status == 0 : allowed.count(status) == 1 && intact(status))
            << "allocation " << skip << " gave " << status;
    }
    EXPECT_LT(skip, 500u) << "never ran out of allocations";
    for (const std::string &line : want) {
        EXPECT_EQ(seen.count(line), 1u) << line;
    }
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

TEST(JsonMemory, EveryRefusalIs12AndLeavesTreesAsTheyWere)
{
    ASSERT_EQ(KRV_LogHookReg(Record), 0u);
    // Only a number beyond 15 significant digits is copied for strtod, so the document holds one.
    std::string doc = "{\"n\":1.5,\"l\":1234567890.1234567,\"a\":[true],\"o\":{\"k\":null}";
    for (int i = 0; i < 40; ++i) {
        doc += ",\"k" + std::to_string(i) + "\":\"v\"";  // enough members for the parser's name index
    }
    doc += "}";
    krvtest::TempDir dir;
    const std::string path = dir.Path() + "/doc.json";
    std::ofstream(path) << "{\"a\":[\"b\"]}";
    KrvJson *root = nullptr, *parsed = nullptr;
    ASSERT_EQ(KRV_JsonParseByString(R"({"a":"x","b":["y"],"c":{}})", &root), 0u);
    const std::string after = R"({"a":"x","b":[["p"],["q"]],"c":{},"d":"v2"})";
    char marker = 0, *str = nullptr;
    size_t len = 0;
    const std::tuple<std::function<uint32_t()>, Texts, std::set<uint32_t>> ops[] = {
        // Losing the name index costs nothing: the document still parses.
        {[&] { return KRV_JsonParseByString(doc.c_str(), &parsed); },
         {"12 Krv Json Create malloc failed", "12 Krv Json Number Parse malloc failed",
          "12 parse failed, jsonStr is " + doc}, {12, 0}},
        // The C library's own allocations (path resolution, fopen, stdio buffers) fail in their own ways.
        {[&] { return KRV_JsonParse(path.c_str(), &parsed); },
         {"12 Krv Json File Read malloc failed", "12 Json Parse By String failed, fileBuffer :{\"a\":[\"b\"]}"},
         {0, 1, 12}},
        {[&] {  // every getter copies strings out through one routine
             str = &marker;
             return KRV_JsonArrayStringValueGet(root->child->next->item, 0, &str);
         },
         {"12 Krv Json Cast2String malloc failed"}, {12}},
        {[&] { return KRV_JsonStringValueSet(root, "d", "v2"); },
         {"12 malloc failed, mallocLen 3", "12 Json Item Add To Object failed"}, {12}},
        {[&] { return KRV_JsonArrayValueSet(root, "b", R"([["p"],["q"]])"); },
         {"12 Krv Json String Parse malloc failed", "12 krv json object set failed, key is b"}, {12}},
        {[&] { return KRV_JsonSerializesToString(root, &str, &len); },
         {"12 malloc failed, mallocLen " + std::to_string(after.size() + 1)}, {12}},
    };
    for (const auto &[op, texts, allowed] : ops) {
        const std::string before = Text(root);
        // A refused parse leaves no tree behind, unless it reports success.
        auto intact = [&](uint32_t status) {
            const bool ok = str == nullptr && Text(root) == before && (status == 0) == (parsed != nullptr);
            KRV_JsonDelete(parsed);
            parsed = nullptr;
            return ok;
        };
        FailEach(op, intact, texts, allowed);
        KRV_JsonStringValueFree(str);
        KRV_JsonDelete(parsed);
        str = nullptr;
        parsed = nullptr;
    }
    EXPECT_EQ(Text(root), after);
    KRV_JsonDelete(root);
    KRV_LogHookUnReg();
}

}  // namespace
