// The error-module mutex, shared by the error-string table and the per-thread error stacks.
#ifndef KRV_ENO_LOCK_H
#define KRV_ENO_LOCK_H

#include "krv_osalsync.h"

namespace krv::eno {

// Locks the error-module mutex and returns the handle to unlock with KRV_OsalMutexUnLock. Before
// KRV_EnoErrCodeInit the handle is null and both calls do nothing, so the module runs unlocked.
KrvMutex ModuleLock();

}  // namespace krv::eno

#endif  // KRV_ENO_LOCK_H
