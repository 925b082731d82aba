// JSON: parse throughput on documents inside our dialect (no escapes, unsigned numbers without
// exponent, arrays of one element type, names of at most 31 bytes, shallow nesting), and
// serialisation throughput on string-only trees, beside cJSON and RapidJSON.
//
// Each parse iteration builds the whole tree and frees it again, for every library; RapidJSON
// parses into a fresh Document with its default allocator. Throughput is input bytes per second.
//
// Our serialiser tests each node's type in a fixed order (object, array, string) and every failed
// test leaves a level-2 diagnostic, so each string member costs four diagnostics over the two
// passes. Without a hook they are printed (here to /dev/null); the "hook" case installs a hook that
// discards them, which leaves only their formatting.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench_quiet.h"
#include "krv_json.h"
#include "krv_log.h"

namespace {

// [n, n, ...]: 100,000 numbers, every third one with a fraction.
std::string NumberArray()
{
    std::string text = "[";
    for (uint32_t i = 0; i < 100000; ++i) {
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

// [{...}, ...]: 10,000 small records, mostly strings, with a number and a boolean each.
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

// A service configuration: sections nested five deep, with string, number, boolean and array
// settings, in the layout of a hand-written file (indented, one member per line).
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

// String-only tree for serialisation: 40 sections of 40 string members (the serialiser writes at
// most 50 children per container).
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

const std::string &ParseInput(int which)
{
    static const std::string kDocs[] = {NumberArray(), RecordArray(), ConfigObject()};
    return kDocs[which];
}

// Runs parseAndFree(text) once per iteration; it returns false when its library refuses the text.
template <typename ParseAndFree>
void ParseLoop(benchmark::State &state, int which, ParseAndFree parseAndFree, const char *refusal)
{
    const std::string &text = ParseInput(which);
    uint32_t failures = 0;
    for (auto _ : state) {
        failures += parseAndFree(text.c_str()) ? 0 : 1;
    }
    if (failures != 0) {
        state.SkipWithError(refusal);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_KrvParse(benchmark::State &state, int which)
{
    auto parse = [](const char *text) {
        KrvJson *root = nullptr;
        bool accepted = KRV_JsonParseByString(text, &root) == 0;
        KRV_JsonDelete(root);
        return accepted;
    };
    ParseLoop(state, which, parse, "KRV_JsonParseByString refused the document");
}

void BM_CjsonParse(benchmark::State &state, int which)
{
    auto parse = [](const char *text) {
        cJSON *root = cJSON_Parse(text);
        bool accepted = root != nullptr;
        cJSON_Delete(root);
        return accepted;
    };
    ParseLoop(state, which, parse, "cJSON_Parse refused the document");
}

void BM_RapidjsonParse(benchmark::State &state, int which)
{
    auto parse = [](const char *text) {
        rapidjson::Document doc;
        bool accepted = !doc.Parse(text).HasParseError();
        benchmark::DoNotOptimize(doc);
        return accepted;
    };
    ParseLoop(state, which, parse, "RapidJSON refused the document");
}

enum { kNumbers, kRecords, kConfig };
BENCHMARK_CAPTURE(BM_KrvParse, numbers, kNumbers)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CjsonParse, numbers, kNumbers)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_RapidjsonParse, numbers, kNumbers)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_KrvParse, records, kRecords)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CjsonParse, records, kRecords)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_RapidjsonParse, records, kRecords)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_KrvParse, config, kConfig)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CjsonParse, config, kConfig)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_RapidjsonParse, config, kConfig)->Unit(benchmark::kMicrosecond);

// Serialisation: each library writes its own tree of StringTree() to compact text; the output
// must equal the input, which is compact already.
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
    uint32_t failures = 0;
    for (auto _ : state) {
        char *out = nullptr;
        size_t len = 0;
        failures += KRV_JsonSerializesToString(root, &out, &len) != 0 || len != text.size();
        KRV_JsonStringValueFree(out);
    }
    char *out = nullptr;
    size_t len = 0;
    if (failures != 0 || KRV_JsonSerializesToString(root, &out, &len) != 0 || out == nullptr || text != out) {
        state.SkipWithError("the output differs from the input");
    }
    KRV_JsonStringValueFree(out);
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
