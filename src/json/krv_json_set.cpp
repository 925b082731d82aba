// Setters: put a string member or a parsed array member into an object.
//
// Both take text, never nodes, and leave the tree as it was on every failure: whatever they
// allocated is released before they return. A replaced member is freed at once, so nodes borrowed
// earlier through the getters dangle afterwards.
#include <cstring>

#include "json/krv_json_internal.h"
#include "krv_json.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
using namespace krv;

// Makes a zero-filled, caller-owned copy of str (strLen bytes) in *copy.
uint32_t StringCopy(const char *str, size_t strLen, char **copy)
{
    size_t bufLen = strLen + 1;
    char *buf = krv::json::TextBlockAlloc(bufLen);
    if (buf == nullptr) {
        return KRV_ERR_NOMEM;
    }
    int rc = krv::strncpy_s(buf, bufLen, str, strLen);
    if (rc != 0) {
        krv::OsalMemFree(buf);
        KRV_DIAG(KRV_ERR_FAILED, "strncpy failed, errorcode: %d, bufLen:%zu, len:%zu", rc, bufLen, strLen);
        return KRV_ERR_FAILED;
    }
    *copy = buf;
    return KRV_OK;
}

// Wraps copy in a new STRING node and attaches it to json under key. Takes ownership of copy:
// on failure it is released with the node. The parent's type is left to the attach, by design.
uint32_t StringMemberAppend(KrvJson *json, const char *key, char *copy)
{
    KrvJson *node = krv::json::Create(KRV_JSON_STRING);
    if (node == nullptr) {
        krv::OsalMemFree(copy);
        KRV_DIAG(KRV_ERR_NOMEM, "string json create failed");
        return KRV_ERR_NOMEM;
    }
    node->stringValue = copy;
    uint32_t ret = krv::json::ItemAddToObject(key, node, json);
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "Json Item Add To Object failed");
        KRV_JsonDelete(node);
        return ret;
    }
    return KRV_OK;
}

// Parses str as one JSON value with nothing but whitespace after it. The module's nesting counter
// is continued, not reset, so each call starts one level deeper than the last unless a full parse
// ran in between; that accumulation is the module's behaviour and is kept.
uint32_t ValueFromText(const char *str, KrvJson **value)
{
    krv::json::Cursor cursor = {str, static_cast<uint32_t>(std::strlen(str) + 1), 0};
    KrvJson *parsed = nullptr;
    uint32_t ret = krv::json::ValueParse(&cursor, &parsed);
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "json Value Parse fail");
        return ret;
    }
    krv::json::SkipWhitespace(&cursor);
    if (cursor.pos < cursor.len) {
        KRV_DIAG(KRV_ERR_FAILED, "fileSize :%u, offset is :%u", cursor.len, cursor.pos);
        KRV_JsonDelete(parsed);
        return KRV_ERR_FAILED;
    }
    *value = parsed;
    return KRV_OK;
}

// Names array key and wraps it in a new link for json's member list.
uint32_t ArrayLinkMake(KrvJson *array, const char *key, KrvJsonChild **link)
{
    uint32_t ret = krv::json::MemberLinkMake(key, array, link);
    if (ret == KRV_ERR_NOMEM) {
        KRV_DIAG(KRV_ERR_NOMEM, "Json Child Init failed");
    }
    return ret;
}

// Puts link's node into json's member list: over the first member with the same name (whatever
// its type; it keeps its position and the spare link is freed), else at the tail.
void MemberReplaceOrAppend(KrvJson *json, KrvJsonChild *link)
{
    KrvJsonChild **slot = &json->child;
    for (; *slot != nullptr; slot = &(*slot)->next) {
        if (std::strcmp(link->item->key, (*slot)->item->key) == 0) {
            KRV_JsonDelete((*slot)->item);
            (*slot)->item = link->item;
            krv::OsalMemFree(link);
            return;
        }
    }
    *slot = link;
}

}  // namespace

extern "C" {

/* Replaces the text of string member key in place, or appends a new string member at the tail
   when the lookup fails for any reason; a member of another type is left alone (KRV_ERR_FAILED). */
uint32_t KRV_JsonStringValueSet(KrvJson *json, const char *key, const char *str)
{
    if (key == nullptr || str == nullptr || json == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    size_t strLen = std::strlen(str);
    if (strLen > krv::json::kMaxStringLen) {
        KRV_DIAG(KRV_ERR_INVALID, "strLen:%zu > MAXPATH", strLen);
        return KRV_ERR_INVALID;
    }
    char *copy = nullptr;
    uint32_t ret = StringCopy(str, strLen, &copy);
    if (ret != KRV_OK) {
        return ret;
    }
    KrvJson *item = nullptr;
    if (KRV_JsonItemGet(json, key, &item) != KRV_OK) {
        return StringMemberAppend(json, key, copy);
    }
    if (item->valueType != KRV_JSON_STRING) {
        KRV_DIAG(KRV_ERR_FAILED, "valueType isn't STRING：%u", item->valueType);
        krv::OsalMemFree(copy);
        return KRV_ERR_FAILED;
    }
    krv::OsalMemFree(item->stringValue);
    item->stringValue = copy;
    return KRV_OK;
}

/* Parses the array text str and stores it under key, replacing a same-named member in place or
   appending at the tail; json's own type is not checked. */
uint32_t KRV_JsonArrayValueSet(KrvJson *json, const char *key, const char *str)
{
    if (key == nullptr || str == nullptr || json == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    KrvJson *value = nullptr;
    uint32_t ret = ValueFromText(str, &value);
    if (ret != KRV_OK) {
        return ret;
    }
    if (value->valueType != KRV_JSON_ARRAY) {
        KRV_DIAG(KRV_ERR_FAILED, "valueType is error, valueType :%u", value->valueType);
        KRV_JsonDelete(value);
        return KRV_ERR_FAILED;
    }
    KrvJsonChild *link = nullptr;
    ret = ArrayLinkMake(value, key, &link);
    if (ret != KRV_OK) {
        KRV_DIAG(ret, "krv json object set failed, key is %s", key);
        KRV_JsonDelete(value);
        return ret;
    }
    MemberReplaceOrAppend(json, link);
    return KRV_OK;
}

}  // extern "C"
