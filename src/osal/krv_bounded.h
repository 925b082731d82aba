// Bounded copy and format functions in the manner of ISO C11 Annex K.
//
// Every copy into library-owned memory and every formatted write into a fixed buffer goes through
// these. Each returns 0 on success and a non-zero errno-like value on failure (the formatting ones
// return -1); none of them ever truncates: a copy or format that does not fit fails whole and leaves
// an empty destination behind.
#ifndef KRV_BOUNDED_H
#define KRV_BOUNDED_H

#include <cstdarg>
#include <cstddef>

namespace krv {

// Largest buffer size accepted; anything larger is taken for a negative length gone unsigned.
constexpr size_t kRsizeMax = static_cast<size_t>(-1) >> 1;

// Copies count bytes from src into dest (capacity destMax). Fails on null pointers, count > destMax,
// destMax > kRsizeMax or overlapping ranges; on failure dest is zero-filled when it is usable.
int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
// Fills count bytes of dest (capacity destMax) with c. Fails on null dest or count > destMax
// (after filling destMax bytes, as Annex K does).
int memset_s(void *dest, size_t destMax, int c, size_t count);
// Copies the string src with its terminator into dest. Fails when it does not fit; dest becomes "".
int strcpy_s(char *dest, size_t destMax, const char *src);
// Copies at most count characters of src and a terminator into dest. Fails when they do not fit.
int strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
// Appends src to the string in dest. Fails when dest holds no terminator or the result does not fit.
int strcat_s(char *dest, size_t destMax, const char *src);

// Formats into dest; returns the length written, or -1 when the text (with terminator) would not fit
// in destMax or fmt is null. dest becomes "" on failure.
int sprintf_s(char *dest, size_t destMax, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
// As sprintf_s but also refuses results longer than count characters.
int snprintf_s(char *dest, size_t destMax, size_t count, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *fmt, va_list args)
    __attribute__((format(printf, 4, 0)));
// Scans buffer with a format of numeric conversions only; returns the number of fields assigned,
// or -1 for null arguments, input failure, or a text conversion (%s, %c, %[) whose bound the
// function cannot check.
int sscanf_s(const char *buffer, const char *fmt, ...) __attribute__((format(scanf, 2, 3)));

}  // namespace krv

#endif  // KRV_BOUNDED_H
