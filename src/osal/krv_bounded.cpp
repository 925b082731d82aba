// Bounded copy and format functions; see krv_bounded.h for the contract.
#include "osal/krv_bounded.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

namespace krv {
namespace {

constexpr int kErrInval = EINVAL;
constexpr int kErrRange = ERANGE;
constexpr int kErrOverlap = 54;  // the conventional EOVERLAP of bounded-function libraries

bool Overlaps(const void *a, size_t aLen, const void *b, size_t bLen)
{
    auto pa = reinterpret_cast<uintptr_t>(a);
    auto pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + bLen && pb < pa + aLen;
}

// Checks a string destination before any write: usable pointer and plausible capacity.
bool DestUsable(const char *dest, size_t destMax)
{
    return dest != nullptr && destMax != 0 && destMax <= kRsizeMax;
}

// FormatPlain's results besides a length.
constexpr int kPlainTooLong = -1;
constexpr int kPlainUnsupported = -2;

enum class IntSize { kInt, kLong, kLongLong, kSize };

// The value of the next integer argument of the given size, widened; signed ones sign-extended.
int64_t SignedArg(va_list *args, IntSize size)
{
    switch (size) {
        case IntSize::kLong: return va_arg(*args, long);
        case IntSize::kLongLong: return va_arg(*args, long long);
        case IntSize::kSize: return va_arg(*args, std::make_signed_t<size_t>);
        default: return va_arg(*args, int);
    }
}

uint64_t UnsignedArg(va_list *args, IntSize size)
{
    switch (size) {
        case IntSize::kLong: return va_arg(*args, unsigned long);
        case IntSize::kLongLong: return va_arg(*args, unsigned long long);
        case IntSize::kSize: return va_arg(*args, size_t);
        default: return va_arg(*args, unsigned int);
    }
}

// Writes value's digits so that they end just before end; returns where they begin. The base is a
// constant so that no digit costs a divide instruction.
template <unsigned kBase>
char *DigitsBefore(char *end, uint64_t value, bool upper)
{
    const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    do {
        *--end = digits[value % kBase];
        value /= kBase;
    } while (value != 0);
    return end;
}

// Formats fmt into dest (room for limit characters and a terminator) for the conversions that
// diagnostics use most, without the C library's stream set-up, which costs more than the text:
// %%, %s (not null), %c, %d, %i, %u, %x and %X, the integer ones optionally with l, ll or z, and no
// flags, width or precision. Returns the length, kPlainTooLong when the text exceeds limit, or
// kPlainUnsupported at any other conversion, leaving that to vsnprintf. For what it accepts the text
// is the C library's byte for byte.
int FormatPlain(char *dest, size_t limit, const char *fmt, va_list *args)
{
    limit = std::min<size_t>(limit, INT_MAX);  // vsnprintf cannot report longer results either
    size_t used = 0;
    auto put = [dest, limit, &used](const char *text, size_t len) {
        if (len > limit - used) {
            return false;
        }
        std::memcpy(dest + used, text, len);
        used += len;
        return true;
    };
    for (const char *p = fmt; *p != '\0';) {
        if (*p != '%') {
            const char *literal = p;
            p = strchrnul(p, '%');
            if (!put(literal, static_cast<size_t>(p - literal))) {
                return kPlainTooLong;
            }
            continue;
        }
        ++p;
        IntSize size = IntSize::kInt;
        if (*p == 'l') {
            size = p[1] == 'l' ? IntSize::kLongLong : IntSize::kLong;
            p += size == IntSize::kLongLong ? 2 : 1;
        } else if (*p == 'z') {
            size = IntSize::kSize;
            ++p;
        }
        char number[24];  // the 20 digits of 2^64 - 1, or a sign and 19 digits
        char *const numberEnd = number + sizeof(number);
        const char *text = number;
        size_t len = 0;
        const char conversion = *p++;
        if (size != IntSize::kInt && std::strchr("diuxX", conversion) == nullptr) {
            return kPlainUnsupported;  // also a '%' that ends the format
        }
        switch (conversion) {
            case '%':
                text = "%";
                len = 1;
                break;
            case 's':
                text = va_arg(*args, const char *);
                if (text == nullptr) {
                    return kPlainUnsupported;  // the C library's own placeholder
                }
                len = std::strlen(text);
                break;
            case 'c':
                number[0] = static_cast<char>(va_arg(*args, int));
                len = 1;
                break;
            case 'd':
            case 'i': {
                int64_t value = SignedArg(args, size);
                uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
                char *begin = DigitsBefore<10>(numberEnd, magnitude, false);
                if (value < 0) {
                    *--begin = '-';
                }
                text = begin;
                len = static_cast<size_t>(numberEnd - begin);
                break;
            }
            case 'u':
            case 'x':
            case 'X': {
                const uint64_t value = UnsignedArg(args, size);
                char *begin = conversion == 'u' ? DigitsBefore<10>(numberEnd, value, false)
                                                : DigitsBefore<16>(numberEnd, value, conversion == 'X');
                text = begin;
                len = static_cast<size_t>(numberEnd - begin);
                break;
            }
            default:
                return kPlainUnsupported;
        }
        if (!put(text, len)) {
            return kPlainTooLong;
        }
    }
    dest[used] = '\0';
    return static_cast<int>(used);
}

}  // namespace

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count)
{
    if (dest == nullptr || destMax > kRsizeMax) {
        return kErrInval;
    }
    if (src == nullptr) {
        std::memset(dest, 0, destMax);
        return kErrInval;
    }
    if (count > destMax) {
        std::memset(dest, 0, destMax);
        return kErrRange;
    }
    if (count != 0 && Overlaps(dest, count, src, count)) {
        std::memset(dest, 0, destMax);
        return kErrOverlap;
    }
    if (count != 0) {
        std::memcpy(dest, src, count);
    }
    return 0;
}

int memset_s(void *dest, size_t destMax, int c, size_t count)
{
    if (dest == nullptr || destMax > kRsizeMax) {
        return kErrInval;
    }
    if (count > destMax) {
        std::memset(dest, c, destMax);
        return kErrRange;
    }
    std::memset(dest, c, count);
    return 0;
}

int strncpy_s(char *dest, size_t destMax, const char *src, size_t count)
{
    if (!DestUsable(dest, destMax)) {
        return kErrInval;
    }
    if (src == nullptr || count > kRsizeMax) {
        dest[0] = '\0';
        return kErrInval;
    }
    size_t len = strnlen(src, count);
    if (len >= destMax) {
        dest[0] = '\0';
        return kErrRange;
    }
    if (Overlaps(dest, len + 1, src, len)) {
        dest[0] = '\0';
        return kErrOverlap;
    }
    std::memcpy(dest, src, len);
    dest[len] = '\0';
    return 0;
}

int strcpy_s(char *dest, size_t destMax, const char *src)
{
    return strncpy_s(dest, destMax, src, kRsizeMax);
}

int strcat_s(char *dest, size_t destMax, const char *src)
{
    if (!DestUsable(dest, destMax)) {
        return kErrInval;
    }
    size_t used = strnlen(dest, destMax);
    if (used == destMax) {
        dest[0] = '\0';
        return kErrInval;
    }
    int rc = strncpy_s(dest + used, destMax - used, src, kRsizeMax);
    if (rc != 0) {
        dest[0] = '\0';
    }
    return rc;
}

int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *fmt, va_list args)
{
    if (!DestUsable(dest, destMax)) {
        return -1;
    }
    if (fmt == nullptr) {
        dest[0] = '\0';
        return -1;
    }
    va_list plainArgs;
    va_copy(plainArgs, args);
    int len = FormatPlain(dest, std::min(destMax - 1, count), fmt, &plainArgs);
    va_end(plainArgs);
    if (len == kPlainUnsupported) {
        len = std::vsnprintf(dest, destMax, fmt, args);
    }
    if (len < 0 || static_cast<size_t>(len) >= destMax || static_cast<size_t>(len) > count) {
        dest[0] = '\0';
        return -1;
    }
    return len;
}

int snprintf_s(char *dest, size_t destMax, size_t count, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int len = vsnprintf_s(dest, destMax, count, fmt, args);
    va_end(args);
    return len;
}

int sprintf_s(char *dest, size_t destMax, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int len = vsnprintf_s(dest, destMax, kRsizeMax, fmt, args);
    va_end(args);
    return len;
}

int sscanf_s(const char *buffer, const char *fmt, ...)
{
    if (buffer == nullptr || fmt == nullptr) {
        return -1;
    }
    // Text conversions write an unknown number of bytes; only numeric ones are bounded by type.
    for (const char *p = fmt; *p != '\0'; ++p) {
        if (*p != '%') {
            continue;
        }
        ++p;
        if (*p == '%') {
            continue;
        }
        while (*p != '\0' && std::strchr("*0123456789hljztL", *p) != nullptr) {
            ++p;
        }
        if (*p == 's' || *p == 'c' || *p == '[' || *p == '\0') {
            return -1;
        }
    }
    va_list args;
    va_start(args, fmt);
    int assigned = std::vsscanf(buffer, fmt, args);
    va_end(args);
    return assigned == EOF ? -1 : assigned;
}

}  // namespace krv
