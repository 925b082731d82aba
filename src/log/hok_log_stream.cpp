// Log streams: build one line from a chain of insertions and write it once, when destroyed.
#include <exception>
#include <string>
#include <utility>

#include "hok_log.h"
#include "log/hok_log_report.h"
#include "osal/krv_bounded.h"

namespace {

constexpr size_t kHexBufSize = 64;

// One-letter name of a level, as printed in the prefix and by operator<<(LogLevel).
const char *LevelName(Hok::Log::LogLevel level)
{
    static const char *const kNames[] = {"S", "F", "E", "W", "I", "D", "V"};
    uint8_t index = static_cast<uint8_t>(level);
    return index < sizeof(kNames) / sizeof(kNames[0]) ? kNames[index] : "unknown level";
}

// Formats value with fmt into a zeroed 64-byte buffer and returns its text. A formatting failure is
// reported under `head` and yields "", so that the rest of the line still gets written.
std::string Hex(const char *head, const char *fmt, uint32_t value)
{
    char buf[kHexBufSize] = {};
    int ret = krv::snprintf_s(buf, sizeof(buf), sizeof(buf) - 1, fmt, value);
    if (ret < 1) {
        krv::hoklog::Report(head, " ret:", ret, " failed");
    }
    return buf;
}

// The 64-bit forms: the high half with firstFmt, the low half with "%08X", joined.
std::string Hex64(const char *headHigh, const char *headLow, const char *firstFmt, uint64_t value)
{
    return Hex(headHigh, firstFmt, static_cast<uint32_t>(value >> 32)) +
           Hex(headLow, "%08X", static_cast<uint32_t>(value));
}

// All `width` bits of value as '0'/'1' characters, most significant first.
std::string Bits(uint64_t value, unsigned width)
{
    std::string bits(width, '0');
    for (unsigned k = 0; k < width; ++k) {
        if ((value >> k) & 1u) {
            bits[width - 1 - k] = '1';
        }
    }
    return bits;
}

}  // namespace

namespace Hok {
namespace Log {

// The line under construction; destroying it writes the line.
class HOK_LOG_INTERNAL LogStream::LogStreamImpl {
public:
    LogStreamImpl(LogLevel level, std::string description, std::string ctxId, const std::string &file,
                  uint32_t line)
        : level(level), description(std::move(description)), ctxId(std::move(ctxId)), file(file), line(line)
    {
    }

    ~LogStreamImpl() { KRV_LogWrite(0, level, file.c_str(), line, "%s", message.c_str()); }

    LogStreamImpl(const LogStreamImpl &) = delete;
    LogStreamImpl &operator=(const LogStreamImpl &) = delete;

    LogLevel level;
    std::string description;  // kept with the line though not printed
    std::string ctxId;
    std::string file;
    uint32_t line;
    bool first = true;  // the prefix is still to be added
    std::string message;
};

/* Allocation failures throw out of the constructors into this noexcept boundary, which ends the
 * process: a line is never silently lost. */
LogStream::LogStream(const std::string &file, uint32_t line, LogLevel level, const Logger &logger) noexcept
    : impl_(new LogStreamImpl(level, logger.GetDescription(), logger.GetCtxId(), file, line))
{
}

LogStream::LogStream(LogStream &&other) noexcept : impl_(other.impl_)
{
    other.impl_ = nullptr;
}

LogStream::~LogStream()
{
    delete impl_;
}

/* The prefix is built with the first text, so a stream without insertions writes an empty line. */
LogStream &LogStream::Append(const std::string &text)
{
    if (impl_ == nullptr) {
        return *this;
    }
    if (impl_->first) {
        std::string prefixed;
        prefixed.reserve(impl_->ctxId.size() + text.size() + 20);
        prefixed.append("[").append(impl_->ctxId).append("][").append(LevelName(impl_->level)).append("] > ");
        prefixed.append(text);
        impl_->message.swap(prefixed);
        impl_->first = false;
    } else {
        impl_->message.append(text);
    }
    return *this;
}

LogStream &LogStream::operator<<(bool value) noexcept
{
    return Append(std::string(value ? "true" : "false"));
}

LogStream &LogStream::operator<<(unsigned char value) noexcept
{
    return Append(std::to_string(static_cast<int>(value)));
}

LogStream &LogStream::operator<<(unsigned short value) noexcept
{
    return Append(std::to_string(static_cast<int>(value)));
}

LogStream &LogStream::operator<<(unsigned int value) noexcept
{
    return Append(std::to_string(value));
}

LogStream &LogStream::operator<<(unsigned long value) noexcept
{
    return Append(std::to_string(value));
}

/* A signed char is a number here, never a character. */
LogStream &LogStream::operator<<(signed char value) noexcept
{
    return Append(std::to_string(static_cast<int>(value)));
}

LogStream &LogStream::operator<<(short value) noexcept
{
    return Append(std::to_string(static_cast<int>(value)));
}

LogStream &LogStream::operator<<(int value) noexcept
{
    return Append(std::to_string(value));
}

LogStream &LogStream::operator<<(long value) noexcept
{
    return Append(std::to_string(value));
}

LogStream &LogStream::operator<<(float value) noexcept
{
    return Append(std::to_string(static_cast<double>(value)));
}

LogStream &LogStream::operator<<(double value) noexcept
{
    return Append(std::to_string(value));
}

LogStream &LogStream::operator<<(const char *text) noexcept
{
    if (text == nullptr) {
        std::terminate();
    }
    return Append(std::string(text));
}

LogStream &LogStream::operator<<(const std::string &text) noexcept
{
    return Append(text);
}

LogStream &LogStream::operator<<(LogLevel level) noexcept
{
    return Append(std::string(LevelName(level)));
}

LogStream &LogStream::operator<<(const LogHex8Pre &hex) noexcept
{
    return Append(Hex("LogHex8Pre snprintf_s:", "0x%02X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex16Pre &hex) noexcept
{
    return Append(Hex("LogHex16Pre snprintf_s:", "0x%04X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex32Pre &hex) noexcept
{
    return Append(Hex("LogHex32Pre snprintf_s:", "0x%08X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex64Pre &hex) noexcept
{
    return Append(Hex64("LogHex64Pre  high snprintf_s:", "LogHex64Pre  low snprintf_s:", "0x%08X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex8 &hex) noexcept
{
    return Append(Hex("LogHex8 snprintf_s:", "%02X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex16 &hex) noexcept
{
    return Append(Hex("LogHex16 snprintf_s:", "%04X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex32 &hex) noexcept
{
    return Append(Hex("LogHex32 snprintf_s:", "%08X", hex.value));
}

LogStream &LogStream::operator<<(const LogHex64 &hex) noexcept
{
    return Append(Hex64("LogHex64  high snprintf_s:", "LogHex64  low snprintf_s:", "%08X", hex.value));
}

LogStream &LogStream::operator<<(const LogBin8 &bin) noexcept
{
    return Append(Bits(bin.value, 8));
}

LogStream &LogStream::operator<<(const LogBin16 &bin) noexcept
{
    return Append(Bits(bin.value, 16));
}

LogStream &LogStream::operator<<(const LogBin32 &bin) noexcept
{
    return Append(Bits(bin.value, 32));
}

LogStream &LogStream::operator<<(const LogBin64 &bin) noexcept
{
    return Append(Bits(bin.value, 64));
}

}  // namespace Log
}  // namespace Hok
