// File log backend, producer side: the hook that every diagnostic of the process passes through.
// Its own failures go to standard output only, so that a failing log path cannot recurse.
#include <cstdio>
#include <cstring>

#include "krv_osal.h"
#include "log/krv_log_ops_internal.h"
#include "log/krv_log_ops_line.h"

namespace krv::logops {
namespace {

constexpr size_t kTagScanEnd = 33;     // a tag's ']' is looked for at indices 1..33
constexpr size_t kLineOverhead = 60;   // room for stamp, numbers and brackets around file and message
constexpr size_t kReportedLineSize = 8;  // the size the allocation-failure text has always shown

// Length of the tag that follows msg[0]: the distance to the first ']' at indices 1..33, else 33.
// The scan stops at the terminator too: past it the bounded comparison below cannot see a
// difference, since that comparison ends at the terminator of the message anyway.
size_t TagLength(const char *msg)
{
    for (size_t i = 1; i <= kTagScanEnd && msg[i - 1] != '\0'; ++i) {
        if (msg[i] == ']') {
            return i - 1;
        }
    }
    return kTagScanEnd;
}

// Hands msg to the first registered module whose name matches its tag over the tag's length, and
// says whether one took it. The prefix comparison is deliberate: a tag "ne" reaches module "net".
bool RouteToModule(Context *ctx, uint32_t errCode, uint32_t level, const char *fileName, uint32_t line,
                   const char *msg)
{
    bool routed = false;
    KRV_OsalMutexLock(ctx->listLock);
    if (!RawListEmpty(ctx->moduleList)) {
        const char *tagText = msg[0] != '\0' ? msg + 1 : msg;
        size_t tagLen = TagLength(msg);
        for (RawListNode *node = RawListFront(ctx->moduleList); node != nullptr;
             node = RawListNext(ctx->moduleList, node)) {
            ModuleEntry *entry = reinterpret_cast<ModuleEntry *>(node);
            if (std::strncmp(entry->name, tagText, tagLen) == 0) {
                entry->func(errCode, level, fileName, line, msg);
                routed = true;
                break;
            }
        }
    }
    KRV_OsalMutexUnLock(ctx->listLock);
    return routed;
}

// Appends line to the queue, which takes ownership; a full queue drops it and counts the drop.
// The lock covers only the index arithmetic and a few stores, so producers never wait for the disk.
void Enqueue(Context *ctx, char *line)
{
    KRV_OsalMutexLock(ctx->bufLock);
    uint32_t slot = ctx->tail;
    if (ctx->head == -1) {
        ctx->head = static_cast<int32_t>(slot);
    } else {
        slot = ctx->tail + 1 == kQueueSlots ? 0 : ctx->tail + 1;
        if (static_cast<int32_t>(slot) == ctx->head) {
            ++ctx->droppedLines;
            KRV_OsalMutexUnLock(ctx->bufLock);
            KRV_OsalMemFree(line);
            std::fputs("log buf add failed, buffer is full\r\n", stdout);
            return;
        }
        ctx->tail = slot;
    }
    ctx->lineQueue[slot] = line;
    ++ctx->queuedLines;
    KRV_OsalMutexUnLock(ctx->bufLock);
}

// Filters, formats, prints and queues one diagnostic that no module claimed. A null fileName is
// written as "(null)", as the C library prints a null text.
void EmitLine(Context *ctx, uint32_t errCode, uint32_t level, const char *fileName, uint32_t line,
              const char *msg)
{
    if (level > __atomic_load_n(&ctx->cfg.logLevel, __ATOMIC_RELAXED) ||
        !HasMode(ctx, KRV_LOG_MODE_FILE | KRV_LOG_MODE_STDOUT)) {
        return;
    }
    char stamp[kStampBufSize];
    size_t stampLen = StampNow(stamp);
    if (stampLen == 0) {
        return;
    }
    const char *file = fileName != nullptr ? fileName : "(null)";
    const LinePieces pieces = {stamp, stampLen, level, errCode, file, std::strlen(file), line, msg, std::strlen(msg)};
    size_t size = pieces.msgLen + pieces.fileLen + kLineOverhead;
    char *text = static_cast<char *>(KRV_OsalMemAlloc(size));
    if (text == nullptr) {
        std::printf("malloc fail, size: %zu\r\n", kReportedLineSize);
        std::printf("log joint failed, log:%s\r\n", msg);
        return;
    }
    if (LineFormat(text, size, pieces) < 0) {
        KRV_OsalMemFree(text);
        std::printf("log sprintf failed\r\n");
        std::printf("log joint failed, log:%s\r\n", msg);
        return;
    }
    if (HasMode(ctx, KRV_LOG_MODE_STDOUT)) {
        std::fputs(text, stdout);
    }
    if (!HasMode(ctx, KRV_LOG_MODE_FILE)) {
        KRV_OsalMemFree(text);
        return;
    }
    Enqueue(ctx, text);
}

// The calling thread's slot for counting its hook calls, dealt out in turn to threads as they first log.
HookSlot &HookSlotOfThisThread()
{
    static std::atomic<uint32_t> nextSlot{0};
    thread_local uint32_t slotPlusOne = 0;  // 0 until this thread has a slot
    if (slotPlusOne == 0) {
        slotPlusOne = nextSlot.fetch_add(1, std::memory_order_relaxed) % kHookSlots + 1;
    }
    return g_hookActive[slotPlusOne - 1];
}

}  // namespace

/* A routed diagnostic is neither filtered nor printed nor written: the module owns it. The in-flight
   count lets finalisation wait until no call still uses the context it is about to free. */
void Hook(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg)
{
    std::atomic<uint32_t> &active = HookSlotOfThisThread().active;
    active.fetch_add(1);
    Context *ctx = g_context.load();
    if (ctx != nullptr && msg != nullptr) {
        if (!HasMode(ctx, KRV_LOG_MODE_MODULE) || !RouteToModule(ctx, errCode, level, fileName, line, msg)) {
            EmitLine(ctx, errCode, level, fileName, line, msg);
        }
    }
    active.fetch_sub(1);
}

}  // namespace krv::logops
