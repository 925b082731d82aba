// Hok::Log: the class interface of the logging layer (named loggers and stream-style log lines).
//
// An application starts logging once with InitLogging, creates one Logger per context with
// CreateLogger, and writes each line through a LogStream obtained from a line maker:
//
//     Hok::Log::Logger *net = Hok::Log::CreateLogger("net", "network layer");
//     net->LogWarn(__FILE__, __LINE__) << "retry " << 3 << " of " << Hok::Log::LogHex16Pre(31);
//
// The line "[net][W] > retry 3 of 0x001F" is handed to KRV_LogWrite when the stream is destroyed at
// the end of the full expression.
//
// No exception leaves any function declared here: when memory runs out, or the text handling fails
// otherwise, the process ends (std::terminate), as it does for a null `const char *` inserted into a
// stream.
#ifndef HOK_LOG_H
#define HOK_LOG_H

#include <cstdint>
#include <string>

#include "krv_log.h"

// Marks the members that only the library itself calls: they stay inside the shared object.
#define HOK_LOG_INTERNAL __attribute__((visibility("hidden")))

namespace Hok {
namespace Log {

// Severity of a line; smaller is more severe. The numbers are those of the plain KRV_* functions.
enum LogLevel : uint8_t {
    LOG_LEVEL_SEC = 0,
    LOG_LEVEL_FATAL = 1,
    LOG_LEVEL_ERROR = 2,
    LOG_LEVEL_WARN = 3,
    LOG_LEVEL_INFO = 4,
    LOG_LEVEL_DEBUG = 5,
    LOG_LEVEL_VERBOSE = 6,
};

// Output bits; routing of tagged lines to module functions (bit 1) is always added by InitLogging.
enum LogMode : uint32_t {
    LOG_MODE_FILE = 2,    // write the ring of log files under logDir/appId
    LOG_MODE_STDOUT = 4,  // print every admitted line to standard output
};

// Returns the bitwise or of both modes.
LogMode operator|(LogMode a, LogMode b) noexcept;

// Starts logging (or counts one more user, ignoring the arguments). Reports failures on standard
// output only; IsLogInited tells whether it worked. No memory for the copy of logDir:
// "log ops init failed, ret: 12".
void InitLogging(const std::string &appId, const std::string &logDir, uint32_t logSize, LogLevel level,
                 LogMode mode) noexcept;
// Drops one user; the last one stops the backend, unless loggers are still registered. Lines still
// queued are discarded: call FlushLogging first.
void FiniLogging() noexcept;
// Waits up to timeoutMs until every line queued before the call is in the log files; returns KRV_OK,
// KRV_ERR_PLATFORM on timeout, or KRV_ERR_NOT_INIT when logging is not initialised or writes no files.
uint32_t FlushLogging(uint32_t timeoutMs) noexcept;
// Returns true while InitLogging has succeeded more often than FiniLogging undid it.
bool IsLogInited() noexcept;
// Returns a copy of the application id last copied into the configuration ("" when none).
std::string GetLogAppId() noexcept;
// Returns the backend's filter level (the printing filter while logging is not initialised).
LogLevel GetLogLevel() noexcept;
// Returns true when lines of `level` pass the current filter level.
bool IsLogEnabled(LogLevel level) noexcept;
// Sets the backend's filter level; does nothing while logging is not initialised.
void SetLogLevel(LogLevel level) noexcept;
// Routes lines tagged "[name" to func; returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID,
// KRV_ERR_REGISTERED or KRV_ERR_NOMEM. The name is copied.
uint32_t MdlLogReg(const std::string &name, KrvLogHookFunc func) noexcept;
// Stops routing lines to the module registered under name; returns KRV_OK, KRV_ERR_NOT_INIT,
// KRV_ERR_INVALID or KRV_ERR_NOT_REGISTERED.
uint32_t MdlLogUnreg(const std::string &name) noexcept;

class LogStream;

// A named logging context. Made only by CreateLogger, unmade only by Destroy.
class Logger {
public:
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    // Unregisters and deletes this logger; the caller's pointer dangles afterwards.
    void Destroy() noexcept;

    // Line makers: each returns a stream of its level for the caller's file and line. The filter is
    // not consulted here; test IsLogEnabled first to skip building a line.
    LogStream LogSec(const std::string &file, uint32_t line) const noexcept;      // level 0, named S
    LogStream LogFatal(const std::string &file, uint32_t line) const noexcept;    // level 1, named F
    LogStream LogError(const std::string &file, uint32_t line) const noexcept;    // level 2, named E
    LogStream LogWarn(const std::string &file, uint32_t line) const noexcept;     // level 3, named W
    LogStream LogInfo(const std::string &file, uint32_t line) const noexcept;     // level 4, named I
    LogStream LogDebug(const std::string &file, uint32_t line) const noexcept;    // level 5, named D
    LogStream LogVerbose(const std::string &file, uint32_t line) const noexcept;  // level 6, named V

private:
    class LoggerImpl;
    friend class LogStream;
    friend Logger *CreateLogger(const std::string &ctxId, const std::string &description) noexcept;

    HOK_LOG_INTERNAL explicit Logger(LoggerImpl *impl) noexcept;
    HOK_LOG_INTERNAL ~Logger();
    // Copies of the description and the context id, for the streams made from this logger.
    HOK_LOG_INTERNAL std::string GetDescription() const;
    HOK_LOG_INTERNAL std::string GetCtxId() const;

    LoggerImpl *impl_;
};

// Returns the logger registered under ctxId (at most 32 characters), creating it with description
// (at most 128 characters) when absent; null on invalid arguments.
Logger *CreateLogger(const std::string &ctxId, const std::string &description) noexcept;
// Returns the logger registered under ctxId, or null.
Logger *GetLogger(const std::string &ctxId) noexcept;

// Value wrappers: the hexadecimal forms print upper-case digits at full width, the "Pre" forms
// with a leading 0x; the binary forms print every bit, most significant first.
template <typename T>
struct LogWrapped {
    LogWrapped() noexcept = default;
    explicit LogWrapped(T v) noexcept : value(v) {}
    T value = 0;
};
struct LogHex8 : LogWrapped<uint8_t> { using LogWrapped::LogWrapped; };
struct LogHex16 : LogWrapped<uint16_t> { using LogWrapped::LogWrapped; };
struct LogHex32 : LogWrapped<uint32_t> { using LogWrapped::LogWrapped; };
struct LogHex64 : LogWrapped<uint64_t> { using LogWrapped::LogWrapped; };
struct LogHex8Pre : LogWrapped<uint8_t> { using LogWrapped::LogWrapped; };
struct LogHex16Pre : LogWrapped<uint16_t> { using LogWrapped::LogWrapped; };
struct LogHex32Pre : LogWrapped<uint32_t> { using LogWrapped::LogWrapped; };
struct LogHex64Pre : LogWrapped<uint64_t> { using LogWrapped::LogWrapped; };
struct LogBin8 : LogWrapped<uint8_t> { using LogWrapped::LogWrapped; };
struct LogBin16 : LogWrapped<uint16_t> { using LogWrapped::LogWrapped; };
struct LogBin32 : LogWrapped<uint32_t> { using LogWrapped::LogWrapped; };
struct LogBin64 : LogWrapped<uint64_t> { using LogWrapped::LogWrapped; };

// One log line under construction. The first insertion puts "[ctxId][L] > " in front; destroying
// the stream writes the line with KRV_LogWrite exactly once. Moving hands the line over: the
// moved-from stream writes nothing.
class LogStream {
public:
    // Copies what it needs from logger; the logger may be destroyed while the stream lives.
    LogStream(const std::string &file, uint32_t line, LogLevel level, const Logger &logger) noexcept;
    // Takes over other's line; other then writes nothing.
    LogStream(LogStream &&other) noexcept;
    LogStream(const LogStream &) = delete;
    LogStream &operator=(const LogStream &) = delete;
    LogStream &operator=(LogStream &&) = delete;
    // Writes the line with KRV_LogWrite(0, level, file, line, "%s", line text), unless moved from.
    ~LogStream();

    // Insertions: each appends its operand's text to the line and returns this stream.
    LogStream &operator<<(bool value) noexcept;               // "true" or "false"
    LogStream &operator<<(unsigned char value) noexcept;      // decimal, as "%d": a number, never a character
    LogStream &operator<<(unsigned short value) noexcept;     // decimal, as "%d"
    LogStream &operator<<(unsigned int value) noexcept;       // decimal, as "%u"
    LogStream &operator<<(unsigned long value) noexcept;      // decimal, as "%lu"
    LogStream &operator<<(signed char value) noexcept;        // decimal, as "%d": a number, never a character
    LogStream &operator<<(short value) noexcept;              // decimal, as "%d"
    LogStream &operator<<(int value) noexcept;                // decimal, as "%d"
    LogStream &operator<<(long value) noexcept;               // decimal, as "%ld"
    LogStream &operator<<(float value) noexcept;              // as "%f" (six decimals)
    LogStream &operator<<(double value) noexcept;             // as "%f" (six decimals)
    // A null text ends the process: it is a programming error that must not pass unnoticed.
    LogStream &operator<<(const char *text) noexcept;         // the text
    LogStream &operator<<(const std::string &text) noexcept;  // the text
    LogStream &operator<<(LogLevel level) noexcept;           // the level's letter, or "unknown level"
    LogStream &operator<<(const LogHex8Pre &hex) noexcept;    // "0x%02X"
    LogStream &operator<<(const LogHex16Pre &hex) noexcept;   // "0x%04X"
    LogStream &operator<<(const LogHex32Pre &hex) noexcept;   // "0x%08X"
    LogStream &operator<<(const LogHex64Pre &hex) noexcept;   // "0x" and 16 hexadecimal digits
    LogStream &operator<<(const LogHex8 &hex) noexcept;       // "%02X"
    LogStream &operator<<(const LogHex16 &hex) noexcept;      // "%04X"
    LogStream &operator<<(const LogHex32 &hex) noexcept;      // "%08X"
    LogStream &operator<<(const LogHex64 &hex) noexcept;      // 16 hexadecimal digits
    LogStream &operator<<(const LogBin8 &bin) noexcept;       // 8 binary digits, most significant first
    LogStream &operator<<(const LogBin16 &bin) noexcept;      // 16 binary digits
    LogStream &operator<<(const LogBin32 &bin) noexcept;      // 32 binary digits
    LogStream &operator<<(const LogBin64 &bin) noexcept;      // 64 binary digits

private:
    class LogStreamImpl;
    // Appends text to the line (after the prefix on the first call); a moved-from stream ignores it.
    HOK_LOG_INTERNAL LogStream &Append(const std::string &text);

    LogStreamImpl *impl_;  // null once moved from
};

}  // namespace Log
}  // namespace Hok

#endif  // HOK_LOG_H
