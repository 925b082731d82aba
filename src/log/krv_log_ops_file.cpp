// File log backend, file ring: naming and creating log files, and adopting the files a previous run
// left in the application directory.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "log/krv_log_ops_internal.h"
#include "osal/krv_bounded.h"

namespace krv::logops {
namespace {

constexpr char kKrvSource[] = "krv_log_ops";
constexpr size_t kNameBufSize = 80;
constexpr int kScanEntryLimit = 5;   // ".", ".." and the three files of a ring
constexpr int kFirstRealEntry = 2;   // "." and ".." sort first

// Reads the wall clock as local broken-down time plus microseconds.
void LocalTimeNow(struct tm *local, long *usec)
{
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    time_t seconds = now.tv_sec;
    localtime_r(&seconds, local);
    *usec = static_cast<long>(now.tv_usec);
}

// Builds the full path of a new file in a fresh 4096-byte buffer; returns KRV_OK, KRV_ERR_FAILED or
// KRV_ERR_NOMEM. The name carries the creation time, so name order is age order within a run.
uint32_t NewLogPath(const Context *ctx, char **pathOut)
{
    struct tm local = {};
    long usec = 0;
    LocalTimeNow(&local, &usec);
    char name[kNameBufSize];
    if (krv::snprintf_s(name, sizeof(name), sizeof(name) - 1, "%s_%4d_%02d_%02d_%02d_%02d_%02d_%ld.log",
                        ctx->cfg.appId, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                        local.tm_min, local.tm_sec, usec) < 0) {
        std::printf("sprintf failed\r\n");
        std::printf("log name get failed\r\n");
        return KRV_ERR_FAILED;
    }
    char *path = static_cast<char *>(KRV_OsalMemAlloc(kPathBufSize));
    if (path == nullptr) {
        std::printf("log path malloc failed, pathLen:%u\r\n", kPathBufSize);
        return KRV_ERR_NOMEM;
    }
    if (krv::sprintf_s(path, kPathBufSize, "%s/", ctx->baseDir) < 0) {
        std::printf("sprintf failed, dir:%s\r\n", ctx->baseDir);
        KRV_OsalMemFree(path);
        return KRV_ERR_FAILED;
    }
    int rc = krv::strcat_s(path, kPathBufSize, name);
    if (rc != 0) {
        std::printf("strcat failed, rc: %d, path: %s, logName: %s\r\n", rc, path, name);
        KRV_OsalMemFree(path);
        return KRV_ERR_FAILED;
    }
    *pathOut = path;
    return KRV_OK;
}

// Stores path in the current slot (it takes ownership) after the previous run's files have been
// counted; returns KRV_OK, KRV_ERR_FAILED or KRV_ERR_NOMEM.
uint32_t AdoptEntry(Context *ctx, const char *name)
{
    if (ctx->logPaths[ctx->fileSlot] != nullptr) {
        ++ctx->fileSlot;
    }
    assert(ctx->fileSlot < kRingFiles);
    char *path = static_cast<char *>(KRV_OsalMemAlloc(kPathBufSize));
    if (path == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "path malloc failed, path len:%u", kPathBufSize);
        return KRV_ERR_NOMEM;
    }
    if (krv::sprintf_s(path, kPathBufSize, "%s/%s", ctx->baseDir, name) < 0) {
        KRV_DIAG(KRV_ERR_FAILED, "sprintf failed, dir:%s, name:%s", ctx->baseDir, name);
        KRV_OsalMemFree(path);
        return KRV_ERR_FAILED;
    }
    ctx->logPaths[ctx->fileSlot] = path;
    return KRV_OK;
}

}  // namespace

/* The open failure keeps the path in the slot: a later rotation into this slot then tries to delete
   it, as it would any other file of the ring. */
uint32_t LogFileCreate(Context *ctx)
{
    char *path = nullptr;
    uint32_t rc = NewLogPath(ctx, &path);
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "log path joint failed");
        return rc;
    }
    KRV_OsalMemFree(ctx->logPaths[ctx->fileSlot]);
    ctx->logPaths[ctx->fileSlot] = path;
    int fd = open(path, O_CREAT | O_RDWR | O_APPEND, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        std::printf("log open failed, errno: %d\r\n", errno);
        return KRV_ERR_FAILED;
    }
    ctx->fd = fd;
    ctx->fileSize = 0;
    return KRV_OK;
}

/* Entries are taken by name order only: neither their type nor their prefix is checked. */
uint32_t LogFileScan(Context *ctx)
{
    struct dirent **entries = nullptr;
    errno = 0;
    int count = scandir(ctx->baseDir, &entries, nullptr, alphasort);
    if (count < 0) {
        int err = errno;
        if (err != ENOENT) {
            KRV_DIAG_LEVEL(KRV_ERR_FAILED, krv::kLevelWarning, "scandir failed, errno: %d", err);
            KRV_DIAG(KRV_ERR_FAILED, "file scan failed");
        }
        return KRV_ERR_FAILED;
    }
    int start = kFirstRealEntry;
    if (count > kScanEntryLimit) {
        KRV_DIAG_LEVEL(KRV_OK, krv::kLevelWarning, "log num err, num: %d", count);
        start = count - static_cast<int>(kRingFiles);
    }
    uint32_t rc = count > start ? KRV_OK : KRV_ERR_FAILED;
    for (int i = start; i < count && rc == KRV_OK; ++i) {
        rc = AdoptEntry(ctx, entries[i]->d_name);
    }
    if (rc != KRV_OK) {
        LogPathsFree(ctx);
    }
    for (int i = 0; i < count; ++i) {
        std::free(entries[i]);
    }
    std::free(entries);
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "file scan failed");
    }
    return rc;
}

uint32_t LogFileReopen(Context *ctx)
{
    const char *path = ctx->logPaths[ctx->fileSlot];
    int fd = open(path, O_RDWR | O_APPEND);
    if (fd < 0) {
        KRV_DIAG(KRV_ERR_FAILED, "log open failed, errno: %d", errno);
        return KRV_ERR_FAILED;
    }
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "log file stat failed, errno:%d, path:%s\r\n", errno, path);
        close(fd);
        return KRV_ERR_FAILED;
    }
    ctx->fd = fd;
    ctx->fileSize = static_cast<uint32_t>(status.st_size);
    return KRV_OK;
}

void LogPathsFree(Context *ctx)
{
    for (char *&path : ctx->logPaths) {
        KRV_OsalMemFree(path);
        path = nullptr;
    }
}

}  // namespace krv::logops
