// Logger registry: one Logger per context id, created, found and destroyed under one lock.
#include <map>
#include <mutex>
#include <string>

#include "hok_log.h"
#include "log/hok_log_registry.h"
#include "log/hok_log_report.h"

namespace Hok {
namespace Log {

// The two texts of a logger, description first.
class HOK_LOG_INTERNAL Logger::LoggerImpl {
public:
    LoggerImpl(const std::string &description, const std::string &ctxId) : description(description), ctxId(ctxId) {}

    std::string description;
    std::string ctxId;
};

}  // namespace Log
}  // namespace Hok

namespace {

constexpr size_t kMaxCtxIdLen = 32;
constexpr size_t kMaxDescriptionLen = 128;

// Registered logger; a record of this file's own, so that no container code instantiated for the
// registry carries a Hok::Log type in its symbol and leaks out of the library.
struct Entry {
    Hok::Log::Logger *logger;
};

struct Registry {
    std::mutex lock;
    std::map<std::string, Entry> loggers;
};

// Built on first use, so that loggers may be created from other static initialisers.
Registry &TheRegistry()
{
    static Registry registry;
    return registry;
}

}  // namespace

namespace krv {
namespace hoklog {

bool RegistryHoldsLoggers() noexcept
{
    Registry &registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    return !registry.loggers.empty();
}

}  // namespace hoklog
}  // namespace krv

namespace Hok {
namespace Log {

Logger::Logger(LoggerImpl *impl) noexcept : impl_(impl) {}

Logger::~Logger()
{
    delete impl_;
}

std::string Logger::GetDescription() const
{
    return impl_->description;
}

std::string Logger::GetCtxId() const
{
    return impl_->ctxId;
}

/* A second creation under the same ctxId hands out the first logger and keeps its description, so
 * every component sharing a context writes under one name. */
Logger *CreateLogger(const std::string &ctxId, const std::string &description) noexcept
{
    if (ctxId.size() > kMaxCtxIdLen) {
        krv::hoklog::Report("param invalid, ctx id length: ", ctxId.size());
        return nullptr;
    }
    if (description.size() > kMaxDescriptionLen) {
        krv::hoklog::Report("param invalid, ctx description length: ", description.size());
        return nullptr;
    }
    Registry &registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    auto found = registry.loggers.find(ctxId);
    if (found != registry.loggers.end()) {
        krv::hoklog::Report("ctxId:", ctxId, " had created");
        return found->second.logger;
    }
    Logger *created = new Logger(new Logger::LoggerImpl(description, ctxId));
    registry.loggers.emplace(ctxId, Entry{created});
    return created;
}

Logger *GetLogger(const std::string &ctxId) noexcept
{
    Registry &registry = TheRegistry();
    std::unique_lock<std::mutex> guard(registry.lock);
    auto found = registry.loggers.find(ctxId);
    if (found != registry.loggers.end()) {
        return found->second.logger;
    }
    guard.unlock();
    krv::hoklog::Report("ctxId:", ctxId, " not reg");
    return nullptr;
}

/* The entry is removed under the lock and the object freed after it, so that a concurrent
 * CreateLogger never finds a logger that is being torn down. */
void Logger::Destroy() noexcept
{
    Registry &registry = TheRegistry();
    std::unique_lock<std::mutex> guard(registry.lock);
    auto found = registry.loggers.find(impl_->ctxId);
    if (found == registry.loggers.end()) {
        guard.unlock();
        krv::hoklog::Report("ctx id not find, ctx: ", impl_->ctxId);
        return;
    }
    registry.loggers.erase(found);
    guard.unlock();
    delete this;
}

LogStream Logger::LogSec(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_SEC, *this);
}

LogStream Logger::LogFatal(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_FATAL, *this);
}

LogStream Logger::LogError(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_ERROR, *this);
}

LogStream Logger::LogWarn(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_WARN, *this);
}

LogStream Logger::LogInfo(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_INFO, *this);
}

LogStream Logger::LogDebug(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_DEBUG, *this);
}

LogStream Logger::LogVerbose(const std::string &file, uint32_t line) const noexcept
{
    return LogStream(file, line, LOG_LEVEL_VERBOSE, *this);
}

}  // namespace Log
}  // namespace Hok
