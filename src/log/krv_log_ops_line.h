// File log backend, line text: the time stamp and the queued line, built without printf.
//
// The stamp's date and time change once a second, so each thread formats them once a second and
// only the microseconds per line. The line is laid out by hand, byte for byte what
// "[%s][%u][0x%x][%s:%u]%s\n" would give, after its full length has been checked against the
// buffer: like the bounded formatters, it fails whole and never truncates.
#ifndef KRV_LOG_OPS_LINE_H
#define KRV_LOG_OPS_LINE_H

#include <cstddef>
#include <cstdint>

namespace krv::logops {

constexpr size_t kStampBufSize = 40;

// Writes the current local time as "%4d.%02d.%02d %02d:%02d:%02d.%06ld" into stamp (kStampBufSize
// bytes, terminated); returns its length, or 0 when it could not be formatted.
size_t StampNow(char *stamp);

// The pieces of one line, in the order they appear.
struct LinePieces {
    const char *stamp;
    size_t stampLen;
    uint32_t level;
    uint32_t errCode;
    const char *file;
    size_t fileLen;
    uint32_t line;
    const char *msg;
    size_t msgLen;
};

// Writes the line and a terminator into out (capacity size); returns the line's length, or -1 with
// out emptied when it would need more than size - 1 characters.
int LineFormat(char *out, size_t size, const LinePieces &pieces);

}  // namespace krv::logops

#endif  // KRV_LOG_OPS_LINE_H
