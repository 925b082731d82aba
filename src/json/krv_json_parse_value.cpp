// The value parser: literals, numbers, strings, and arrays and objects nested to any depth.
//
// The dialect is defined by a recursive descent whose nesting check runs only after a child has been
// parsed, so a deep text is followed to its bottom before it is refused. To keep that order without
// letting the text decide how much call stack is used, containers under construction live on an
// explicit stack of frames (a few inline, the rest on the heap) and one loop plays the recursion:
// every counter update, check and diagnostic happens in the order the descent would make it.
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "json/krv_json_internal.h"
#include "krv_osal.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
constexpr uint32_t kMaxNestedLayer = 20;
constexpr size_t kMaxStringLen = 4096;
// Documents within the nesting limit never need more frames than this, so they allocate none.
constexpr uint32_t kInlineFrames = 24;
// Not a status: the container on top of the frame stack needs its next child parsed.
constexpr uint32_t kNeedChild = 0xFFFFFFFFu;

// Deliberately one plain process-wide value: parses must not run concurrently, and a value parse
// that does not start a document (the array setter) continues from wherever the last one left it.
uint32_t g_nestedLayer = 0;

using krv::json::Cursor;
using krv::json::MemberList;

struct Frame {
    KrvJson *node;               // the container, owning every child attached so far
    uint32_t level;              // the nesting counter on entry to the container
    MemberList members;          // tail of the child list (and, for objects, the name index)
    char name[KRV_JSON_KEY_LEN];  // objects: name of the member whose value is being parsed
};

struct FrameStack {
    Frame *frames;
    uint32_t depth;
    uint32_t capacity;
    Frame inlineFrames[kInlineFrames];
};

/* The byte at pos, or NUL once the cursor has skipped past the terminator. */
char ByteAt(const Cursor *cursor)
{
    return cursor->pos < cursor->len ? cursor->text[cursor->pos] : '\0';
}

bool IsDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

uint32_t LiteralCreate(uint32_t valueType, KrvJson **value)
{
    *value = krv::json::Create(valueType);
    return *value != nullptr ? 0 : 12;
}

/* Digits with at most one dot, converted by strtod. An out-of-range value fails silently: the caller
 * reports the whole parse. */
uint32_t NumberParse(Cursor *cursor, KrvJson **value)
{
    uint32_t start = cursor->pos;
    bool dotSeen = false;
    for (; cursor->pos < cursor->len; ++cursor->pos) {
        char byte = cursor->text[cursor->pos];
        if (byte == '.' && !dotSeen) {
            dotSeen = true;
        } else if (!IsDigit(byte)) {
            break;
        }
    }
    size_t digits = cursor->pos - start;
    auto *copy = static_cast<char *>(KRV_OsalMemAlloc(digits + 1));
    if (copy == nullptr) {
        KRV_DIAG(12, "Krv Json Number Parse malloc failed");
        return 12;
    }
    int rc = krv::strncpy_s(copy, digits + 1, cursor->text + start, digits);
    if (rc != 0) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(1, "strncpy copy failed, errorcode: %d", rc);
        return 1;
    }
    errno = 0;
    double number = std::strtod(copy, nullptr);
    int convError = errno;
    KRV_OsalMemFree(copy);
    if (convError != 0) {
        return 1;
    }
    *value = krv::json::Create(KRV_JSON_NUMBER);
    if (*value == nullptr) {
        return 12;
    }
    (*value)->numberValue = number;
    return 0;
}

/* Everything up to the next double quote is the string; no byte is an escape. */
uint32_t StringParse(Cursor *cursor, KrvJson **value)
{
    krv::json::SkipWhitespace(cursor);
    char quote = ByteAt(cursor);
    if (quote != '"' || cursor->pos + 1 >= cursor->len) {
        KRV_DIAG(1, "offset:%c isn't \"", quote);
        return 1;
    }
    const char *first = cursor->text + cursor->pos + 1;
    const char *end = static_cast<const char *>(std::memchr(first, '"', cursor->len - 1 - (cursor->pos + 1)));
    if (end == nullptr) {
        KRV_DIAG(1, "idx:%u isn't vaild", cursor->len - 1);
        return 1;
    }
    size_t length = static_cast<size_t>(end - first);
    if (length > kMaxStringLen) {
        KRV_DIAG(1, "strLen:%zu > MAXPATH", length);
        return 1;
    }
    auto *copy = static_cast<char *>(KRV_OsalMemAlloc(length + 1));
    if (copy == nullptr) {
        KRV_DIAG(12, "Krv Json String Parse malloc failed");
        return 12;
    }
    int rc = krv::strncpy_s(copy, length + 1, first, length);
    if (rc != 0) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(1, "strncpy copy failed, errorcode: %d", rc);
        return 1;
    }
    *value = krv::json::Create(KRV_JSON_STRING);
    if (*value == nullptr) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(12, "string json create failed");
        return 12;
    }
    (*value)->stringValue = copy;
    cursor->pos += static_cast<uint32_t>(length) + 2;
    return 0;
}

/* A member name is parsed as a string and kept in a 32-byte buffer; the colon must follow. */
uint32_t MemberNameParse(Cursor *cursor, char *name)
{
    KrvJson *text = nullptr;
    uint32_t status = StringParse(cursor, &text);
    if (status != 0) {
        return status;
    }
    int rc = krv::strcpy_s(name, KRV_JSON_KEY_LEN, text->stringValue);
    KRV_JsonDelete(text);
    if (rc != 0) {
        KRV_DIAG(1, "strcpy failed，errcode: %d", rc);
        return 1;
    }
    krv::json::SkipWhitespace(cursor);
    if (ByteAt(cursor) != ':' || cursor->pos + 1 >= cursor->len) {
        KRV_DIAG(1, "next symbol is not \":\"");
        return 1;
    }
    ++cursor->pos;
    return 0;
}

void FrameStackInit(FrameStack *stack)
{
    stack->frames = stack->inlineFrames;
    stack->depth = 0;
    stack->capacity = kInlineFrames;
}

void FrameStackFini(FrameStack *stack)
{
    assert(stack->depth == 0);
    if (stack->frames != stack->inlineFrames) {
        KRV_OsalMemFree(stack->frames);
    }
}

Frame *FrameTop(FrameStack *stack)
{
    assert(stack->depth > 0);
    return &stack->frames[stack->depth - 1];
}

/* Only a text nested deeper than any acceptable document gets here, so doubling keeps the total
 * copying linear in the depth. */
bool FrameStackGrow(FrameStack *stack)
{
    uint64_t oldBytes = static_cast<uint64_t>(stack->capacity) * sizeof(Frame);
    uint64_t newBytes = oldBytes * 2;
    void *grown;
    if (stack->frames == stack->inlineFrames) {
        grown = KRV_OsalMemAlloc(newBytes);
        if (grown != nullptr && krv::memcpy_s(grown, newBytes, stack->inlineFrames, oldBytes) != 0) {
            KRV_OsalMemFree(grown);
            grown = nullptr;
        }
    } else {
        grown = KRV_OsalMemRealloc(stack->frames, newBytes, oldBytes);
    }
    if (grown == nullptr) {
        return false;
    }
    stack->frames = static_cast<Frame *>(grown);
    stack->capacity *= 2;
    return true;
}

/* Frees the container on top, with everything attached to it, and pops it. */
void FrameDrop(FrameStack *stack)
{
    Frame *top = FrameTop(stack);
    KRV_JsonDelete(top->node);
    krv::json::MemberListFini(&top->members);
    --stack->depth;
}

/* After '[' or '{': an empty container is complete at once, any other becomes the top frame. */
uint32_t ContainerOpen(Cursor *cursor, FrameStack *stack, KrvJson **value)
{
    bool isArray = cursor->text[cursor->pos] == '[';
    ++cursor->pos;
    krv::json::SkipWhitespace(cursor);
    if (cursor->pos >= cursor->len) {
        KRV_DIAG(1, "idx isn't vaild");
        return 1;
    }
    KrvJson *node = krv::json::Create(isArray ? KRV_JSON_ARRAY : KRV_JSON_OBJECT);
    if (node == nullptr) {
        return 12;
    }
    if (cursor->text[cursor->pos] == (isArray ? ']' : '}') && cursor->pos + 1 < cursor->len) {
        ++cursor->pos;
        *value = node;
        return 0;
    }
    if (stack->depth == stack->capacity && !FrameStackGrow(stack)) {
        KRV_JsonDelete(node);
        KRV_DIAG(12, "Krv Json Value Parse malloc failed");
        return 12;
    }
    Frame *frame = &stack->frames[stack->depth++];
    krv::memset_s(frame, sizeof(*frame), 0, sizeof(*frame));
    frame->node = node;
    frame->level = g_nestedLayer;
    return kNeedChild;
}

/* Starts one value: a scalar or an empty container completes into *value (status 0); a container
 * with content is pushed and kNeedChild returned; a failure leaves *value null. */
uint32_t ValueOpen(Cursor *cursor, FrameStack *stack, KrvJson **value)
{
    *value = nullptr;
    krv::json::SkipWhitespace(cursor);
    ++g_nestedLayer;
    // Literals are matched as prefixes: the byte after them is the caller's business.
    const char *at = cursor->text + cursor->pos;
    if (cursor->pos + 4 < cursor->len && std::memcmp(at, "null", 4) == 0) {
        cursor->pos += 4;
        return LiteralCreate(KRV_JSON_NULL, value);
    }
    if (cursor->pos + 4 < cursor->len && std::memcmp(at, "true", 4) == 0) {
        cursor->pos += 4;
        return LiteralCreate(KRV_JSON_TRUE, value);
    }
    if (cursor->pos + 5 < cursor->len && std::memcmp(at, "false", 5) == 0) {
        cursor->pos += 5;
        return LiteralCreate(KRV_JSON_FALSE, value);
    }
    if (cursor->pos < cursor->len && IsDigit(*at)) {
        return NumberParse(cursor, value);
    }
    if (cursor->pos + 1 < cursor->len) {
        switch (*at) {
            case '"':
                return StringParse(cursor, value);
            case '[':
            case '{':
                return ContainerOpen(cursor, stack, value);
            default:
                break;
        }
    }
    KRV_DIAG(1, "valuetype isn't match, parser err");
    return 1;
}

/* The top container begins its next child: an object reads the member name and colon first. A
 * failure there fails the container itself, which is dropped. */
uint32_t ChildOpen(Cursor *cursor, FrameStack *stack, KrvJson **value)
{
    Frame *top = FrameTop(stack);
    if (top->node->valueType == KRV_JSON_OBJECT) {
        uint32_t status = MemberNameParse(cursor, top->name);
        if (status != 0) {
            FrameDrop(stack);
            *value = nullptr;
            return status;
        }
    }
    g_nestedLayer = top->level;
    return ValueOpen(cursor, stack, value);
}

/* Takes ownership of element: the first one fixes the array's type, true and false counting apart. */
uint32_t ElementAttach(Frame *top, KrvJson *element)
{
    KrvJson *array = top->node;
    if (array->arrLen != 0 && element->valueType != array->arrType) {
        KRV_DIAG(1, "arrType:%u, type:%u", array->arrType, element->valueType);
        KRV_JsonDelete(element);
        return 1;
    }
    array->arrType = element->valueType;
    ++array->arrLen;
    KrvJsonChild *link = krv::json::ChildInit(element);
    if (link == nullptr) {
        KRV_JsonDelete(element);
        return 12;
    }
    if (top->members.tail != nullptr) {
        top->members.tail->next = link;
    } else {
        array->child = link;
    }
    top->members.tail = link;
    return 0;
}

/* After a child: ',' asks for the next one (kNeedChild), the closing bracket completes the
 * container (0); both step the counter back by one. */
uint32_t SeparatorTake(Cursor *cursor, bool isArray)
{
    char byte = ByteAt(cursor);
    char close = isArray ? ']' : '}';
    if (cursor->pos + 1 < cursor->len && (byte == ',' || byte == close)) {
        --g_nestedLayer;
        ++cursor->pos;
        return byte == ',' ? kNeedChild : 0;
    }
    if (isArray) {
        KRV_DIAG(1, "offset: %c isn't ]", byte);
    } else {
        KRV_DIAG(1, "next symbol is not \"}\"");
    }
    return 1;
}

/* Hands the result of the top container's child to it. Returns kNeedChild when the container wants
 * another child, 0 with *value set to the finished container, or a failure with the container
 * dropped and *value null. */
uint32_t ChildClose(Cursor *cursor, FrameStack *stack, uint32_t childStatus, KrvJson **value)
{
    Frame *top = FrameTop(stack);
    bool isArray = top->node->valueType == KRV_JSON_ARRAY;
    uint32_t status = childStatus;
    if (status == 0) {
        if (isArray) {
            status = ElementAttach(top, *value);
        } else {
            status = krv::json::MemberAttach(top->name, *value, top->node, &top->members);
            if (status != 0) {
                KRV_JsonDelete(*value);
            }
        }
    }
    if (status == 0) {
        krv::json::SkipWhitespace(cursor);
        if (g_nestedLayer > kMaxNestedLayer) {
            KRV_DIAG(1, "The max nested layer json supported is %u", kMaxNestedLayer);
            status = 1;
        }
    }
    if (status == 0) {
        status = SeparatorTake(cursor, isArray);
    }
    if (status == kNeedChild) {
        return status;
    }
    *value = nullptr;
    if (status == 0) {
        *value = top->node;
        krv::json::MemberListFini(&top->members);
        --stack->depth;
    } else {
        FrameDrop(stack);
    }
    return status;
}

}  // namespace

namespace krv {
namespace json {

void NestedLayerReset()
{
    g_nestedLayer = 0;
}

/* Each pass of the loop is one step the recursive descent would take: start a child of the top
 * container, or hand a finished child (or its failure) back to it. A failure unwinds the frames one
 * by one, each freeing what it built, exactly as returning through the recursion would. */
uint32_t ValueParse(Cursor *cursor, KrvJson **out)
{
    FrameStack stack;
    FrameStackInit(&stack);
    KrvJson *value = nullptr;
    uint32_t status = ValueOpen(cursor, &stack, &value);
    while (status == kNeedChild || stack.depth > 0) {
        if (status == kNeedChild) {
            status = ChildOpen(cursor, &stack, &value);
        } else {
            status = ChildClose(cursor, &stack, status, &value);
        }
    }
    FrameStackFini(&stack);
    *out = value;
    return status;
}

}  // namespace json
}  // namespace krv
