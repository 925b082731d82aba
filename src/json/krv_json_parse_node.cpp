// JSON nodes and child links: creation, whitespace skipping and release of whole trees.
#include <cassert>
#include <cstddef>

#include "json/krv_json_internal.h"
#include "krv_osal.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"

namespace {

constexpr char kKrvSource[] = "krv_json";

}  // namespace

namespace krv {
namespace json {

/* Every node starts zero-filled: empty key, no children, a zero value. An array starts with the
 * "no element yet" type so that its first element decides the type of all. */
KrvJson *Create(uint32_t valueType)
{
    auto *node = static_cast<KrvJson *>(KRV_OsalMemAlloc(sizeof(KrvJson)));
    if (node == nullptr) {
        KRV_DIAG(12, "Krv Json Create malloc failed");
        return nullptr;
    }
    memset_s(node, sizeof(KrvJson), 0, sizeof(KrvJson));
    node->valueType = valueType;
    if (valueType == KRV_JSON_ARRAY) {
        node->arrType = KRV_JSON_TYPE_NONE;
    }
    return node;
}

/* The link takes ownership of item only once the caller has put it in a list. */
KrvJsonChild *ChildInit(KrvJson *item)
{
    auto *link = static_cast<KrvJsonChild *>(KRV_OsalMemAlloc(sizeof(KrvJsonChild)));
    if (link == nullptr) {
        KRV_DIAG(12, "Krv Json Child Init malloc failed");
        return nullptr;
    }
    link->item = item;
    link->next = nullptr;
    return link;
}

/* Every byte up to 0x20 counts as blank, control bytes and the terminating NUL included, so a
 * cursor that skips past the NUL ends up at len. */
void SkipWhitespace(Cursor *cursor)
{
    assert(cursor->pos <= cursor->len);
    while (cursor->pos < cursor->len && static_cast<unsigned char>(cursor->text[cursor->pos]) <= 0x20) {
        ++cursor->pos;
    }
}

}  // namespace json
}  // namespace krv

extern "C" {

/* Iterative so that no tree, however deep the setters made it, can exhaust the call stack: the
 * child list of each freed node is spliced onto one pending list of links still to release. A
 * string node owns no children and its child field is not looked at. */
void KRV_JsonDelete(KrvJson *json)
{
    KrvJsonChild *pending = nullptr;
    KrvJson *node = json;
    for (;;) {
        if (node != nullptr) {
            if (node->valueType == KRV_JSON_STRING) {
                KRV_OsalMemFree(node->stringValue);
            } else if (node->child != nullptr) {
                KrvJsonChild *last = node->child;
                while (last->next != nullptr) {
                    last = last->next;
                }
                last->next = pending;
                pending = node->child;
                node->child = nullptr;
            }
            KRV_OsalMemFree(node);
        }
        if (pending == nullptr) {
            return;
        }
        KrvJsonChild *link = pending;
        pending = link->next;
        node = link->item;
        KRV_OsalMemFree(link);
    }
}

}  // extern "C"
