// File log backend, consumer side: the writer thread that drains the line queue into the file ring.
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "krv_osal.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "log/krv_log_ops_internal.h"

namespace krv::logops {
namespace {

constexpr char kKrvSource[] = "krv_log_ops";
constexpr uint32_t kIdleSleepUsec = 50000;
constexpr uint32_t kBurstLines = 20;  // lines in a row before the writer yields
constexpr uint32_t kBurstYieldUsec = 100;

// Moves to the next slot of the ring, deleting the file that slot held (the oldest), and creates a
// fresh file there; returns the creation's result. The file size is left alone on failure, so the
// next line rotates again until a file can be created.
uint32_t RotateFile(Context *ctx)
{
    ctx->fileSlot = (ctx->fileSlot + 1) % kRingFiles;
    if (ctx->fd >= 0) {
        close(ctx->fd);
        ctx->fd = -1;
    }
    char *oldest = ctx->logPaths[ctx->fileSlot];
    if (oldest != nullptr) {
        ctx->logPaths[ctx->fileSlot] = nullptr;
        if (std::remove(oldest) != 0) {
            KRV_DIAG(KRV_ERR_FAILED, "remove log file failed, errno: %d", errno);
        }
        KRV_OsalMemFree(oldest);
    }
    return LogFileCreate(ctx);
}

// Writes the whole line with as many write calls as the descriptor needs (one, normally). Returns
// false when no file could be created for it: the line is lost and the writer moves straight on.
bool WriteLine(Context *ctx, const char *line)
{
    size_t length = std::strlen(line);
    if (static_cast<uint64_t>(ctx->fileSize) + length > ctx->cfg.logSize / 3) {
        if (RotateFile(ctx) != KRV_OK) {
            std::printf("log file create failed\r\n");
            std::printf("log file check failed\r\n");
            return false;
        }
    }
    size_t done = 0;
    while (done < length) {
        ssize_t n = write(ctx->fd, line + done, length - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            std::printf("write file fail, errno:%d\r\n", errno);
            break;
        }
        done += static_cast<size_t>(n);
    }
    if (done < length) {
        std::printf("write file fail, done:%zu, buffLen:%zu\r\n", done, length);
    }
    ctx->fileSize += static_cast<uint32_t>(done);
    return true;
}

}  // namespace

char *QueueHeadPop(Context *ctx)
{
    int32_t head = ctx->head;
    assert(head >= 0 && head < static_cast<int32_t>(kQueueSlots));
    char *line = ctx->lineQueue[head];
    ctx->lineQueue[head] = nullptr;
    if (head == static_cast<int32_t>(ctx->tail)) {
        ctx->head = -1;
    } else {
        ctx->head = head + 1 == static_cast<int32_t>(kQueueSlots) ? 0 : head + 1;
    }
    ++ctx->doneLines;
    return line;
}

/* The line stays queued while it is written, so the lock is never held across disk I/O. A line lost
   to a failed file creation skips the pause that follows a burst. The pass that first sees the
   running flag cleared still handles one line; the rest is discarded by finalisation. */
void *WriterMain(void *arg)
{
    Context *ctx = static_cast<Context *>(arg);
    KRV_OsalMutexLock(ctx->bufLock);
    bool keepRunning = ctx->running != 0;
    KRV_OsalMutexUnLock(ctx->bufLock);
    if (!keepRunning) {
        return nullptr;
    }
    uint32_t burst = 0;
    do {
        KRV_OsalMutexLock(ctx->bufLock);
        keepRunning = ctx->running != 0;
        int32_t head = ctx->head;
        if (head == -1) {
            KRV_OsalMutexUnLock(ctx->bufLock);
            KRV_OsalTaskDelay(0, kIdleSleepUsec);
            burst = 0;
            continue;
        }
        ++burst;
        const char *line = ctx->lineQueue[head];
        KRV_OsalMutexUnLock(ctx->bufLock);

        if (WriteLine(ctx, line) && burst >= kBurstLines) {
            KRV_OsalTaskDelay(0, kBurstYieldUsec);
            burst = 0;
        }

        KRV_OsalMutexLock(ctx->bufLock);
        char *done = QueueHeadPop(ctx);
        KRV_OsalMutexUnLock(ctx->bufLock);
        KRV_OsalMemFree(done);
    } while (keepRunning);
    return nullptr;
}

}  // namespace krv::logops
