// Logging lifecycle and settings: translates the class interface onto the file backend.
#include "hok_log.h"

#include <atomic>
#include <cassert>
#include <cstring>

#include "krv_log_ops.h"
#include "krv_osal.h"
#include "log/hok_log_registry.h"
#include "log/hok_log_report.h"
#include "osal/krv_bounded.h"

namespace {

// Counts InitLogging calls not yet undone. Init and fini run on one thread; the atomic only keeps
// IsLogInited well defined when other threads ask.
std::atomic<uint32_t> g_initCount{0};

// Zero at load and after the last FiniLogging. Between a failed InitLogging and the next one the
// appId field keeps its characters, and the next, shorter appId is copied over them without a
// terminator: applications rely on that record handling, so it stays.
KrvLogOpsCfg g_cfg;

// Returns a terminated copy of dir from the library heap, or null when memory runs out.
char *CopyLogDir(const std::string &dir) noexcept
{
    size_t size = dir.size() + 1;
    char *copy = static_cast<char *>(KRV_OsalMemAlloc(size));
    if (copy == nullptr) {
        return nullptr;
    }
    copy[0] = '\0';
    if (!dir.empty() && krv::memcpy_s(copy, size, dir.data(), dir.size()) != 0) {
        KRV_OsalMemFree(copy);
        return nullptr;
    }
    copy[dir.size()] = '\0';
    return copy;
}

}  // namespace

namespace Hok {
namespace Log {

LogMode operator|(LogMode a, LogMode b) noexcept
{
    return static_cast<LogMode>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

/* Copies appId's characters only: the terminator comes from the zeroed record (see g_cfg). The
 * backend copies the whole record, so the directory copy lives only for the call. Running out of
 * memory for that copy is reported like a backend failure with 12. */
void InitLogging(const std::string &appId, const std::string &logDir, uint32_t logSize, LogLevel level,
                 LogMode mode) noexcept
{
    if (g_initCount.load() != 0) {
        g_initCount.fetch_add(1);
        return;
    }
    if (appId.size() >= sizeof(g_cfg.appId)) {
        krv::hoklog::Report("param invalid, appId length: ", appId.size());
        return;
    }
    if (!appId.empty()) {
        int rc = krv::memcpy_s(g_cfg.appId, sizeof(g_cfg.appId), appId.data(), appId.size());
        assert(rc == 0);
        (void)rc;
    }
    char *dirCopy = CopyLogDir(logDir);
    if (dirCopy == nullptr) {
        krv::hoklog::Report("log ops init failed, ret: ", KRV_ERR_NOMEM);
        return;
    }
    g_cfg.logDir = dirCopy;
    g_cfg.logMode = static_cast<uint8_t>(KRV_LOG_MODE_MODULE | static_cast<uint32_t>(mode));
    g_cfg.logLevel = level;
    g_cfg.logSize = logSize;
    uint32_t ret = KRV_LogOpsInit(&g_cfg);
    if (ret != KRV_OK) {
        krv::hoklog::Report("log ops init failed, ret: ", ret);
    } else {
        g_initCount.fetch_add(1);
    }
    KRV_OsalMemFree(dirCopy);
    g_cfg.logDir = nullptr;
}

/* The last user keeps logging alive while loggers exist: their streams would otherwise lose the
 * module routing silently. */
void FiniLogging() noexcept
{
    uint32_t count = g_initCount.load();
    if (count == 0) {
        return;
    }
    if (count > 1) {
        g_initCount.fetch_sub(1);
        return;
    }
    if (krv::hoklog::RegistryHoldsLoggers()) {
        krv::hoklog::Report("some loggers are not destroy");
        return;
    }
    KRV_LogOpsFini();
    (void)krv::memset_s(&g_cfg, sizeof(g_cfg), 0, sizeof(g_cfg));
    g_initCount.store(0);
}

uint32_t FlushLogging(uint32_t timeoutMs) noexcept
{
    return KRV_LogOpsFlush(timeoutMs);
}

bool IsLogInited() noexcept
{
    return g_initCount.load() != 0;
}

std::string GetLogAppId() noexcept
{
    return std::string(g_cfg.appId, strnlen(g_cfg.appId, sizeof(g_cfg.appId)));
}

LogLevel GetLogLevel() noexcept
{
    return static_cast<LogLevel>(KRV_LogOpsFilterGet());
}

bool IsLogEnabled(LogLevel level) noexcept
{
    return static_cast<uint8_t>(GetLogLevel()) >= static_cast<uint8_t>(level);
}

void SetLogLevel(LogLevel level) noexcept
{
    KRV_LogOpsFilterSet(level);
}

uint32_t MdlLogReg(const std::string &name, KrvLogHookFunc func) noexcept
{
    return KRV_LogOpsReg(name.c_str(), func);
}

uint32_t MdlLogUnreg(const std::string &name) noexcept
{
    return KRV_LogOpsUnreg(name.c_str());
}

}  // namespace Log
}  // namespace Hok
