// The one CPU-tick read function of a test binary that includes this header. A registered read
// function stays for the life of the process, so it is registered before main and tests steer it.
#ifndef KRV_FAKE_CPUTICK_H
#define KRV_FAKE_CPUTICK_H

#include <atomic>
#include <cstdint>

#include "krv_cputick.h"

namespace krvtest {

// Every read returns the current value and then advances it by the step (0: a stopped counter).
class FakeCpuTick {
public:
    static uint64_t Read() { return now_.fetch_add(step_.load()); }
    static void Set(uint64_t now, uint64_t step = 0)
    {
        step_ = step;
        now_ = now;
    }
    static void Advance(uint64_t ticks) { now_ += ticks; }
    static uint64_t Now() { return now_; }

private:
    static inline std::atomic<uint64_t> now_{1000000};
    static inline std::atomic<uint64_t> step_{0};
};

inline const bool g_fakeCpuTickRegistered = KRV_CpuTickGetFuncReg(FakeCpuTick::Read) == 0;

}  // namespace krvtest

#endif  // KRV_FAKE_CPUTICK_H
