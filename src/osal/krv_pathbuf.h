// Size of every buffer that holds a canonical path or a path built from one: the platform's path
// limit, so that whatever realpath can return fits.
#ifndef KRV_PATHBUF_H
#define KRV_PATHBUF_H

#include <cstdint>

namespace krv {
constexpr uint32_t kPathBufSize = 4096;
}  // namespace krv

#endif  // KRV_PATHBUF_H
