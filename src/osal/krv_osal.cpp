// Memory, task and version services: the bottom of the library.
#include "krv_osal.h"

#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"

namespace {

KrvOsalDumpFunc g_sliceDumpFunc = nullptr;
int64_t g_pageSize = 0;

}  // namespace

extern "C" {

const char *KRV_VersionGet(void)
{
    return "Merilux_2.22.0.104-build.0100";
}

const char *KRV_VersionReleaseTimeGet(void)
{
    return "2022-12-03 10:00";
}

const char *KRV_VersionUgmVersionGet(void)
{
    return "Merilux_UGM_2.22.0.104-build.0100";
}

KrvOsalDumpFunc KRV_OsalMemDmgDumpFuncGet(void)
{
    return nullptr;
}

void KRV_OsalDlmSliceDumpFuncReg(KrvOsalDumpFunc fn)
{
    __atomic_store_n(&g_sliceDumpFunc, fn, __ATOMIC_RELAXED);
}

KrvOsalDumpFunc KRV_OsalDlmSliceDumpFuncGet(void)
{
    return __atomic_load_n(&g_sliceDumpFunc, __ATOMIC_RELAXED);
}

/* Returns size bytes behind an 8-byte header word that records size + 8; null for 0 or oversize. */
void *KRV_OsalMemAlloc(uint64_t size)
{
    return krv::OsalMemAlloc(size);
}

/* Addresses up to 8 cannot come from KRV_OsalMemAlloc; they are ignored rather than corrupting the heap. */
void KRV_OsalMemFree(void *ptr)
{
    krv::OsalMemFree(ptr);
}

/* Always moves to a new block; on any failure the old block stays valid and owned by the caller. */
void *KRV_OsalMemRealloc(void *oldPtr, uint64_t newSize, uint64_t oldSize)
{
    void *block = KRV_OsalMemAlloc(newSize);
    if (block == nullptr) {
        return nullptr;
    }
    if (krv::memcpy_s(block, newSize, oldPtr, std::min(newSize, oldSize)) != 0) {
        KRV_OsalMemFree(block);
        return nullptr;
    }
    KRV_OsalMemFree(oldPtr);
    return block;
}

void *KRV_OsalMemCalloc(uint64_t count, uint64_t unitSize)
{
    uint64_t total = count * unitSize;
    if (total == 0 || total / unitSize != count) {
        return nullptr;
    }
    void *block = KRV_OsalMemAlloc(total);
    if (block == nullptr) {
        return nullptr;
    }
    krv::memset_s(block, total, 0, total);
    return block;
}

void *KRV_OsalMemDump(const void *src, uint64_t size)
{
    if (src == nullptr || size == 0) {
        return nullptr;
    }
    void *block = KRV_OsalMemAlloc(size);
    if (block == nullptr) {
        return nullptr;
    }
    if (krv::memcpy_s(block, size, src, size) != 0) {
        KRV_OsalMemFree(block);
        return nullptr;
    }
    return block;
}

int64_t KRV_OsalPageSizeGet(void)
{
    int64_t cached = __atomic_load_n(&g_pageSize, __ATOMIC_RELAXED);
    if (cached != 0) {
        return cached;
    }
    cached = sysconf(_SC_PAGESIZE);
    __atomic_store_n(&g_pageSize, cached, __ATOMIC_RELAXED);
    return cached;
}

/* Restart the full interval after a signal: callers rely on the delay never being shorter. */
void KRV_OsalTaskDelay(int32_t sec, uint32_t usec)
{
    const struct timeval interval = {static_cast<time_t>(sec), static_cast<suseconds_t>(usec)};
    for (;;) {
        struct timeval remaining = interval;
        if (select(0, nullptr, nullptr, nullptr, &remaining) >= 0 || errno != EINTR) {
            return;
        }
    }
}

int64_t KRV_OsalTaskTidGet(void)
{
    return syscall(SYS_gettid);
}

}  // extern "C"
