// Object members: attaching a named value and refusing a name the object already holds.
#include <cassert>
#include <cstring>

#include "json/krv_json_internal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
// Below this many members a walk of the list is cheaper than keeping a hash index.
constexpr uint32_t kIndexThreshold = 32;
constexpr uint32_t kIndexInitialCapacity = 128;

using krv::json::MemberList;
using krv::json::NameIndex;

enum class Repeat { kNone, kEarlier, kLast };

uint32_t NameHash(const char *name)
{
    uint32_t hash = 2166136261u;  // FNV-1a: names are short, any spread will do
    for (; *name != '\0'; ++name) {
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619u;
    }
    return hash;
}

/* Returns the slot holding name, or the empty slot where it belongs. The table is never full, since
 * it is kept at most half used. */
const char **IndexProbe(const NameIndex *index, const char *name)
{
    uint32_t mask = index->capacity - 1;
    for (uint32_t i = NameHash(name) & mask;; i = (i + 1) & mask) {
        const char **slot = &index->slots[i];
        if (*slot == nullptr || std::strcmp(*slot, name) == 0) {
            return slot;
        }
    }
}

/* Makes room for one more name while keeping the table at most half used; false when out of memory
 * (the table is then unchanged). */
bool IndexReserve(NameIndex *index)
{
    if ((index->used + 1) * 2 <= index->capacity) {
        return true;
    }
    uint32_t capacity = index->capacity == 0 ? kIndexInitialCapacity : index->capacity * 2;
    size_t bytes = static_cast<size_t>(capacity) * sizeof(const char *);
    auto **slots = static_cast<const char **>(krv::OsalMemAlloc(bytes));
    if (slots == nullptr) {
        return false;
    }
    krv::memset_s(slots, bytes, 0, bytes);
    NameIndex grown = {slots, capacity, index->used, false};
    for (uint32_t i = 0; i < index->capacity; ++i) {
        if (index->slots[i] != nullptr) {
            *IndexProbe(&grown, index->slots[i]) = index->slots[i];
        }
    }
    krv::OsalMemFree(index->slots);
    *index = grown;
    return true;
}

/* name must stay valid as long as the index: it points into a member's own key. Memory shortage
 * abandons the index for good; the lookups then walk the list, which gives the same answers. */
void IndexInsert(NameIndex *index, const char *name)
{
    if (index->abandoned) {
        return;
    }
    if (!IndexReserve(index)) {
        krv::OsalMemFree(index->slots);
        *index = {nullptr, 0, 0, true};
        return;
    }
    *IndexProbe(index, name) = name;
    ++index->used;
}

/* Names the parser wrote are zero-padded to the full buffer, so they are equal exactly when the
 * buffers are; that compares in a few word loads whatever the names' lengths. */
bool PaddedKeyEquals(const char *a, const char *b)
{
    return std::memcmp(a, b, KRV_JSON_KEY_LEN) == 0;
}

/* A repeat of the last member and of an earlier one are told apart because they are reported with
 * different texts. With members (the parser's own list) the key and every name are zero-padded;
 * without, the list is a caller's tree and names are compared as strings. */
Repeat FindRepeat(const char *key, const KrvJson *object, const MemberList *members)
{
    if (members == nullptr) {
        for (const KrvJsonChild *link = object->child; link != nullptr; link = link->next) {
            if (std::strcmp(key, link->item->key) == 0) {
                return link->next == nullptr ? Repeat::kLast : Repeat::kEarlier;
            }
        }
        return Repeat::kNone;
    }
    if (members->index.capacity != 0) {
        if (PaddedKeyEquals(members->tail->item->key, key)) {
            return Repeat::kLast;
        }
        return *IndexProbe(&members->index, key) != nullptr ? Repeat::kEarlier : Repeat::kNone;
    }
    for (const KrvJsonChild *link = object->child; link != nullptr; link = link->next) {
        if (PaddedKeyEquals(key, link->item->key)) {
            return link->next == nullptr ? Repeat::kLast : Repeat::kEarlier;
        }
    }
    return Repeat::kNone;
}

/* Records the new tail and keeps the index in step once the object is large enough to need one. */
void MemberListAppend(MemberList *members, KrvJson *object, KrvJsonChild *link)
{
    assert((members->tail == nullptr) == (object->child == nullptr));
    if (members->tail != nullptr) {
        members->tail->next = link;
    } else {
        object->child = link;
    }
    members->tail = link;
    ++members->count;
    if (members->count > kIndexThreshold) {
        IndexInsert(&members->index, link->item->key);
    } else if (members->count == kIndexThreshold) {
        for (const KrvJsonChild *each = object->child; each != nullptr; each = each->next) {
            IndexInsert(&members->index, each->item->key);
        }
    }
}

}  // namespace

namespace krv {
namespace json {

uint32_t MemberLinkMake(const char *key, KrvJson *child, KrvJsonChild **link)
{
    int rc = strcpy_s(child->key, KRV_JSON_KEY_LEN, key);
    if (rc != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "strcpys failed str: %s, errorcode: %d", key, rc);
        return KRV_ERR_FAILED;
    }
    *link = ChildInit(child);
    return *link != nullptr ? KRV_OK : KRV_ERR_NOMEM;
}

/* On failure the child is not linked and stays the caller's; its key may have been overwritten.
 * With members, key must be zero-padded to KRV_JSON_KEY_LEN bytes, as the parser keeps it. */
uint32_t MemberAttach(const char *key, KrvJson *child, KrvJson *object, MemberList *members)
{
    assert(key != nullptr && child != nullptr && object != nullptr);
    KrvJsonChild *link = nullptr;
    uint32_t status = MemberLinkMake(key, child, &link);
    if (status != KRV_OK) {
        return status;
    }
    Repeat repeat = FindRepeat(key, object, members);
    if (repeat != Repeat::kNone) {
        // The member's name equals key byte for byte, so key stands in for it in the texts.
        if (repeat == Repeat::kEarlier) {
            KRV_DIAG(KRV_ERR_FAILED, "key: %s is equal with child'skey: %s", key, key);
        } else {
            KRV_DIAG(KRV_ERR_FAILED, "key: %s is equal with child's key: %s", key, key);
        }
        krv::OsalMemFree(link);
        return KRV_ERR_FAILED;
    }
    if (members != nullptr) {
        MemberListAppend(members, object, link);
        return KRV_OK;
    }
    KrvJsonChild **end = &object->child;
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    *end = link;
    return KRV_OK;
}

uint32_t ItemAddToObject(const char *key, KrvJson *child, KrvJson *object)
{
    if (key == nullptr || child == nullptr || object == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "key is null or json is null or jsonChild is null");
        return KRV_ERR_INVALID;
    }
    return MemberAttach(key, child, object, nullptr);
}

void MemberListFini(MemberList *members)
{
    krv::OsalMemFree(members->index.slots);
    members->index = {nullptr, 0, 0, false};
}

}  // namespace json
}  // namespace krv
