// Fuzz target: parse arbitrary text and, when it is accepted, read every node back through the typed
// getters, serialise, set a string member and delete. Each getter must agree with the node it reads:
// its status, the value or copy it hands out, and the borrowed node it points to.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "krv_json.h"
#include "krv_log.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

void Check(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

// The copy a string getter handed out must equal the node's text; it is released here.
void CheckCopy(uint32_t rc, char *copy, const KrvJson *node)
{
    Check(rc == 0 && copy != nullptr && std::strcmp(copy, node->stringValue) == 0);
    KRV_JsonStringValueFree(copy);
}

// A member of an object: the lookup finds exactly it, and each getter succeeds only for its type.
void CheckMember(KrvJson *object, KrvJson *member)
{
    const char *key = member->key;
    const uint32_t type = member->valueType;
    KrvJson *found = nullptr;
    Check(KRV_JsonItemGet(object, key, &found) == 0 && found == member && KRV_JsonIsKeyExist(object, key));

    uint8_t flag = 7;
    const uint32_t boolRc = KRV_JsonBoolValueGet(object, key, &flag);
    Check(type == KRV_JSON_TRUE || type == KRV_JSON_FALSE ? boolRc == 0 && flag == (type == KRV_JSON_TRUE)
                                                          : boolRc == 1 && flag == 7);
    double number = -1.5;
    const uint32_t numberRc = KRV_JsonNumberValueGet(object, key, &number);
    Check(type == KRV_JSON_NUMBER ? numberRc == 0 && std::memcmp(&number, &member->numberValue, sizeof number) == 0
                                  : numberRc == 1 && number == -1.5);
    char *copy = nullptr;
    size_t size = 0;
    const uint32_t stringRc = KRV_JsonStringValueAndSizeGet(object, key, &copy, &size);
    if (type == KRV_JSON_STRING) {
        Check(size == std::strlen(member->stringValue));
        CheckCopy(stringRc, copy, member);
    } else {
        Check(stringRc == 1 && copy == nullptr);
    }
    KrvJson *array = nullptr;
    const uint32_t arrayRc = KRV_JsonArrayGet(object, key, &array);
    Check(type == KRV_JSON_ARRAY ? arrayRc == 0 && array == member : arrayRc == 1 && array == nullptr);
}

// Array access by index: every element in list order, the element type shared, the bounds kept.
void CheckElements(KrvJson *array)
{
    uint32_t size = 0;
    Check(KRV_JsonArraySizeGet(array, &size) == 0 && size == array->arrLen);
    uint32_t index = 0;
    for (KrvJsonChild *link = array->child; link != nullptr; link = link->next, ++index) {
        KrvJson *item = nullptr;
        Check(KRV_JsonArrayItemGet(array, index, &item) == 0 && item == link->item);
        Check(item->valueType == array->arrType && item->key[0] == '\0');
        char *copy = nullptr;
        const uint32_t stringRc = KRV_JsonArrayStringValueGet(array, index, &copy);
        if (array->arrType == KRV_JSON_STRING) {
            CheckCopy(stringRc, copy, item);
        } else {
            Check(stringRc == 22);
        }
        double number = 0;
        const uint32_t numberRc = KRV_JsonArrayNumberValueGet(array, index, &number);
        Check(array->arrType == KRV_JSON_NUMBER ? numberRc == 0 && number == item->numberValue : numberRc == 22);
    }
    Check(index == size && (size != 0 || array->arrType == KRV_JSON_TYPE_NONE));
    KrvJson *item = nullptr;
    Check(KRV_JsonArrayItemGet(array, size, &item) == 1 && item == nullptr);
}

// Checks node and everything below it; returns whether the serialiser can write it.
bool Visit(KrvJson *node)
{
    const uint32_t t = node->valueType;
    Check(t <= KRV_JSON_OBJECT);
    Check(KRV_JsonIsNull(node) == (t == KRV_JSON_NULL) && KRV_JsonIsTrue(node) == (t == KRV_JSON_TRUE) &&
          KRV_JsonIsFalse(node) == (t == KRV_JSON_FALSE) &&
          KRV_JsonIsBool(node) == (t == KRV_JSON_TRUE || t == KRV_JSON_FALSE) &&
          KRV_JsonIsNumber(node) == (t == KRV_JSON_NUMBER) && KRV_JsonIsString(node) == (t == KRV_JSON_STRING) &&
          KRV_JsonIsArray(node) == (t == KRV_JSON_ARRAY) && KRV_JsonIsObject(node) == (t == KRV_JSON_OBJECT));
    if (t == KRV_JSON_STRING) {
        return true;
    }
    if (t != KRV_JSON_ARRAY && t != KRV_JSON_OBJECT) {
        return false;
    }
    if (t == KRV_JSON_ARRAY) {
        CheckElements(node);
    }
    bool writable = true;
    unsigned children = 0;
    for (KrvJsonChild *link = node->child; link != nullptr; link = link->next, ++children) {
        if (t == KRV_JSON_OBJECT) {
            CheckMember(node, link->item);
        }
        writable = Visit(link->item) && writable;
    }
    return writable && children <= 50;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    std::string text(reinterpret_cast<const char *>(data), size);  // a NUL inside ends the document
    KrvJson *root = nullptr;
    if (KRV_JsonParseByString(text.c_str(), &root) != 0) {
        Check(root == nullptr);
        return 0;
    }
    const bool writable = Visit(root);
    char *out = nullptr;
    size_t len = 0;
    const uint32_t rc = KRV_JsonSerializesToString(root, &out, &len);
    Check(writable ? rc == 0 && std::strlen(out) == len : rc == 1 && out == nullptr);
    KRV_JsonStringValueFree(out);

    // A string set on an object replaces a string member in place, refuses any other member, or appends.
    if (root->valueType == KRV_JSON_OBJECT) {
        const std::string key = root->child != nullptr && size % 2 == 0 ? root->child->item->key : "fz";
        KrvJson *before = nullptr;
        const bool present = KRV_JsonItemGet(root, key.c_str(), &before) == 0;
        const uint32_t setRc = KRV_JsonStringValueSet(root, key.c_str(), "set");
        Check(setRc == (present && before->valueType != KRV_JSON_STRING ? 1u : 0u));
        KrvJson *after = nullptr;
        Check(KRV_JsonItemGet(root, key.c_str(), &after) == 0 && (!present || after == before));
        Check(setRc != 0 || std::strcmp(after->stringValue, "set") == 0);
    }
    KRV_JsonDelete(root);
    return 0;
}
