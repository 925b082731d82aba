// Internal pieces shared by the JSON parser, the access functions and the setters.
//
// The parser (krv_json_parse.cpp) owns node creation, child links, member attachment and the value
// parser with its process-wide nesting counter; the access and output sources build on them.
#ifndef KRV_JSON_INTERNAL_H
#define KRV_JSON_INTERNAL_H

#include <cassert>
#include <cstddef>
#include <cstdint>

#include "krv_json.h"

namespace krv {
namespace json {

// Longest string the module accepts, whether parsed or set: 4096 bytes pass, 4097 do not.
constexpr size_t kMaxStringLen = 4096;

// Parse cursor: len is the text length plus one, so the terminating NUL lies inside [0, len).
struct Cursor {
    const char *text;
    uint32_t len;
    uint32_t pos;
};

// Allocates a zero-filled node of the given type (an ARRAY starts with arrType KRV_JSON_TYPE_NONE).
// Logs "Krv Json Create malloc failed" (KRV_ERR_NOMEM) and returns null when memory runs out.
KrvJson *Create(uint32_t valueType);
// Allocates a child link holding item. Logs "Krv Json Child Init malloc failed" (KRV_ERR_NOMEM) and
// returns null when memory runs out.
KrvJsonChild *ChildInit(KrvJson *item);
// Copies key into child's name (at most 31 bytes: "strcpys failed str: %s, errorcode: %d",
// KRV_ERR_FAILED) and wraps child in a new link (KRV_ERR_NOMEM). The link is the caller's to place.
uint32_t MemberLinkMake(const char *key, KrvJson *child, KrvJsonChild **link);
// Allocates a zero-filled block of bytes for text that leaves the module or goes into a tree. Logs
// "malloc failed, mallocLen %zu" (KRV_ERR_NOMEM) and returns null when memory runs out.
char *TextBlockAlloc(size_t bytes);
// Names child key and appends it to object's member list, refusing a repeated name. Returns KRV_OK,
// KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_FAILED; on failure child stays owned by the caller.
uint32_t ItemAddToObject(const char *key, KrvJson *child, KrvJson *object);
// Advances pos over every byte <= 0x20 (NUL included) while pos < len. Control bytes count as
// blank too, and so does the terminating NUL, so a cursor that skips past the NUL ends up at len.
inline void SkipWhitespace(Cursor *cursor)
{
    assert(cursor->pos <= cursor->len);
    while (cursor->pos < cursor->len && static_cast<unsigned char>(cursor->text[cursor->pos]) <= 0x20) {
        ++cursor->pos;
    }
}

// Parses one value at the cursor into *out, continuing the process-wide nesting counter without
// resetting it. Returns KRV_OK, KRV_ERR_FAILED, KRV_ERR_NOMEM or KRV_ERR_INVALID; on failure *out is
// null and nothing is leaked. Uses a bounded amount of call stack whatever the nesting; a text nested
// deeper than any acceptable document whose parser frames cannot be allocated fails with
// KRV_ERR_NOMEM, "Krv Json Value Parse malloc failed".
uint32_t ValueParse(Cursor *cursor, KrvJson **out);

// Sets the process-wide nesting counter back to 0, as every parse of a whole document does.
void NestedLayerReset();

// The rest serves the parser alone: it keeps the tail of each list it builds and, once an object
// grows large, an index of its member names, so a document parses in time linear in its size.

// Open-addressed set of member names (pointers into the members' own key arrays). A set that ran
// out of memory is abandoned and the caller falls back to walking the list.
struct NameIndex {
    const char **slots;
    uint32_t capacity;  // a power of two, or 0 before the first insertion
    uint32_t used;
    bool abandoned;
};

// The member list of an object under construction. Zero-initialised means empty.
struct MemberList {
    KrvJsonChild *tail;
    uint32_t count;
    NameIndex index;
};

// As ItemAddToObject, but appends after members->tail and consults the name index instead of
// rescanning; the diagnostics and the result are the same. members may be null (walk the list).
uint32_t MemberAttach(const char *key, KrvJson *child, KrvJson *object, MemberList *members);
// Releases the index of members; the list itself belongs to the object.
void MemberListFini(MemberList *members);

}  // namespace json
}  // namespace krv

#endif  // KRV_JSON_INTERNAL_H
