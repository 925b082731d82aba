/* Memory, task and version services: the allocator every other module uses. */
#ifndef KRV_OSAL_H
#define KRV_OSAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque slice-dump hook: stored and handed back, never called by the library. */
typedef void (*KrvOsalDumpFunc)(void);

/* Returns "Merilux_2.22.0.104-build.0100"; static text, never freed. */
const char *KRV_VersionGet(void);
/* Returns "2022-12-03 10:00"; static text, never freed. */
const char *KRV_VersionReleaseTimeGet(void);
/* Returns "Merilux_UGM_2.22.0.104-build.0100"; static text, never freed. */
const char *KRV_VersionUgmVersionGet(void);

/* Returns null always: no memory-damage dump function exists. */
KrvOsalDumpFunc KRV_OsalMemDmgDumpFuncGet(void);
/* Stores fn (may be null), replacing the previous one; returns nothing. */
void KRV_OsalDlmSliceDumpFuncReg(KrvOsalDumpFunc fn);
/* Returns the function last stored by KRV_OsalDlmSliceDumpFuncReg, or null. */
KrvOsalDumpFunc KRV_OsalDlmSliceDumpFuncGet(void);

/* Returns an uninitialised block of size bytes (1 .. 2^64-9) owned by the caller, or null; free with KRV_OsalMemFree. */
void *KRV_OsalMemAlloc(uint64_t size);
/* Releases a block from this family; null and addresses 1..8 are ignored. */
void KRV_OsalMemFree(void *ptr);
/* Returns a new block holding min(newSize, oldSize) bytes of oldPtr and frees oldPtr, or null leaving oldPtr owned by the caller. */
void *KRV_OsalMemRealloc(void *oldPtr, uint64_t newSize, uint64_t oldSize);
/* Returns a zero-filled block of count * unitSize bytes owned by the caller, or null on 0 or overflow. */
void *KRV_OsalMemCalloc(uint64_t count, uint64_t unitSize);
/* Returns a new caller-owned copy of size bytes from src, or null when src is null or size is 0. */
void *KRV_OsalMemDump(const void *src, uint64_t size);

/* Returns the page size in bytes (cached after the first call). */
int64_t KRV_OsalPageSizeGet(void);
/* Sleeps sec seconds plus usec microseconds; an interrupted wait restarts the full interval. */
void KRV_OsalTaskDelay(int32_t sec, uint32_t usec);
/* Returns the kernel thread id of the calling thread. */
int64_t KRV_OsalTaskTidGet(void);

#ifdef __cplusplus
}
#endif

#endif /* KRV_OSAL_H */
