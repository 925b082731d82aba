// File log backend, line text: see krv_log_ops_line.h.
#include "log/krv_log_ops_line.h"

#include <sys/time.h>

#include <cassert>
#include <climits>
#include <cstring>
#include <ctime>

#include "osal/krv_bounded.h"

namespace krv::logops {
namespace {

constexpr size_t kUsecDigits = 6;

// The date and time part of the stamp for one second, "YYYY.MM.DD hh:mm:ss.", per thread so that
// producers share nothing; refreshed when the second changes.
struct StampCache {
    bool valid;
    time_t second;
    size_t headLen;
    char head[kStampBufSize];
};

thread_local StampCache t_stamp = {};

// Number of digits of value in base (10 or 16), at least minDigits.
size_t DigitCount(uint64_t value, unsigned base, size_t minDigits = 1)
{
    size_t count = 1;
    for (uint64_t rest = value / base; rest != 0; rest /= base) {
        ++count;
    }
    return count > minDigits ? count : minDigits;
}

// Writes value in base with exactly `count` digits (lower-case hex, zero-padded) and returns the
// position after them; count must be DigitCount's result for value.
char *PutDigits(char *out, uint64_t value, unsigned base, size_t count)
{
    static const char kDigits[] = "0123456789abcdef";
    for (size_t i = count; i > 0; --i) {
        out[i - 1] = kDigits[value % base];
        value /= base;
    }
    return out + count;
}

char *PutText(char *out, const char *text, size_t len)
{
    std::memcpy(out, text, len);
    return out + len;
}

}  // namespace

size_t StampNow(char *stamp)
{
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    StampCache &cache = t_stamp;
    if (!cache.valid || cache.second != now.tv_sec) {
        struct tm local = {};
        time_t seconds = now.tv_sec;
        localtime_r(&seconds, &local);
        int len = krv::snprintf_s(cache.head, sizeof(cache.head), sizeof(cache.head) - 1, "%4d.%02d.%02d %02d:%02d:%02d.",
                                  local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                                  local.tm_sec);
        cache.valid = len > 0;
        if (!cache.valid) {
            return 0;
        }
        cache.second = now.tv_sec;
        cache.headLen = static_cast<size_t>(len);
    }
    assert(now.tv_usec >= 0);
    uint64_t usec = static_cast<uint64_t>(now.tv_usec);
    size_t usecLen = DigitCount(usec, 10, kUsecDigits);
    if (cache.headLen + usecLen >= kStampBufSize) {
        return 0;
    }
    char *end = PutDigits(PutText(stamp, cache.head, cache.headLen), usec, 10, usecLen);
    *end = '\0';
    return static_cast<size_t>(end - stamp);
}

int LineFormat(char *out, size_t size, const LinePieces &p)
{
    const size_t levelLen = DigitCount(p.level, 10), codeLen = DigitCount(p.errCode, 16),
                 lineLen = DigitCount(p.line, 10);
    // "[" stamp "][" level "][0x" code "][" file ":" line "]" msg "\n"
    const size_t total = 1 + p.stampLen + 2 + levelLen + 4 + codeLen + 2 + p.fileLen + 1 + lineLen + 1 + p.msgLen + 1;
    if (size == 0 || total > size - 1 || total > static_cast<size_t>(INT_MAX)) {
        if (size != 0) {
            out[0] = '\0';
        }
        return -1;
    }
    char *at = PutText(out, "[", 1);
    at = PutText(at, p.stamp, p.stampLen);
    at = PutDigits(PutText(at, "][", 2), p.level, 10, levelLen);
    at = PutDigits(PutText(at, "][0x", 4), p.errCode, 16, codeLen);
    at = PutText(PutText(at, "][", 2), p.file, p.fileLen);
    at = PutDigits(PutText(at, ":", 1), p.line, 10, lineLen);
    at = PutText(PutText(at, "]", 1), p.msg, p.msgLen);
    at = PutText(at, "\n", 1);
    *at = '\0';
    assert(static_cast<size_t>(at - out) == total);
    return static_cast<int>(total);
}

}  // namespace krv::logops
