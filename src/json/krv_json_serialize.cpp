// Compact serialisation of a tree made of objects, arrays and strings.
//
// Two passes walk the tree the same way: the first adds up the exact output length, the second
// writes into a block of that length plus the terminator. Each piece is formatted in place at the
// write offset, so both passes stay linear in the output size. Nothing is escaped and numbers,
// booleans and null are refused: the output only has to carry what the library's own writers make.
#include <cassert>
#include <cstring>

#include "json/krv_json_internal.h"
#include "json/krv_json_type_test.h"
#include "krv_json.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
using namespace krv;

// Children one container may have in the output.
constexpr uint32_t kMaxChildren = 50;

// Output block being filled: capacity counts the terminator, offset is the next byte to write.
struct Writer {
    char *buf;
    size_t capacity;
    size_t offset;
};

// Runs the type tests in their fixed order (OBJECT, ARRAY, STRING), each failed one leaving the
// predicates' line. Returns the matching type, or KRV_JSON_TYPE_NONE for a type that cannot be
// written. Both passes use it so that they leave the same lines.
uint32_t WritableType(const KrvJson *json)
{
    if (krv::json::TypeIs(json, KRV_JSON_OBJECT) != 0) {
        return KRV_JSON_OBJECT;
    }
    if (krv::json::TypeIs(json, KRV_JSON_ARRAY) != 0) {
        return KRV_JSON_ARRAY;
    }
    if (krv::json::TypeIs(json, KRV_JSON_STRING) != 0) {
        return KRV_JSON_STRING;
    }
    return KRV_JSON_TYPE_NONE;
}

// Length of the "\"key\":" prefix; members with an empty name (roots, elements) get none.
size_t KeyPrefixLen(const KrvJson *json)
{
    return json->key[0] != '\0' ? std::strlen(json->key) + 3 : 0;
}

// Adds the output length of json to *len. Unwritable nodes add nothing; the writer refuses them.
void SerializeSizeGet(const KrvJson *json, size_t *len)
{
    uint32_t type = WritableType(json);
    if (type == KRV_JSON_STRING) {
        *len += KeyPrefixLen(json) + std::strlen(json->stringValue) + 2;
    } else if (type == KRV_JSON_OBJECT || type == KRV_JSON_ARRAY) {
        *len += KeyPrefixLen(json) + 2;
        for (const KrvJsonChild *link = json->child; link != nullptr; link = link->next) {
            SerializeSizeGet(link->item, len);
            *len += link->next != nullptr ? 1 : 0;
        }
    }
}

// Appends one structural byte. The pre-pass sized the block, so there is always room before the
// terminator.
void PutChar(Writer *w, char c)
{
    assert(w->offset + 1 < w->capacity);
    w->buf[w->offset++] = c;
}

// Writes the member-name prefix of json, if it has a name.
uint32_t KeySerializes(const KrvJson *json, Writer *w)
{
    if (json->key[0] == '\0') {
        return KRV_OK;
    }
    size_t room = std::strlen(json->key) + 4;
    assert(w->offset + room <= w->capacity);
    int written = krv::sprintf_s(w->buf + w->offset, room, "\"%s\":", json->key);
    if (written < 0) {
        KRV_DIAG(KRV_ERR_FAILED, "sprintf_s failed, key is %s", json->key);
        return KRV_ERR_FAILED;
    }
    w->offset += static_cast<size_t>(written);
    return KRV_OK;
}

uint32_t StringSerializes(const KrvJson *json, Writer *w)
{
    size_t room = std::strlen(json->stringValue) + 3;
    assert(w->offset + room <= w->capacity);
    int written = krv::sprintf_s(w->buf + w->offset, room, "\"%s\"", json->stringValue);
    if (written < 0) {
        KRV_DIAG(KRV_ERR_FAILED, "sprintf_s failed");
        return KRV_ERR_FAILED;
    }
    w->offset += static_cast<size_t>(written);
    return KRV_OK;
}

uint32_t DoSerializes(const KrvJson *json, Writer *w);

// Writes the children between open and close, separated by commas. The countdown allows at most
// kMaxChildren children; the limit is per container, whatever its message calls it.
uint32_t ContainerSerializes(const KrvJson *json, char open, char close, Writer *w)
{
    PutChar(w, open);
    const KrvJsonChild *link = json->child;
    if (link == nullptr) {
        PutChar(w, close);
        return KRV_OK;
    }
    for (uint32_t countdown = kMaxChildren; countdown > 0; countdown--) {
        if (DoSerializes(link->item, w) != KRV_OK) {
            KRV_DIAG(KRV_ERR_FAILED, "json Serializes fail");
            return KRV_ERR_FAILED;
        }
        if (link->next == nullptr) {
            PutChar(w, close);
            return KRV_OK;
        }
        PutChar(w, ',');
        link = link->next;
    }
    KRV_DIAG(KRV_ERR_FAILED, "depth is error, depth is %u", kMaxChildren);
    return KRV_ERR_FAILED;
}

// Writes json (with its member-name prefix) at the write offset.
uint32_t DoSerializes(const KrvJson *json, Writer *w)
{
    uint32_t type = WritableType(json);
    if (type == KRV_JSON_TYPE_NONE) {
        KRV_DIAG(KRV_ERR_FAILED, "valueType(%u) is error, ", json->valueType);
        return KRV_ERR_FAILED;
    }
    if (KeySerializes(json, w) != KRV_OK) {
        KRV_DIAG(KRV_ERR_FAILED, "Json Do Key Serializes failed");
        return KRV_ERR_FAILED;
    }
    if (type == KRV_JSON_STRING) {
        return StringSerializes(json, w);
    }
    return type == KRV_JSON_OBJECT ? ContainerSerializes(json, '{', '}', w) : ContainerSerializes(json, '[', ']', w);
}

}  // namespace

extern "C" {

/* The tree is only read. On failure *jsonStr is untouched and *len keeps the computed length.
   A writer failure is logged with KRV_ERR_NOMEM but returns the writer's own status
   (KRV_ERR_FAILED); callers match on both, so neither is "corrected". */
uint32_t KRV_JsonSerializesToString(KrvJson *json, char **jsonStr, size_t *len)
{
    if (json == nullptr || jsonStr == nullptr || len == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    *len = 0;
    SerializeSizeGet(json, len);
    size_t bufLen = *len + 1;
    char *buf = krv::json::TextBlockAlloc(bufLen);
    if (buf == nullptr) {
        return KRV_ERR_NOMEM;
    }
    Writer writer = {buf, bufLen, 0};
    uint32_t ret = DoSerializes(json, &writer);
    if (ret != KRV_OK) {
        KRV_DIAG(KRV_ERR_NOMEM, "Json Do Serializes failed");
        krv::OsalMemFree(buf);
        return ret;
    }
    assert(writer.offset == *len);
    *jsonStr = buf;
    return KRV_OK;
}

}  // extern "C"
