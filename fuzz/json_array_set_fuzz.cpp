// Fuzz target: put an array parsed from arbitrary text under a member of a small object. The setter
// must accept exactly the texts that hold one array (checked by parsing the text one level down, as
// the only element of an outer array, which puts it at the setter's nesting level), replace a
// same-named member in its place or append, and leave the object as it was on a refusal.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "krv_json.h"
#include "krv_log.h"
#include "support/krv_json_dump.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

void Check(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

const char *const kKeys[] = {"s", "a", "n", "o", "new", "", "0123456789012345678901234567890",
                             "01234567890123456789012345678901"};

// The dumps of the members of object in order; with a key, the first member of that name (else a new
// last member) shows as replacement.
std::string Members(const KrvJson *object, const std::string *key = nullptr, const std::string &replacement = "")
{
    std::string out;
    bool replaced = key == nullptr;
    for (const KrvJsonChild *link = object->child; link != nullptr; link = link->next) {
        const bool match = !replaced && *key == link->item->key;
        out += match ? replacement : krvtest::JsonDump(link->item);
        replaced = replaced || match;
    }
    return replaced ? out : out + replacement;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    if (size == 0) {
        return 0;
    }
    const std::string key = kKeys[data[0] % (sizeof kKeys / sizeof kKeys[0])];
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string arrayText = text.c_str();  // a NUL inside ends the text

    KrvJson *wrapped = nullptr;
    std::string expected;
    if (KRV_JsonParseByString(("[" + arrayText + "]").c_str(), &wrapped) == 0 && wrapped->arrLen == 1 &&
        wrapped->arrType == KRV_JSON_ARRAY && key.size() < KRV_JSON_KEY_LEN) {
        std::string element = krvtest::JsonDump(wrapped->child->item);
        expected = element.substr(0, 1) + key + element.substr(1);  // the member takes the key
    }
    KRV_JsonDelete(wrapped);

    KrvJson *root = nullptr;
    Check(KRV_JsonParseByString(R"({"s":"x","a":[1,2],"n":3,"o":{"a":[]}})", &root) == 0);
    const std::string before = krvtest::JsonDump(root);
    const uint32_t rc = KRV_JsonArrayValueSet(root, key.c_str(), arrayText.c_str());
    Check((rc == 0) == !expected.empty());
    if (rc == 0) {
        KrvJson *root2 = nullptr;
        Check(KRV_JsonParseByString(R"({"s":"x","a":[1,2],"n":3,"o":{"a":[]}})", &root2) == 0);
        Check(Members(root) == Members(root2, &key, expected));
        KRV_JsonDelete(root2);
    } else {
        Check(krvtest::JsonDump(root) == before);
    }
    KRV_JsonDelete(root);
    return 0;
}
