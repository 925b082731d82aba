// The tick base: parsed from /proc/cpuinfo, else counted over a one-second alarm.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "krv_arith.h"
#include "krv_cputick.h"
#include "krv_status.h"
#include "time/krv_cputick_internal.h"

namespace {

constexpr int kCpuInfoMaxLines = 25;
constexpr int kCpuInfoLineBytes = 200;
constexpr uint32_t kWholeMhzProductLimit = 4294;  // whole * 1000000 stays within 32 bits below this
constexpr uint32_t kJiffiesPerSecond = 100;

// Set by the SIGALRM handler and never cleared. Atomic so that the handler may run on any thread.
std::atomic<uint32_t> g_alarmFlag{0};

void OnAlarm(int)
{
    g_alarmFlag.store(0xFFFFFFFFu, std::memory_order_relaxed);
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// The leading decimal digits of text, 0 when it does not start with one; wraps at 32 bits.
uint32_t LeadingNumber(const char *text)
{
    uint32_t value = 0;
    for (; IsDigit(*text); ++text) {
        value = value * 10u + static_cast<uint32_t>(*text - '0');
    }
    return value;
}

// Thousandths of a megahertz from the first (up to) three digits of the fraction.
uint32_t FractionThousandths(const char *text)
{
    uint32_t value = 0;
    for (uint32_t weight = 100; weight > 0 && IsDigit(*text); weight /= 10, ++text) {
        value += static_cast<uint32_t>(*text - '0') * weight;
    }
    return value;
}

}  // namespace

namespace krv::cputick {

bool CpuInfoBaseParse(std::FILE *stream, uint32_t *base)
{
    char line[kCpuInfoLineBytes];
    for (int read = 0; read < kCpuInfoMaxLines; ++read) {
        if (std::fgets(line, sizeof line, stream) == nullptr) {
            return false;
        }
        if (std::strncmp(line, "cpu", 3) != 0) {
            continue;
        }
        char *rest = nullptr;
        (void)strtok_r(line, " ", &rest);
        const char *unit = strtok_r(nullptr, " ", &rest);
        if (unit == nullptr) {
            return false;
        }
        if (std::strncmp(unit, "MHz", 3) != 0) {
            continue;  // "cpu family" and the like
        }
        const char *whole = strtok_r(nullptr, ".", &rest);
        const char *fraction = strtok_r(nullptr, " ", &rest);
        if (whole == nullptr || fraction == nullptr) {
            return false;
        }
        // Ticks per 10 ms = MHz * 10000; the two forms of the whole part agree, the switch only
        // keeps the intermediate product within 32 bits.
        uint32_t mhz = LeadingNumber(whole);
        uint32_t wholePart = mhz < kWholeMhzProductLimit ? mhz * 1000000u / 100u : mhz * 10000u;
        *base = FractionThousandths(fraction) * 1000u / 100u + wholePart;
        return true;
    }
    return false;
}

uint32_t AlarmCalibrate(uint32_t *base)
{
    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = OnAlarm;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGALRM, &action, &previous) != 0) {
        return KRV_ERR_FAILED;
    }
    uint64_t start = KRV_CpuTickGet();
    unsigned pending = alarm(1);
    while (g_alarmFlag.load(std::memory_order_relaxed) == 0) {
    }
    uint64_t end = KRV_CpuTickGet();
    // With the flag already set our alarm is still due: cancel it before the caller's action is
    // back, and give the caller's own alarm, if any, what it had left.
    alarm(0);
    sigaction(SIGALRM, &previous, nullptr);
    if (pending > 1) {
        alarm(pending - 1);
    }
    uint64_t perJiffy = 0;
    uint32_t rc = KRV_64Div32RoundUp(end - start, kJiffiesPerSecond, &perJiffy);
    if (rc != KRV_OK) {
        return rc;
    }
    *base = static_cast<uint32_t>(perJiffy);
    return KRV_OK;
}

}  // namespace krv::cputick

extern "C" {

uint32_t KRV_OsalCpuTickBaseGet(uint32_t *cpuTickBase)
{
    if (cpuTickBase == nullptr) {
        return KRV_ERR_INVALID;
    }
    std::FILE *stream = nullptr;
    do {
        stream = std::fopen("/proc/cpuinfo", "r");
    } while (stream == nullptr && errno == EINTR);
    if (stream != nullptr) {
        uint32_t base = 0;
        bool found = krv::cputick::CpuInfoBaseParse(stream, &base);
        // fclose releases the stream even when it reports EINTR, so it is never retried.
        std::fclose(stream);
        if (found && base != 0) {
            *cpuTickBase = base;
            return KRV_OK;
        }
    }
    return krv::cputick::AlarmCalibrate(cpuTickBase);
}

}  // extern "C"
