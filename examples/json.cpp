// JSON: read a document, look values up, change it, and write it back as compact text.
//
// The library reads a restricted dialect (no escapes, unsigned numbers, one type per array, member
// names up to 31 bytes, 20 levels) and writes only objects, arrays and strings. Every failed type
// test is reported as a diagnostic, so this program installs a hook that counts diagnostics instead
// of letting them reach standard output.
#include <cstdio>
#include <cstring>

#include "krv.h"

namespace {

unsigned g_diagnostics;

void CountDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *)
{
    ++g_diagnostics;
}

int Fail(const char *what)
{
    std::printf("FAILED: %s\n", what);
    return 1;
}

}  // namespace

int main()
{
    if (KRV_LogHookReg(CountDiagnostic) != KRV_OK) {
        return Fail("hook");
    }
    const char *text = "{ \"service\": \"gateway\", \"port\": 8080, \"secure\": true,\n"
                       "  \"peers\": [\"alpha\", \"beta\"], \"limits\": { \"rate\": 2.5 } }";
    KrvJson *root = nullptr;
    if (KRV_JsonParseByString(text, &root) != KRV_OK) {
        return Fail("parse");
    }

    // Typed getters look up a direct member. Numbers come back as doubles; strings as fresh copies
    // the caller frees with KRV_JsonStringValueFree; arrays and objects as nodes borrowed from the tree.
    double port = 0;
    uint8_t secure = 0;
    char *service = nullptr;
    KrvJson *peers = nullptr;
    uint32_t peerCount = 0;
    if (KRV_JsonNumberValueGet(root, "port", &port) != KRV_OK || KRV_JsonBoolValueGet(root, "secure", &secure) != KRV_OK ||
        KRV_JsonStringValueGet(root, "service", &service) != KRV_OK || KRV_JsonArrayGet(root, "peers", &peers) != KRV_OK ||
        KRV_JsonArraySizeGet(peers, &peerCount) != KRV_OK) {
        return Fail("getters");
    }
    std::printf("service %s, port %.0f, secure %u, %u peers:", service, port, secure, peerCount);
    KRV_JsonStringValueFree(service);
    for (uint32_t i = 0; i < peerCount; ++i) {
        char *peer = nullptr;
        if (KRV_JsonArrayStringValueGet(peers, i, &peer) != KRV_OK) {
            return Fail("array element");
        }
        std::printf(" %s", peer);
        KRV_JsonStringValueFree(peer);
    }
    // Nested objects are reached one level at a time; there is no path syntax.
    KrvJson *limits = nullptr;
    double rate = 0;
    if (KRV_JsonItemGet(root, "limits", &limits) != KRV_OK || KRV_JsonNumberValueGet(limits, "rate", &rate) != KRV_OK) {
        return Fail("nested lookup");
    }
    std::printf("; rate %.1f\n", rate);

    // A missing key and a wrong type both give status 1; only the diagnostic tells them apart.
    unsigned before = g_diagnostics;
    double none = 0;
    if (KRV_JsonNumberValueGet(root, "timeout", &none) != KRV_ERR_FAILED || g_diagnostics == before) {
        return Fail("missing key");
    }

    // The serialiser refuses numbers, booleans and null: this tree cannot be written as it is.
    char *out = nullptr;
    size_t len = 0;
    if (KRV_JsonSerializesToString(root, &out, &len) != KRV_ERR_FAILED) {
        return Fail("serialising numbers");
    }
    KRV_JsonDelete(root);

    // A tree of strings, arrays and objects round-trips. Setters take text: a string value is copied,
    // an array is parsed from its JSON text and replaces a member of the same name in place.
    if (KRV_JsonParseByString("{\"name\":\"gateway\",\"peers\":[]}", &root) != KRV_OK ||
        KRV_JsonStringValueSet(root, "name", "gateway-2") != KRV_OK ||
        KRV_JsonStringValueSet(root, "zone", "eu-west") != KRV_OK ||
        KRV_JsonArrayValueSet(root, "peers", "[\"alpha\",\"gamma\"]") != KRV_OK) {
        return Fail("setters");
    }
    before = g_diagnostics;
    if (KRV_JsonSerializesToString(root, &out, &len) != KRV_OK) {
        return Fail("serialise");
    }
    // Even a successful serialisation reports its type tests: two lines per string node, per pass.
    std::printf("%s (%zu bytes; %u type-test diagnostics while writing)\n", out, len, g_diagnostics - before);
    bool expected = std::strcmp(out, "{\"name\":\"gateway-2\",\"peers\":[\"alpha\",\"gamma\"],\"zone\":\"eu-west\"}") == 0;
    KRV_JsonStringValueFree(out);
    KRV_JsonDelete(root);

    // Text outside the dialect is refused with status 1 and a diagnostic naming the problem.
    const char *const refused[] = {"{\"a\":-1}", "[1,\"x\"]", "{\"a\":\"x\\\"y\"}", "{\"a\":1}}"};
    for (const char *bad : refused) {
        KrvJson *tree = nullptr;
        if (KRV_JsonParseByString(bad, &tree) != KRV_ERR_FAILED || tree != nullptr) {
            return Fail(bad);
        }
    }
    KRV_LogHookUnReg();
    return expected ? 0 : Fail("round trip");
}
