// The lock-free clock's process-wide snapshot, reachable by the library's own units and tests.
#ifndef KRV_NOLOCKTIME_INTERNAL_H
#define KRV_NOLOCKTIME_INTERNAL_H

#include "time/krv_nolocktime_snap.h"

namespace krv::nolocktime {

// The snapshot the updater thread publishes into; callers may only read it.
const KrvNolockSnapStore &KrvNolockSnapStoreGet();

}  // namespace krv::nolocktime

#endif  // KRV_NOLOCKTIME_INTERNAL_H
