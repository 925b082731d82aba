// The status numbers every module returns; module-specific codes stay with their module.
#ifndef KRV_STATUS_H
#define KRV_STATUS_H

#include <cstdint>

namespace krv {

constexpr uint32_t kOk = 0;
constexpr uint32_t kFailed = 1;            // generic failure
constexpr uint32_t kBusy = 9;              // resources still in use
constexpr uint32_t kStopping = 11;         // module busy stopping
constexpr uint32_t kNoMemory = 12;
constexpr uint32_t kPlatformFailed = 14;   // a platform call failed, also a timed-out wait
constexpr uint32_t kInvalid = 22;
constexpr uint32_t kNotInitialized = 124;

}  // namespace krv

#endif  // KRV_STATUS_H
