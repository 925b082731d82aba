// Fuzz target: parse arbitrary bytes, serialise what was accepted, and free everything.
//
// Beyond "no crash, no leak" it checks that output text, once it parses again, serialises to
// itself: the compact form is a fixed point of parse and serialise. A document that is a single
// number must hold exactly the double strtod makes of its digits, since the parser converts most
// numbers without it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "krv_json.h"
#include "krv_log.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

// A number root: its digits (after leading blanks, up to the first byte that is neither a digit
// nor the first dot) converted by strtod, bit for bit.
void NumberCheck(const char *text, const KrvJson *root)
{
    if (root->valueType != KRV_JSON_NUMBER) {
        return;
    }
    while (static_cast<unsigned char>(*text) <= 0x20) {
        ++text;
    }
    size_t length = 0;
    for (bool dot = false;; ++length) {
        if (text[length] == '.' && !dot) {
            dot = true;
        } else if (text[length] < '0' || text[length] > '9') {
            break;
        }
    }
    const double expected = std::strtod(std::string(text, length).c_str(), nullptr);
    if (std::memcmp(&expected, &root->numberValue, sizeof(expected)) != 0) {
        std::abort();
    }
}

// Returns the compact text of the document text, or an empty string when either step refuses.
std::string ParseAndSerialise(const char *text)
{
    KrvJson *root = nullptr;
    if (KRV_JsonParseByString(text, &root) != 0) {
        return {};
    }
    NumberCheck(text, root);
    char *out = nullptr;
    size_t len = 0;
    std::string compact;
    if (KRV_JsonSerializesToString(root, &out, &len) == 0) {
        if (std::strlen(out) != len) {
            std::abort();
        }
        compact.assign(out, len);
        KRV_JsonStringValueFree(out);
    }
    KRV_JsonDelete(root);
    return compact;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    std::string text(reinterpret_cast<const char *>(data), size);  // a NUL inside ends the document
    std::string compact = ParseAndSerialise(text.c_str());
    if (!compact.empty()) {
        std::string again = ParseAndSerialise(compact.c_str());
        if (!again.empty() && again != compact) {
            std::abort();
        }
    }
    return 0;
}
