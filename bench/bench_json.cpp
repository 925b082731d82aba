// JSON: parse throughput on documents inside our dialect (no escapes, unsigned numbers without
// exponent, arrays of one element type, names of at most 31 bytes, shallow nesting), and
// serialisation throughput on string-only trees, beside cJSON, RapidJSON, nlohmann-json and jansson.
//
// Each parse iteration builds the whole tree and frees it again, for every library; RapidJSON
// parses into a fresh Document with its default allocator. Throughput is input bytes per second.
// Before a case is timed, its library's tree is written in one canonical form (members sorted by
// name, numbers as doubles in %.17g) and compared with cJSON's: a case whose tree differs is
// reported as an error instead of a figure.
//
// Our serialiser tests each node's type in a fixed order (object, array, string) and every failed
// test leaves a level-2 diagnostic, so each string member costs four diagnostics over the two
// passes. Without a hook they are printed (here to /dev/null); the "hook" case installs a hook that
// discards them, which leaves only their formatting.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <jansson.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "bench_quiet.h"
#include "krv_json.h"
#include "krv_log.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Documents

// [n, n, ...]: count unsigned numbers, every third one with a two-digit fraction.
std::string NumberArray(uint32_t count)
{
    std::string text = "[";
    for (uint32_t i = 0; i < count; ++i) {
        char number[32];
        uint32_t value = (i * 7919u) % 1000003u;
        if (i % 3 == 0) {
            std::snprintf(number, sizeof(number), "%s%u.%02u", i == 0 ? "" : ",", value, i % 100);
        } else {
            std::snprintf(number, sizeof(number), "%s%u", i == 0 ? "" : ",", value);
        }
        text += number;
    }
    return text + "]";
}

// A small hand-written service configuration: 1 KB, 60 values.
std::string SmallConfig()
{
    return "{\n"
           "  \"service\": {\"name\": \"gateway\", \"version\": \"2.22.0\", \"workers\": 8, \"debug\": false},\n"
           "  \"listen\": {\"host\": \"0.0.0.0\", \"port\": 8443, \"backlog\": 512, \"tls\": true},\n"
           "  \"limits\": {\"memory\": 1048576, \"queue\": 4096, \"timeout\": 2.5, \"retries\": 3},\n"
           "  \"peers\": [\"10.0.0.1\", \"10.0.0.2\", \"10.0.0.3\", \"10.0.0.4\"],\n"
           "  \"ports\": [8000, 8001, 8002, 8003],\n"
           "  \"log\": {\n"
           "    \"level\": \"info\", \"dir\": \"/var/log/gateway\", \"keep\": 3, \"size\": 10485760,\n"
           "    \"modules\": {\"core\": \"debug\", \"net\": \"warn\", \"db\": null}\n"
           "  },\n"
           "  \"cache\": {\"enabled\": true, \"entries\": 65536, \"ttl\": 300.5, \"path\": \"/var/cache/gw\"},\n"
           "  \"routes\": [\n"
           "    {\"prefix\": \"/api\", \"backend\": \"api-pool\", \"weight\": 10},\n"
           "    {\"prefix\": \"/static\", \"backend\": \"files\", \"weight\": 1},\n"
           "    {\"prefix\": \"/admin\", \"backend\": \"admin\", \"weight\": 2}\n"
           "  ],\n"
           "  \"health\": {\"path\": \"/healthz\", \"interval\": 10, \"timeout\": 1.5},\n"
           "  \"features\": [\"gzip\", \"http2\", \"metrics\", \"tracing\"]\n"
           "}\n";
}

// An indented configuration file: 40 module sections nested up to 5 levels (12 KB).
std::string ConfigObject()
{
    std::string text = "{\n  \"service\": {\"name\": \"gateway\", \"version\": \"2.22.0\", \"workers\": 8},\n";
    text += "  \"modules\": {\n";
    for (uint32_t m = 0; m < 40; ++m) {
        char module[1024];
        std::snprintf(module, sizeof(module),
                      "    \"module%02u\": {\n"
                      "      \"enabled\": %s,\n"
                      "      \"path\": \"/opt/gateway/lib/module%02u.so\",\n"
                      "      \"limits\": {\"memory\": %u, \"queue\": %u, \"timeout\": 2.5},\n"
                      "      \"peers\": [\"10.0.%u.1\", \"10.0.%u.2\", \"10.0.%u.3\"],\n"
                      "      \"ports\": [%u, %u, %u],\n"
                      "      \"log\": {\"level\": \"info\", \"file\": {\"dir\": \"/var/log/gw\", \"keep\": 3}}\n"
                      "    }%s\n",
                      m, m % 3 == 0 ? "false" : "true", m, 1024 * (m + 1), 64 + m, m, m, m, 8000 + m, 9000 + m,
                      10000 + m, m + 1 < 40 ? "," : "");
        text += module;
    }
    return text + "  }\n}\n";
}

// Array-heavy: 20,000 rows of nine values, four rows of numbers to one of short strings
// (1.25 MB, 200,001 values).
std::string ArrayRows()
{
    std::string text = "[";
    for (uint32_t r = 0; r < 20000; ++r) {
        text += r == 0 ? "[" : ",\n[";
        for (uint32_t c = 0; c < 9; ++c) {
            char cell[32];
            uint32_t value = (r * 131u + c * 7919u) % 100003u;
            if (r % 5 == 4) {
                std::snprintf(cell, sizeof(cell), "%s\"c%u\"", c == 0 ? "" : ",", value % 10000);
            } else if (c % 3 == 0) {
                std::snprintf(cell, sizeof(cell), "%s%u.%u", c == 0 ? "" : ",", value, r % 10);
            } else {
                std::snprintf(cell, sizeof(cell), "%s%u", c == 0 ? "" : ",", value);
            }
            text += cell;
        }
        text += "]";
    }
    return text + "]";
}

// Object-heavy: 9,000 records of ten members, strings, numbers, booleans and null (1.07 MB,
// 99,001 values).
std::string ObjectRecords()
{
    static const char *const kGroups[] = {"ops", "dev", "qa", "sales", "hr"};
    std::string text = "[";
    for (uint32_t i = 0; i < 9000; ++i) {
        char record[320];
        std::snprintf(record, sizeof(record),
                      "%s{\"id\":%u,\"name\":\"u%u\",\"grp\":\"%s\",\"pts\":%u.%u,\"lvl\":%u,\"on\":%s,"
                      "\"boss\":%s,\"room\":\"r%u\",\"year\":%u,\"cap\":%u}",
                      i == 0 ? "" : ",\n", i, i, kGroups[i % 5], (i * 37u) % 1000u, i % 10, i % 9,
                      i % 2 == 0 ? "true" : "false", i % 4 == 0 ? "null" : "false", (i * 13u) % 500u,
                      2000u + i % 24, 16u * (i % 64));
        text += record;
    }
    return text + "]";
}

// [{...}, ...]: 10,000 small records, mostly strings, with a number and a boolean each (1.2 MB).
std::string RecordArray()
{
    static const char *const kCities[] = {"Lisbon", "Oslo", "Nairobi", "Osaka", "Lima", "Perth"};
    std::string text = "[";
    for (uint32_t i = 0; i < 10000; ++i) {
        char record[320];
        std::snprintf(record, sizeof(record),
                      "%s{\"id\":\"u%06u\",\"name\":\"user number %u\",\"email\":\"user%u@example.org\","
                      "\"role\":\"%s\",\"city\":\"%s\",\"age\":%u,\"active\":%s}",
                      i == 0 ? "" : ",", i, i, i, i % 7 == 0 ? "admin" : "member", kCities[i % 6], 18 + i % 60,
                      i % 2 == 0 ? "true" : "false");
        text += record;
    }
    return text + "]";
}

enum Doc { kConfig1k, kArrays, kObjects, kNumbers10k, kNumbers100k, kNumbers1m, kRecords, kConfig12k, kDocCount };

const std::string &Document(int which)
{
    static const std::string kDocs[kDocCount] = {SmallConfig(),       ArrayRows(),        ObjectRecords(),
                                                 NumberArray(10000),  NumberArray(100000), NumberArray(1000000),
                                                 RecordArray(),       ConfigObject()};
    return kDocs[which];
}

// ---------------------------------------------------------------------------------------------
// One canonical text per tree, whatever the library: members sorted by name, numbers as doubles.

std::string CanonNumber(double value)
{
    char text[40];
    std::snprintf(text, sizeof(text), "%.17g", value);
    return text;
}

std::string CanonString(const char *text)
{
    return std::string("\"") + text + "\"";
}

std::string CanonObject(std::vector<std::pair<std::string, std::string>> members)
{
    std::sort(members.begin(), members.end());
    std::string text = "{";
    for (const auto &[name, value] : members) {
        text += (text.size() > 1 ? "," : "") + CanonString(name.c_str()) + ":" + value;
    }
    return text + "}";
}

std::string CanonArray(const std::vector<std::string> &elements)
{
    std::string text = "[";
    for (const std::string &element : elements) {
        text += (text.size() > 1 ? "," : "") + element;
    }
    return text + "]";
}

std::string Canon(const KrvJson *node)
{
    std::vector<std::pair<std::string, std::string>> members;
    std::vector<std::string> elements;
    switch (node->valueType) {
        case KRV_JSON_NULL:
            return "null";
        case KRV_JSON_TRUE:
            return "true";
        case KRV_JSON_FALSE:
            return "false";
        case KRV_JSON_NUMBER:
            return CanonNumber(node->numberValue);
        case KRV_JSON_STRING:
            return CanonString(node->stringValue);
        case KRV_JSON_ARRAY:
            for (const KrvJsonChild *link = node->child; link != nullptr; link = link->next) {
                elements.push_back(Canon(link->item));
            }
            return CanonArray(elements);
        default:
            for (const KrvJsonChild *link = node->child; link != nullptr; link = link->next) {
                members.emplace_back(link->item->key, Canon(link->item));
            }
            return CanonObject(members);
    }
}

std::string Canon(const cJSON *node)
{
    std::vector<std::pair<std::string, std::string>> members;
    std::vector<std::string> elements;
    if (cJSON_IsNull(node)) {
        return "null";
    }
    if (cJSON_IsBool(node)) {
        return cJSON_IsTrue(node) ? "true" : "false";
    }
    if (cJSON_IsNumber(node)) {
        return CanonNumber(node->valuedouble);
    }
    if (cJSON_IsString(node)) {
        return CanonString(node->valuestring);
    }
    for (const cJSON *child = node->child; child != nullptr; child = child->next) {
        if (cJSON_IsArray(node)) {
            elements.push_back(Canon(child));
        } else {
            members.emplace_back(child->string, Canon(child));
        }
    }
    return cJSON_IsArray(node) ? CanonArray(elements) : CanonObject(members);
}

std::string Canon(const rapidjson::Value &node)
{
    std::vector<std::pair<std::string, std::string>> members;
    std::vector<std::string> elements;
    switch (node.GetType()) {
        case rapidjson::kNullType:
            return "null";
        case rapidjson::kTrueType:
            return "true";
        case rapidjson::kFalseType:
            return "false";
        case rapidjson::kNumberType:
            return CanonNumber(node.GetDouble());
        case rapidjson::kStringType:
            return CanonString(node.GetString());
        case rapidjson::kArrayType:
            for (const auto &element : node.GetArray()) {
                elements.push_back(Canon(element));
            }
            return CanonArray(elements);
        default:
            for (const auto &member : node.GetObject()) {
                members.emplace_back(member.name.GetString(), Canon(member.value));
            }
            return CanonObject(members);
    }
}

std::string Canon(const nlohmann::json &node)
{
    std::vector<std::pair<std::string, std::string>> members;
    std::vector<std::string> elements;
    if (node.is_null()) {
        return "null";
    }
    if (node.is_boolean()) {
        return node.get<bool>() ? "true" : "false";
    }
    if (node.is_number()) {
        return CanonNumber(node.get<double>());
    }
    if (node.is_string()) {
        return CanonString(node.get_ref<const std::string &>().c_str());
    }
    if (node.is_array()) {
        for (const auto &element : node) {
            elements.push_back(Canon(element));
        }
        return CanonArray(elements);
    }
    for (const auto &member : node.items()) {
        members.emplace_back(member.key(), Canon(member.value()));
    }
    return CanonObject(members);
}

std::string Canon(json_t *node)
{
    std::vector<std::pair<std::string, std::string>> members;
    std::vector<std::string> elements;
    switch (json_typeof(node)) {
        case JSON_NULL:
            return "null";
        case JSON_TRUE:
            return "true";
        case JSON_FALSE:
            return "false";
        case JSON_INTEGER:
        case JSON_REAL:
            return CanonNumber(json_number_value(node));
        case JSON_STRING:
            return CanonString(json_string_value(node));
        case JSON_ARRAY:
            for (size_t i = 0; i < json_array_size(node); ++i) {
                elements.push_back(Canon(json_array_get(node, i)));
            }
            return CanonArray(elements);
        default: {
            const char *name;
            json_t *value;
            json_object_foreach(node, name, value) {
                members.emplace_back(name, Canon(value));
            }
            return CanonObject(members);
        }
    }
}

// Values in a tree, containers included.
uint32_t ValueCount(const cJSON *node)
{
    uint32_t count = 1;
    for (const cJSON *child = node->child; child != nullptr; child = child->next) {
        count += ValueCount(child);
    }
    return count;
}

// The reference every library is checked against: cJSON's tree of the document.
const std::string &Reference(int which)
{
    static std::map<int, std::string> canon;
    auto found = canon.find(which);
    if (found == canon.end()) {
        cJSON *root = cJSON_Parse(Document(which).c_str());
        found = canon.emplace(which, root != nullptr ? Canon(root) : "refused by cJSON").first;
        cJSON_Delete(root);
    }
    return found->second;
}

// ---------------------------------------------------------------------------------------------
// Parse and free

// Checks the library's tree once (canon returns its canonical text, or "" for a refusal), then runs
// parseAndFree(text) once per iteration; it returns false when its library refuses the text.
template <typename CanonOf, typename ParseAndFree>
void ParseLoop(benchmark::State &state, int which, CanonOf canon, ParseAndFree parseAndFree)
{
    const std::string &text = Document(which);
    if (canon(text.c_str()) != Reference(which)) {
        state.SkipWithError("the tree differs from cJSON's");
        return;
    }
    uint32_t failures = 0;
    for (auto _ : state) {
        failures += parseAndFree(text.c_str()) ? 0 : 1;
    }
    if (failures != 0) {
        state.SkipWithError("the library refused the document");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    cJSON *root = cJSON_Parse(text.c_str());
    state.counters["values"] = ValueCount(root);
    cJSON_Delete(root);
}

void BM_KrvParse(benchmark::State &state, int which)
{
    auto canon = [](const char *text) {
        KrvJson *root = nullptr;
        std::string out = KRV_JsonParseByString(text, &root) == 0 ? Canon(root) : "";
        KRV_JsonDelete(root);
        return out;
    };
    auto parse = [](const char *text) {
        KrvJson *root = nullptr;
        bool accepted = KRV_JsonParseByString(text, &root) == 0;
        KRV_JsonDelete(root);
        return accepted;
    };
    ParseLoop(state, which, canon, parse);
}

void BM_CjsonParse(benchmark::State &state, int which)
{
    auto canon = [](const char *text) {
        cJSON *root = cJSON_Parse(text);
        std::string out = root != nullptr ? Canon(root) : "";
        cJSON_Delete(root);
        return out;
    };
    auto parse = [](const char *text) {
        cJSON *root = cJSON_Parse(text);
        bool accepted = root != nullptr;
        cJSON_Delete(root);
        return accepted;
    };
    ParseLoop(state, which, canon, parse);
}

void BM_RapidjsonParse(benchmark::State &state, int which)
{
    auto canon = [](const char *text) {
        rapidjson::Document doc;
        return doc.Parse(text).HasParseError() ? "" : Canon(doc);
    };
    auto parse = [](const char *text) {
        rapidjson::Document doc;
        bool accepted = !doc.Parse(text).HasParseError();
        benchmark::DoNotOptimize(doc);
        return accepted;
    };
    ParseLoop(state, which, canon, parse);
}

void BM_NlohmannParse(benchmark::State &state, int which)
{
    auto canon = [](const char *text) {
        nlohmann::json doc = nlohmann::json::parse(text, nullptr, false);
        return doc.is_discarded() ? "" : Canon(doc);
    };
    auto parse = [](const char *text) {
        nlohmann::json doc = nlohmann::json::parse(text, nullptr, false);
        benchmark::DoNotOptimize(doc);
        return !doc.is_discarded();
    };
    ParseLoop(state, which, canon, parse);
}

void BM_JanssonParse(benchmark::State &state, int which)
{
    auto canon = [](const char *text) {
        json_error_t error;
        json_t *root = json_loads(text, 0, &error);
        std::string out = root != nullptr ? Canon(root) : "";
        json_decref(root);
        return out;
    };
    auto parse = [](const char *text) {
        json_error_t error;
        json_t *root = json_loads(text, 0, &error);
        bool accepted = root != nullptr;
        json_decref(root);
        return accepted;
    };
    ParseLoop(state, which, canon, parse);
}

#define KRV_PARSE_CASES(name, doc)                                                                    \
    BENCHMARK_CAPTURE(BM_KrvParse, name, doc)->Unit(benchmark::kMicrosecond);                         \
    BENCHMARK_CAPTURE(BM_CjsonParse, name, doc)->Unit(benchmark::kMicrosecond);                       \
    BENCHMARK_CAPTURE(BM_RapidjsonParse, name, doc)->Unit(benchmark::kMicrosecond);                   \
    BENCHMARK_CAPTURE(BM_NlohmannParse, name, doc)->Unit(benchmark::kMicrosecond);                    \
    BENCHMARK_CAPTURE(BM_JanssonParse, name, doc)->Unit(benchmark::kMicrosecond)

KRV_PARSE_CASES(config1k, kConfig1k);
KRV_PARSE_CASES(arrays, kArrays);
KRV_PARSE_CASES(objects, kObjects);
KRV_PARSE_CASES(numbers10k, kNumbers10k);
KRV_PARSE_CASES(numbers100k, kNumbers100k);
KRV_PARSE_CASES(numbers1m, kNumbers1m);
KRV_PARSE_CASES(records, kRecords);
KRV_PARSE_CASES(config12k, kConfig12k);

// ---------------------------------------------------------------------------------------------
// Serialisation: each library writes its own tree of StringTree() to compact text; the output
// must equal the input, which is compact already.

// String-only tree: 40 sections of 40 string members (the serialiser writes at most 50 children
// per container), 60 KB.
std::string StringTree()
{
    std::string text = "{";
    for (uint32_t s = 0; s < 40; ++s) {
        char section[32];
        std::snprintf(section, sizeof(section), "%s\"section%02u\":{", s == 0 ? "" : ",", s);
        text += section;
        for (uint32_t k = 0; k < 40; ++k) {
            char member[96];
            std::snprintf(member, sizeof(member), "%s\"key%02u\":\"value of section %02u key %02u\"",
                          k == 0 ? "" : ",", k, s, k);
            text += member;
        }
        text += "}";
    }
    return text + "}";
}

void DiscardDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

void BM_KrvSerialize(benchmark::State &state, bool withHook)
{
    krvbench::QuietStdout quiet;
    const std::string text = StringTree();
    KrvJson *root = nullptr;
    if (KRV_JsonParseByString(text.c_str(), &root) != 0) {
        state.SkipWithError("KRV_JsonParseByString refused the tree");
        return;
    }
    if (withHook && KRV_LogHookReg(DiscardDiagnostic) != 0) {
        KRV_JsonDelete(root);
        state.SkipWithError("KRV_LogHookReg failed");
        return;
    }
    char *out = nullptr;
    size_t len = 0;
    if (KRV_JsonSerializesToString(root, &out, &len) != 0 || out == nullptr || text != out) {
        state.SkipWithError("the output differs from the input");
    }
    KRV_JsonStringValueFree(out);
    uint32_t failures = 0;
    for (auto _ : state) {
        out = nullptr;
        failures += KRV_JsonSerializesToString(root, &out, &len) != 0 || len != text.size();
        KRV_JsonStringValueFree(out);
    }
    if (failures != 0) {
        state.SkipWithError("the serialiser failed");
    }
    KRV_JsonDelete(root);
    if (withHook) {
        KRV_LogHookUnReg();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_CjsonSerialize(benchmark::State &state)
{
    const std::string text = StringTree();
    cJSON *root = cJSON_Parse(text.c_str());
    if (root == nullptr) {
        state.SkipWithError("cJSON_Parse refused the tree");
        return;
    }
    bool same = true;
    for (auto _ : state) {
        char *out = cJSON_PrintUnformatted(root);
        same = same && out != nullptr && text == out;
        cJSON_free(out);
    }
    if (!same) {
        state.SkipWithError("the output differs from the input");
    }
    cJSON_Delete(root);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_RapidjsonSerialize(benchmark::State &state)
{
    const std::string text = StringTree();
    rapidjson::Document doc;
    if (doc.Parse(text.c_str()).HasParseError()) {
        state.SkipWithError("RapidJSON refused the tree");
        return;
    }
    bool same = true;
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        doc.Accept(writer);
        same = same && buffer.GetSize() == text.size();
    }
    if (!same) {
        state.SkipWithError("the output differs from the input");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// One of the serialiser's diagnostics handed to a discarding hook: 6,400 of these (four for each
// of the tree's 1,600 strings) are part of every BM_KrvSerialize iteration.
void BM_KrvSerializeDiagnostic(benchmark::State &state)
{
    if (KRV_LogHookReg(DiscardDiagnostic) != 0) {
        state.SkipWithError("KRV_LogHookReg failed");
        return;
    }
    for (auto _ : state) {
        KRV_LogWrite(1, 2, "krv_json", 82, "valueType match failed, valueType :%u", 6u);
    }
    KRV_LogHookUnReg();
}

BENCHMARK_CAPTURE(BM_KrvSerialize, printed, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_KrvSerialize, hook, true)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CjsonSerialize)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RapidjsonSerialize)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_KrvSerializeDiagnostic);

}  // namespace

BENCHMARK_MAIN();
