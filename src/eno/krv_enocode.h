// Layout of a composed error code: the error number in bits 0-7, the module number in bits 8-15 and
// a caller's high part in bits 16-31.
#ifndef KRV_ENO_CODE_H
#define KRV_ENO_CODE_H

#include <cstdint>

namespace krv::eno {

constexpr unsigned kModuleShift = 8;
constexpr unsigned kHighShift = 16;
constexpr uint32_t kByteMask = 0xFF;  // one field: the error number or the module number

}  // namespace krv::eno

#endif  // KRV_ENO_CODE_H
