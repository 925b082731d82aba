// Read access to a parsed tree: type predicates, member lookup, typed getters and array getters.
//
// Nothing here changes a tree. Nodes handed out are borrowed from the tree; strings are handed out
// as fresh copies the caller releases with KRV_JsonStringValueFree.
#include <cassert>
#include <cstring>

#include "json/krv_json_type_test.h"
#include "krv_json.h"
#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
using namespace krv;

// Copies the text of STRING node item into a new block stored in *str at once, so a failed
// allocation leaves *str null. On a failed copy the block is freed and *str nulled again.
uint32_t Cast2String(const KrvJson *item, char **str)
{
    assert(item->valueType == KRV_JSON_STRING && item->stringValue != nullptr);
    size_t capacity = std::strlen(item->stringValue) + 1;
    *str = static_cast<char *>(krv::OsalMemAlloc(capacity));
    if (*str == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "Krv Json Cast2String malloc failed");
        return KRV_ERR_NOMEM;
    }
    int rc = krv::strcpy_s(*str, capacity, item->stringValue);
    if (rc != 0) {
        krv::OsalMemFree(*str);
        *str = nullptr;
        KRV_DIAG(KRV_ERR_FAILED, "strcpy failed, strLen: %zu, errorcode: %d", capacity, rc);
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

// Finds member key of json and checks that it is of type expected, logging a mismatch with the
// caller's text (one %u: the member's actual type). Returns KRV_OK with the member in *item, the
// lookup's own status, or 1. Arguments are the caller's to check, each getter having its own rule.
uint32_t TypedMemberGet(KrvJson *json, const char *key, uint32_t expected, const char *mismatchFmt, KrvJson **item)
{
    uint32_t ret = KRV_JsonItemGet(json, key, item);
    if (ret != KRV_OK) {
        return ret;
    }
    if ((*item)->valueType != expected) {
        KRV_DIAG(KRV_ERR_FAILED, mismatchFmt, (*item)->valueType);
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

// Looks key up in json and hands out a copy of its text; *str is written only once the member is
// known to be a string.
uint32_t StringMemberCopy(KrvJson *json, const char *key, char **str)
{
    KrvJson *item = nullptr;
    uint32_t ret = TypedMemberGet(json, key, KRV_JSON_STRING, "valueType isn't STRING：%u", &item);
    return ret == KRV_OK ? Cast2String(item, str) : ret;
}

// True for a non-null ARRAY node: the array getters refuse anything else as a bad argument.
bool IsArray(const KrvJson *arr)
{
    return arr != nullptr && arr->valueType == KRV_JSON_ARRAY;
}

}  // namespace

namespace krv {
namespace json {

// The expected code, not the node's, goes into the line: callers read it as "was not a <type>".
uint32_t TypeIs(const KrvJson *json, uint32_t expected)
{
    if (json != nullptr && json->valueType == expected) {
        return 1;
    }
    KRV_DIAG(KRV_ERR_FAILED, "valueType match failed, valueType :%u", expected);
    return 0;
}

}  // namespace json
}  // namespace krv

extern "C" {

/* Each predicate returns 1 on a match; a mismatch (null included) is logged by the shared test. */
uint32_t KRV_JsonIsNull(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_NULL);
}

uint32_t KRV_JsonIsTrue(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_TRUE);
}

uint32_t KRV_JsonIsFalse(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_FALSE);
}

/* Tests TRUE, then FALSE: a FALSE node leaves the failed TRUE test in the log, and a node of neither
   type leaves both. */
uint32_t KRV_JsonIsBool(const KrvJson *json)
{
    if (krv::json::TypeIs(json, KRV_JSON_TRUE) != 0) {
        return 1;
    }
    return krv::json::TypeIs(json, KRV_JSON_FALSE);
}

uint32_t KRV_JsonIsNumber(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_NUMBER);
}

uint32_t KRV_JsonIsString(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_STRING);
}

uint32_t KRV_JsonIsArray(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_ARRAY);
}

uint32_t KRV_JsonIsObject(const KrvJson *json)
{
    return krv::json::TypeIs(json, KRV_JSON_OBJECT);
}

/* Finds the first direct member of object json named exactly key (case-sensitive) and lends it
   out through *item; *item is untouched on failure. */
uint32_t KRV_JsonItemGet(KrvJson *json, const char *key, KrvJson **item)
{
    if (json == nullptr || key == nullptr || item == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    if (json->valueType != KRV_JSON_OBJECT) {
        KRV_DIAG(KRV_ERR_FAILED, "valueType ：%u isn't OBJECT", json->valueType);
        return KRV_ERR_FAILED;
    }
    for (KrvJsonChild *link = json->child; link != nullptr; link = link->next) {
        if (std::strcmp(key, link->item->key) == 0) {
            *item = link->item;
            return KRV_OK;
        }
    }
    KRV_DIAG(KRV_ERR_FAILED, "key isn't match :%s", key);
    return KRV_ERR_FAILED;
}

/* The output pointer is checked before anything else, so it wins over a null json or key. */
uint32_t KRV_JsonBoolValueGet(KrvJson *json, const char *key, uint8_t *boolVal)
{
    if (boolVal == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "boolVal is null");
        return KRV_ERR_INVALID;
    }
    KrvJson *item = nullptr;
    uint32_t ret = KRV_JsonItemGet(json, key, &item);
    if (ret != KRV_OK) {
        return ret;
    }
    if (item->valueType == KRV_JSON_TRUE) {
        *boolVal = 1;
    } else if (item->valueType == KRV_JSON_FALSE) {
        *boolVal = 0;
    } else {
        KRV_DIAG(KRV_ERR_FAILED, "valueType: %u isn't BOOL", item->valueType);
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

uint32_t KRV_JsonNumberValueGet(KrvJson *json, const char *key, double *val)
{
    if (val == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "val is null");
        return KRV_ERR_INVALID;
    }
    KrvJson *item = nullptr;
    uint32_t ret = TypedMemberGet(json, key, KRV_JSON_NUMBER, "valueType：%u isn't NUMBER", &item);
    if (ret == KRV_OK) {
        *val = item->numberValue;
    }
    return ret;
}

uint32_t KRV_JsonStringValueGet(KrvJson *json, const char *key, char **str)
{
    if (json == nullptr || key == nullptr || str == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    return StringMemberCopy(json, key, str);
}

uint32_t KRV_JsonStringValueAndSizeGet(KrvJson *json, const char *key, char **str, size_t *size)
{
    if (json == nullptr || key == nullptr || str == nullptr || size == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    uint32_t ret = StringMemberCopy(json, key, str);
    if (ret == KRV_OK) {
        *size = std::strlen(*str);
    }
    return ret;
}

void KRV_JsonStringValueFree(char *str)
{
    KRV_OsalMemFree(str);
}

uint32_t KRV_JsonArrayGet(KrvJson *json, const char *key, KrvJson **jsonArrPtr)
{
    if (jsonArrPtr == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "jsonArrPtr is null");
        return KRV_ERR_INVALID;
    }
    KrvJson *item = nullptr;
    uint32_t ret = TypedMemberGet(json, key, KRV_JSON_ARRAY, "valueType isn't ARRAY : %u", &item);
    if (ret == KRV_OK) {
        *jsonArrPtr = item;
    }
    return ret;
}

/* A thin wrapper on the lookup, so an absent key or a non-object still leaves the lookup's line. */
bool KRV_JsonIsKeyExist(KrvJson *json, const char *key)
{
    if (json == nullptr || key == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return false;
    }
    KrvJson *item = nullptr;
    return KRV_JsonItemGet(json, key, &item) == KRV_OK;
}

uint32_t KRV_JsonArraySizeGet(KrvJson *arr, uint32_t *size)
{
    if (!IsArray(arr) || size == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    *size = arr->arrLen;
    return KRV_OK;
}

/* arrLen bounds the index; the walk is still guarded in case the list is shorter than arrLen says.
   Element i costs i link steps. */
uint32_t KRV_JsonArrayItemGet(KrvJson *arr, uint32_t index, KrvJson **item)
{
    if (item == nullptr || !IsArray(arr)) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    if (index >= arr->arrLen) {
        KRV_DIAG(KRV_ERR_FAILED, "index：%u error, arrLen: %u", index, arr->arrLen);
        return KRV_ERR_FAILED;
    }
    KrvJsonChild *link = arr->child;
    uint32_t walked = 0;
    while (walked < index && link != nullptr) {
        link = link->next;
        walked++;
    }
    if (link == nullptr || link->item == nullptr) {
        KRV_DIAG(KRV_ERR_FAILED, "arr item get failed, idx: %u, i: %u", index, walked);
        return KRV_ERR_FAILED;
    }
    *item = link->item;
    return KRV_OK;
}

/* An array whose elements are not strings (an empty one included) is a bad argument, not a miss. */
uint32_t KRV_JsonArrayStringValueGet(KrvJson *arr, uint32_t index, char **str)
{
    if (str == nullptr || !IsArray(arr) || arr->arrType != KRV_JSON_STRING) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    KrvJson *item = nullptr;
    uint32_t ret = KRV_JsonArrayItemGet(arr, index, &item);
    if (ret != KRV_OK) {
        return ret;
    }
    if (item->valueType != KRV_JSON_STRING) {
        KRV_DIAG(KRV_ERR_FAILED, "valueType isn't STRING：%u", item->valueType);
        return KRV_ERR_FAILED;
    }
    return Cast2String(item, str);
}

/* Number arrays only, as for strings; arrType vouches for the element, which is read as it stands. */
uint32_t KRV_JsonArrayNumberValueGet(KrvJson *arr, uint32_t index, double *val)
{
    if (val == nullptr || !IsArray(arr) || arr->arrType != KRV_JSON_NUMBER) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    KrvJson *item = nullptr;
    uint32_t ret = KRV_JsonArrayItemGet(arr, index, &item);
    if (ret != KRV_OK) {
        return ret;
    }
    *val = item->numberValue;
    return KRV_OK;
}

}  // extern "C"
