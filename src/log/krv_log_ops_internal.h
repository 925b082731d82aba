// File log backend internals shared by its sources: the context record, the module entry, the hook,
// the writer thread and the file ring.
//
// Ownership: the context is created by KRV_LogOpsInit and destroyed by KRV_LogOpsFini. While the
// backend runs, producers (the hook) touch only the line queue, under the buffer lock; the writer
// thread alone touches the descriptor, the file slot, the file size and the paths.
#ifndef KRV_LOG_OPS_INTERNAL_H
#define KRV_LOG_OPS_INTERNAL_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "krv_log_ops.h"
#include "krv_osalsync.h"
#include "krv_status.h"
#include "osal/krv_pathbuf.h"
#include "util/krv_rawlist.h"

namespace krv::logops {

constexpr uint32_t kQueueSlots = 300;
constexpr uint32_t kRingFiles = 3;

struct Context {
    KrvLogOpsCfg cfg;               // logDir is replaced by baseDir
    char *baseDir;                  // logDir "/" appId, or "/tmp" without the file bit
    char *logPaths[kRingFiles];     // full paths of the ring, by file slot
    KrvMutex bufLock;               // guards lineQueue, head, tail and running
    uint32_t fileSlot;              // slot being written, 0..2
    int32_t fd;                     // descriptor of the current file, -1 when none
    uint32_t fileSize;              // bytes in the current file
    char **lineQueue;               // kQueueSlots owned lines or nulls
    int32_t head;                   // oldest queued line, -1 when empty
    uint32_t tail;                  // newest queued line
    uint64_t queuedLines;           // lines ever queued; under bufLock
    uint64_t doneLines;             // lines the writer has finished with; under bufLock
    uint64_t droppedLines;          // lines refused by a full queue; under bufLock
    pthread_t writer;               // started only with the file bit
    krv::RawList *moduleList;       // ModuleEntry nodes in registration order
    KrvMutex listLock;              // guards moduleList; held while a module function runs
    uint8_t running;                // writer keeps going while set
};

struct ModuleEntry {
    krv::RawListNode link;  // first: the list node converts back to the entry
    char *name;             // owned copy, at most 32 characters
    KrvLogHookFunc func;
};

// The running backend, published once fully built and withdrawn before teardown.
extern std::atomic<Context *> g_context;
// Hook calls in progress, counted per thread in slots of a cache line each, so that producers on
// different threads do not contend for one counter. Finalisation waits until every slot is back to
// zero before freeing the context.
constexpr size_t kHookSlots = 16;
struct alignas(64) HookSlot {
    std::atomic<uint32_t> active;
};
extern HookSlot g_hookActive[kHookSlots];

inline bool HasMode(const Context *ctx, uint32_t bit)
{
    return (ctx->cfg.logMode & bit) != 0;
}

// The backend's KrvLogHookFunc: routes, filters, formats and queues one diagnostic.
void Hook(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg);

// Removes the line at head from the queue (which must not be empty), counts it as done and returns
// it to the caller, who then owns it. The caller holds bufLock.
char *QueueHeadPop(Context *ctx);

// Writer thread body; arg is the Context. Drains the queue into the ring until the running flag clears.
void *WriterMain(void *arg);

// Creates a fresh file in the current slot and makes it current; returns KRV_OK, KRV_ERR_FAILED or
// KRV_ERR_NOMEM.
uint32_t LogFileCreate(Context *ctx);
// Takes the newest (at most three) entries of baseDir into the ring slots; returns KRV_OK,
// KRV_ERR_FAILED or KRV_ERR_NOMEM.
uint32_t LogFileScan(Context *ctx);
// Reopens the file of the current slot for appending and takes over its size; returns KRV_OK or
// KRV_ERR_FAILED.
uint32_t LogFileReopen(Context *ctx);
// Frees every ring path and empties the slots.
void LogPathsFree(Context *ctx);

}  // namespace krv::logops

#endif  // KRV_LOG_OPS_INTERNAL_H
