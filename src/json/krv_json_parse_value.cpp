// The value parser: literals, numbers, strings, and arrays and objects nested to any depth.
//
// The dialect is defined by a recursive descent whose nesting check runs only after a child has been
// parsed, so a deep text is followed to its bottom before it is refused. To keep that order without
// letting the text decide how much call stack is used, containers under construction live on an
// explicit stack of frames (a few inline, the rest on the heap) and one loop plays the recursion:
// every counter update, check and diagnostic happens in the order the descent would make it.
#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "json/krv_json_internal.h"
#include "json/krv_json_number.h"
#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
constexpr uint32_t kMaxNestedLayer = 20;
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
    char name[KRV_JSON_KEY_LEN];  // objects: name of the member whose value is being parsed, zero-padded
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

/* Consumes word when the text at the cursor starts with it. Compares byte by byte, so it never
 * reads past the terminating NUL, which matches no letter; a literal that matches therefore lies
 * inside the text. The byte after it is left to the caller. */
bool LiteralTake(Cursor *cursor, const char *word)
{
    const char *at = cursor->text + cursor->pos;
    uint32_t length = 0;
    for (; word[length] != '\0'; ++length) {
        if (at[length] != word[length]) {
            return false;
        }
    }
    cursor->pos += length;
    return true;
}

uint32_t LiteralCreate(uint32_t valueType, KrvJson **value)
{
    *value = krv::json::Create(valueType);
    return *value != nullptr ? KRV_OK : KRV_ERR_NOMEM;
}

/* Copies length bytes of text into a new terminated block in *copy. nomemText is the caller's own
 * out-of-memory line. */
uint32_t TextCopy(const char *text, size_t length, const char *nomemText, char **copy)
{
    auto *block = static_cast<char *>(krv::OsalMemAlloc(length + 1));
    if (block == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "%s", nomemText);
        return KRV_ERR_NOMEM;
    }
    int rc = krv::strncpy_s(block, length + 1, text, length);
    if (rc != 0) {
        krv::OsalMemFree(block);
        KRV_DIAG(KRV_ERR_FAILED, "strncpy copy failed, errorcode: %d", rc);
        return KRV_ERR_FAILED;
    }
    *copy = block;
    return KRV_OK;
}

/* The numbers DecimalScan cannot convert exactly go to strtod on a terminated copy. An
 * out-of-range value fails silently: the caller reports the whole parse. */
uint32_t NumberConvert(const char *digits, uint32_t length, double *number)
{
    char *copy = nullptr;
    uint32_t status = TextCopy(digits, length, "Krv Json Number Parse malloc failed", &copy);
    if (status != KRV_OK) {
        return status;
    }
    errno = 0;
    *number = std::strtod(copy, nullptr);
    int convError = errno;
    krv::OsalMemFree(copy);
    return convError != 0 ? KRV_ERR_FAILED : KRV_OK;
}

/* Digits with at most one dot: a trailing dot is taken, a second dot ends the number. */
uint32_t NumberParse(Cursor *cursor, KrvJson **value)
{
    const char *digits = cursor->text + cursor->pos;
    krv::json::Decimal number = krv::json::DecimalScan(digits);
    assert(cursor->pos + number.length < cursor->len);
    cursor->pos += number.length;
    if (!number.exact) {
        uint32_t status = NumberConvert(digits, number.length, &number.value);
        if (status != KRV_OK) {
            return status;
        }
    }
    *value = krv::json::Create(KRV_JSON_NUMBER);
    if (*value == nullptr) {
        return KRV_ERR_NOMEM;
    }
    (*value)->numberValue = number.value;
    return KRV_OK;
}

/* The first double quote in [from, last), or null; last is the terminating NUL. Names and most
 * values are short, so the first bytes are looked at here before memchr is called for the rest. */
const char *QuoteFind(const char *from, const char *last)
{
    constexpr ptrdiff_t kInlineScan = 16;
    const char *inlineEnd = last - from > kInlineScan ? from + kInlineScan : last;
    for (const char *p = from; p != inlineEnd; ++p) {
        if (*p == '"') {
            return p;
        }
    }
    return static_cast<const char *>(std::memchr(inlineEnd, '"', static_cast<size_t>(last - inlineEnd)));
}

/* After optional blanks a double quote opens the string, and everything up to the next double
 * quote is its content, at most kMaxStringLen bytes; no byte is an escape. On success *first and
 * *length describe the content; the caller moves the cursor past the closing quote. */
uint32_t StringScan(Cursor *cursor, const char **first, size_t *length)
{
    krv::json::SkipWhitespace(cursor);
    char quote = ByteAt(cursor);
    if (quote != '"' || cursor->pos + 1 >= cursor->len) {
        KRV_DIAG(KRV_ERR_FAILED, "offset:%c isn't \"", quote);
        return KRV_ERR_FAILED;
    }
    const char *begin = cursor->text + cursor->pos + 1;
    const char *end = QuoteFind(begin, cursor->text + cursor->len - 1);
    if (end == nullptr) {
        KRV_DIAG(KRV_ERR_FAILED, "idx:%u isn't vaild", cursor->len - 1);
        return KRV_ERR_FAILED;
    }
    *first = begin;
    *length = static_cast<size_t>(end - begin);
    if (*length > krv::json::kMaxStringLen) {
        KRV_DIAG(KRV_ERR_FAILED, "strLen:%zu > MAXPATH", *length);
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

/* A string value: its text is copied into a block of its own. */
uint32_t StringParse(Cursor *cursor, KrvJson **value)
{
    const char *first = nullptr;
    size_t length = 0;
    uint32_t status = StringScan(cursor, &first, &length);
    if (status != KRV_OK) {
        return status;
    }
    char *copy = nullptr;
    status = TextCopy(first, length, "Krv Json String Parse malloc failed", &copy);
    if (status != KRV_OK) {
        return status;
    }
    *value = krv::json::Create(KRV_JSON_STRING);
    if (*value == nullptr) {
        krv::OsalMemFree(copy);
        KRV_DIAG(KRV_ERR_NOMEM, "string json create failed");
        return KRV_ERR_NOMEM;
    }
    (*value)->stringValue = copy;
    cursor->pos += static_cast<uint32_t>(length) + 2;
    return KRV_OK;
}

/* A member name is read like a string, straight into the 32-byte name buffer (zero-padded, so the
 * repeat check can compare whole buffers); the colon must follow. */
uint32_t MemberNameParse(Cursor *cursor, char *name)
{
    const char *first = nullptr;
    size_t length = 0;
    uint32_t status = StringScan(cursor, &first, &length);
    if (status != KRV_OK) {
        return status;
    }
    std::memset(name, 0, KRV_JSON_KEY_LEN);
    int rc = krv::strncpy_s(name, KRV_JSON_KEY_LEN, first, length);
    if (rc != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "strcpy failed，errcode: %d", rc);
        return KRV_ERR_FAILED;
    }
    cursor->pos += static_cast<uint32_t>(length) + 2;
    krv::json::SkipWhitespace(cursor);
    if (ByteAt(cursor) != ':' || cursor->pos + 1 >= cursor->len) {
        KRV_DIAG(KRV_ERR_FAILED, "next symbol is not \":\"");
        return KRV_ERR_FAILED;
    }
    ++cursor->pos;
    return KRV_OK;
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
        krv::OsalMemFree(stack->frames);
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
        grown = krv::OsalMemAlloc(newBytes);
        if (grown != nullptr && krv::memcpy_s(grown, newBytes, stack->inlineFrames, oldBytes) != 0) {
            krv::OsalMemFree(grown);
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
        KRV_DIAG(KRV_ERR_FAILED, "idx isn't vaild");
        return KRV_ERR_FAILED;
    }
    KrvJson *node = krv::json::Create(isArray ? KRV_JSON_ARRAY : KRV_JSON_OBJECT);
    if (node == nullptr) {
        return KRV_ERR_NOMEM;
    }
    if (cursor->text[cursor->pos] == (isArray ? ']' : '}') && cursor->pos + 1 < cursor->len) {
        ++cursor->pos;
        *value = node;
        return KRV_OK;
    }
    if (stack->depth == stack->capacity && !FrameStackGrow(stack)) {
        KRV_JsonDelete(node);
        KRV_DIAG(KRV_ERR_NOMEM, "Krv Json Value Parse malloc failed");
        return KRV_ERR_NOMEM;
    }
    Frame *frame = &stack->frames[stack->depth++];
    frame->node = node;
    frame->level = g_nestedLayer;
    frame->members = MemberList{};
    return kNeedChild;
}

/* No value starts at the cursor (a cut literal included). */
uint32_t ValueMismatch()
{
    KRV_DIAG(KRV_ERR_FAILED, "valuetype isn't match, parser err");
    return KRV_ERR_FAILED;
}

/* Starts one value: a scalar or an empty container completes into *value (KRV_OK); a container
 * with content is pushed and kNeedChild returned; a failure leaves *value null. */
uint32_t ValueOpen(Cursor *cursor, FrameStack *stack, KrvJson **value)
{
    *value = nullptr;
    krv::json::SkipWhitespace(cursor);
    ++g_nestedLayer;
    if (cursor->pos < cursor->len) {
        const char *at = cursor->text + cursor->pos;
        switch (*at) {
            case 'n':
                return LiteralTake(cursor, "null") ? LiteralCreate(KRV_JSON_NULL, value) : ValueMismatch();
            case 't':
                return LiteralTake(cursor, "true") ? LiteralCreate(KRV_JSON_TRUE, value) : ValueMismatch();
            case 'f':
                return LiteralTake(cursor, "false") ? LiteralCreate(KRV_JSON_FALSE, value) : ValueMismatch();
            case '"':
                return StringParse(cursor, value);
            case '[':
            case '{':
                return ContainerOpen(cursor, stack, value);
            default:
                if (*at >= '0' && *at <= '9') {
                    return NumberParse(cursor, value);
                }
                break;
        }
    }
    return ValueMismatch();
}

/* The top container begins its next child: an object reads the member name and colon first. A
 * failure there fails the container itself, which is dropped. */
uint32_t ChildOpen(Cursor *cursor, FrameStack *stack, KrvJson **value)
{
    Frame *top = FrameTop(stack);
    if (top->node->valueType == KRV_JSON_OBJECT) {
        uint32_t status = MemberNameParse(cursor, top->name);
        if (status != KRV_OK) {
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
        KRV_DIAG(KRV_ERR_FAILED, "arrType:%u, type:%u", array->arrType, element->valueType);
        KRV_JsonDelete(element);
        return KRV_ERR_FAILED;
    }
    array->arrType = element->valueType;
    ++array->arrLen;
    KrvJsonChild *link = krv::json::ChildInit(element);
    if (link == nullptr) {
        KRV_JsonDelete(element);
        return KRV_ERR_NOMEM;
    }
    if (top->members.tail != nullptr) {
        top->members.tail->next = link;
    } else {
        array->child = link;
    }
    top->members.tail = link;
    return KRV_OK;
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
        return byte == ',' ? kNeedChild : KRV_OK;
    }
    if (isArray) {
        KRV_DIAG(KRV_ERR_FAILED, "offset: %c isn't ]", byte);
    } else {
        KRV_DIAG(KRV_ERR_FAILED, "next symbol is not \"}\"");
    }
    return KRV_ERR_FAILED;
}

/* Hands the result of the top container's child to it. Returns kNeedChild when the container wants
 * another child, 0 with *value set to the finished container, or a failure with the container
 * dropped and *value null. */
uint32_t ChildClose(Cursor *cursor, FrameStack *stack, uint32_t childStatus, KrvJson **value)
{
    Frame *top = FrameTop(stack);
    bool isArray = top->node->valueType == KRV_JSON_ARRAY;
    uint32_t status = childStatus;
    if (status == KRV_OK) {
        if (isArray) {
            status = ElementAttach(top, *value);
        } else {
            status = krv::json::MemberAttach(top->name, *value, top->node, &top->members);
            if (status != KRV_OK) {
                KRV_JsonDelete(*value);
            }
        }
    }
    if (status == KRV_OK) {
        krv::json::SkipWhitespace(cursor);
        if (g_nestedLayer > kMaxNestedLayer) {
            KRV_DIAG(KRV_ERR_FAILED, "The max nested layer json supported is %u", kMaxNestedLayer);
            status = KRV_ERR_FAILED;
        }
    }
    if (status == KRV_OK) {
        status = SeparatorTake(cursor, isArray);
    }
    if (status == kNeedChild) {
        return status;
    }
    *value = nullptr;
    if (status == KRV_OK) {
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
    // Scanners stop at the terminator instead of testing the bound at every byte.
    assert(cursor->len > 0 && cursor->text[cursor->len - 1] == '\0');
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
