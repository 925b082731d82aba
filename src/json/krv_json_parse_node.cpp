// JSON nodes, child links and text blocks: creation, and release of whole trees.
#include <cstring>

#include "json/krv_json_internal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

constexpr char kKrvSource[] = "krv_json";

// What an emptied container remembers while its children are released: the container around it,
// the links of that container still to visit and the link that holds the emptied one. It is kept in
// the container's own key bytes, which are dead by then, so deleting needs neither memory nor call
// stack.
struct OpenContainer {
    KrvJson *outer;
    KrvJsonChild *rest;
    KrvJsonChild *holder;
};
static_assert(sizeof(OpenContainer) <= KRV_JSON_KEY_LEN, "the key holds the open-container record");

/* The release walk is a chain of dependent loads through blocks the cache no longer holds: start
 * loading the next link and its node while the current ones are released. Reading the next node
 * itself (to prefetch its string too) would wait for exactly the load this hides. */
void PrefetchAhead(const KrvJsonChild *next)
{
    if (next != nullptr) {
        __builtin_prefetch(next->item);
        __builtin_prefetch(next->next);
    }
}

}  // namespace

namespace krv {
namespace json {

/* Every node starts zero-filled: empty key, no children, a zero value. An array starts with the
 * "no element yet" type so that its first element decides the type of all. */
KrvJson *Create(uint32_t valueType)
{
    auto *node = static_cast<KrvJson *>(krv::OsalMemAlloc(sizeof(KrvJson)));
    if (node == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "Krv Json Create malloc failed");
        return nullptr;
    }
    *node = KrvJson{};
    node->valueType = valueType;
    if (valueType == KRV_JSON_ARRAY) {
        node->arrType = KRV_JSON_TYPE_NONE;
    }
    return node;
}

/* The link takes ownership of item only once the caller has put it in a list. */
KrvJsonChild *ChildInit(KrvJson *item)
{
    auto *link = static_cast<KrvJsonChild *>(krv::OsalMemAlloc(sizeof(KrvJsonChild)));
    if (link == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "Krv Json Child Init malloc failed");
        return nullptr;
    }
    link->item = item;
    link->next = nullptr;
    return link;
}

char *TextBlockAlloc(size_t bytes)
{
    auto *block = static_cast<char *>(krv::OsalMemAlloc(bytes));
    if (block == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc failed, mallocLen %zu", bytes);
        return nullptr;
    }
    // Cannot fail: the count is the block's own size.
    (void)memset_s(block, bytes, 0, bytes);
    return block;
}

}  // namespace json
}  // namespace krv

extern "C" {

/* Iterative so that no tree, however deep the setters made it, can exhaust the call stack, yet in
 * the order of a recursive release: depth first, in document order, each container after its
 * children and each link after the node it holds, as the parser allocated them. That order matters
 * for speed: glibc hands freed blocks out again last in, first out per size, and this order keeps
 * the blocks of one stretch of a document together over repeated parses, so the next parse of a
 * similar document walks memory sequentially instead of at random. A string node owns no children
 * and its child field is not looked at. */
void KRV_JsonDelete(KrvJson *json)
{
    KrvJson *open = nullptr;        // innermost container being emptied
    KrvJsonChild *rest = nullptr;  // its links still to release
    KrvJson *node = json;
    KrvJsonChild *holder = nullptr;  // the link that holds node; null for the root
    for (;;) {
        if (node != nullptr && node->valueType == KRV_JSON_STRING) {
            krv::OsalMemFree(node->stringValue);
            krv::OsalMemFree(node);
            krv::OsalMemFree(holder);
        } else if (node == nullptr || node->child == nullptr) {
            krv::OsalMemFree(node);
            krv::OsalMemFree(holder);
        } else {
            const OpenContainer outer = {open, rest, holder};
            std::memcpy(node->key, &outer, sizeof(outer));
            open = node;
            rest = node->child;
        }
        while (rest == nullptr) {
            if (open == nullptr) {
                return;
            }
            KrvJson *emptied = open;
            OpenContainer outer;
            std::memcpy(&outer, emptied->key, sizeof(outer));
            open = outer.outer;
            rest = outer.rest;
            krv::OsalMemFree(emptied);
            krv::OsalMemFree(outer.holder);
        }
        holder = rest;
        rest = holder->next;
        node = holder->item;
        PrefetchAhead(rest);
    }
}

}  // extern "C"
