// Bounded copy and format functions; see krv_bounded.h for the contract.
#include "osal/krv_bounded.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

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
    int len = std::vsnprintf(dest, destMax, fmt, args);
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
