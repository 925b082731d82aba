// The CPU tick's shared state and the units behind its calibration.
#ifndef KRV_CPUTICK_INTERNAL_H
#define KRV_CPUTICK_INTERNAL_H

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "krv_cputick.h"

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

// The process-wide tick state, created by the first KRV_CpuTickInit.
struct KrvCpuTickState {
    uint64_t reserved;            // zero
    uint32_t (*baseSource)(void); // alternative base source; always null: the base comes from KRV_OsalCpuTickBaseGet
    uint32_t magic;               // kCpuTickMagic
    uint32_t cpuTickBase;         // CPU ticks per 10 ms jiffy
    uint32_t jiffyMs;             // milliseconds per jiffy, always 10
    uint32_t cpuTick2msBase;      // CPU ticks per millisecond, truncated
};
static_assert(sizeof(KrvCpuTickState) == 32, "the state record keeps its 32-byte layout");

namespace krv::cputick {

constexpr uint32_t kCpuTickMagic = 0x56784321u;
constexpr uint32_t kJiffyMs = 10;

// The live state, or null before the first init and after the last fini.
const KrvCpuTickState *StateGet();

// The function registered with KRV_CpuTickGetFuncReg, or null.
extern std::atomic<KrvCpuTickGetFunc> g_readFunc;

// KRV_CpuTickGet itself: one indirect call or one unserialised counter read. Inline so that the
// library's own hot readers (the lock-free clock) skip the exported call's indirection.
inline uint64_t TickRead()
{
    KrvCpuTickGetFunc func = g_readFunc.load(std::memory_order_acquire);
    if (func != nullptr) {
        return func();
    }
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    return 0;  // no time-stamp counter: such platforms register a read function first
#endif
}

// Reads the tick base from a processor description in /proc/cpuinfo's format: the first "cpu MHz"
// line within 25 lines. Returns true with *base set (which may be 0) when such a line was found.
bool CpuInfoBaseParse(std::FILE *stream, uint32_t *base);

// Counts CPU ticks over one SIGALRM second and stores ticks per jiffy in *base; returns 0, 1 (the
// handler could not be installed) or the division's code. Its flag is never reset: a later
// calibration in the same process does not wait and yields a near-zero base.
uint32_t AlarmCalibrate(uint32_t *base);

}  // namespace krv::cputick

#endif  // KRV_CPUTICK_INTERNAL_H
