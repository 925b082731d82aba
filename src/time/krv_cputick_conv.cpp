// CPU tick conversions: all read the shared state's bases.
#include <climits>

#include "krv_cputick.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "time/krv_cputick_internal.h"

namespace {

constexpr char kKrvSource[] = "krv_cputick";
constexpr uint64_t kNsPerJiffy = 10000000;
// The largest tick count whose product with kNsPerJiffy fits in 64 bits.
constexpr uint64_t kTick2NsProductLimit = UINT64_MAX / kNsPerJiffy;
static_assert(kTick2NsProductLimit == 1844674407370ull);

}  // namespace

extern "C" {

uint32_t KRV_CpuTickBaseGet(uint32_t *cpuTickBase)
{
    const KrvCpuTickState *state = krv::cputick::StateGet();
    if (state == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "cpu tick is not initialized");
        return KRV_ERR_NOT_INIT;
    }
    uint32_t base = state->cpuTickBase;
    if (cpuTickBase == nullptr || base == 0 || base == UINT32_MAX) {
        KRV_DIAG(KRV_ERR_INVALID, "param invalid, cpuTickBase err or , cputick = %u", base);
        return KRV_ERR_INVALID;
    }
    *cpuTickBase = base;
    return KRV_OK;
}

uint32_t KRV_CpuTick2Ms(const uint64_t *cpuTick, uint64_t *milliSecs)
{
    const KrvCpuTickState *state = krv::cputick::StateGet();
    if (state == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "cpu tick is not initialized");
        return KRV_ERR_NOT_INIT;
    }
    if (cpuTick == nullptr || milliSecs == nullptr || state->cpuTick2msBase == 0) {
        KRV_DIAG(KRV_ERR_INVALID, "param invalid, cputick or milliSecs is NULL or cpuTick2msBase:%u",
                 state->cpuTick2msBase);
        return KRV_ERR_INVALID;
    }
    *milliSecs = *cpuTick / state->cpuTick2msBase;
    return KRV_OK;
}

/* Multiplies first while the product fits, so short spans keep their sub-jiffy precision. */
uint64_t KRV_CpuTick2Ns(uint64_t ticks)
{
    const KrvCpuTickState *state = krv::cputick::StateGet();
    if (state == nullptr) {
        return 0;
    }
    if (ticks > kTick2NsProductLimit) {
        return ticks / state->cpuTickBase * kNsPerJiffy;
    }
    return ticks * kNsPerJiffy / state->cpuTickBase;
}

uint64_t KRV_Ns2CpuTick(uint64_t nanoSecs)
{
    const KrvCpuTickState *state = krv::cputick::StateGet();
    if (state == nullptr) {
        return 0;
    }
    uint64_t product = 0;
    if (__builtin_mul_overflow(nanoSecs, static_cast<uint64_t>(state->cpuTickBase), &product)) {
        return nanoSecs / kNsPerJiffy * state->cpuTickBase;
    }
    return product / kNsPerJiffy;
}

uint64_t KRV_CpuTickJiffiesToMS(uint64_t jiffies)
{
    return jiffies * krv::cputick::kJiffyMs;
}

}  // extern "C"
