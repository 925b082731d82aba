// Diagnostic hook: formats every diagnostic once and hands it to the installed hook or prints it.
#include "krv_log.h"

#include <sys/time.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "osal/krv_bounded.h"

namespace {

constexpr size_t kMsgBufSize = 1024;
constexpr size_t kStampBufSize = 40;

std::atomic<KrvLogHookFunc> g_hook{nullptr};
std::atomic<uint32_t> g_filterLevel{2};

// Prints the diagnostic with a local time stamp whose hour is blank-padded and whose microseconds
// take five places; the file backend's stamp differs on purpose.
void PrintStamped(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg)
{
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    struct tm local = {};
    time_t seconds = now.tv_sec;
    localtime_r(&seconds, &local);
    char stamp[kStampBufSize];
    int len = krv::snprintf_s(stamp, sizeof(stamp), sizeof(stamp) - 1, "%4d.%02d.%02d %2d:%02d:%02d.%5ld",
                              local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                              local.tm_sec, static_cast<long>(now.tv_usec));
    if (len <= 0) {
        return;
    }
    std::printf("[%s][%u][0x%x][%s:%u]%s\n", stamp, level, errCode, fileName, line, msg);
}

}  // namespace

extern "C" {

uint32_t KRV_LogHookReg(KrvLogHookFunc hook)
{
    KrvLogHookFunc expected = nullptr;
    if (hook == nullptr || !g_hook.compare_exchange_strong(expected, hook)) {
        return KRV_ERR_INVALID;
    }
    return KRV_OK;
}

uint32_t KRV_LogHookUnReg(void)
{
    return g_hook.exchange(nullptr) != nullptr ? KRV_OK : KRV_ERR_FAILED;
}

void KRV_LogFilter(uint32_t level)
{
    g_filterLevel.store(level, std::memory_order_relaxed);
}

uint32_t KRV_LogLevelGet(void)
{
    return g_filterLevel.load(std::memory_order_relaxed);
}

/* An over-long message is dropped whole, never truncated: a cut diagnostic could mislead. */
void KRV_LogWrite(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *fmt, ...)
{
    char msg[kMsgBufSize];
    va_list args;
    va_start(args, fmt);
    int len = krv::vsnprintf_s(msg, sizeof(msg), sizeof(msg) - 1, fmt, args);
    va_end(args);
    if (len < 0) {
        std::puts("log string is over flow or input is NULL.");
        return;
    }
    KrvLogHookFunc hook = g_hook.load(std::memory_order_acquire);
    if (hook != nullptr) {
        hook(errCode, level, fileName, line, msg);
        return;
    }
    if (level > g_filterLevel.load(std::memory_order_relaxed)) {
        return;
    }
    if (fileName == nullptr) {
        std::printf("%s", msg);
        return;
    }
    PrintStamped(errCode, level, fileName, line, msg);
}

}  // extern "C"
