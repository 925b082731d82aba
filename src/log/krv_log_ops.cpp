// File log backend, lifecycle and module registry: building and tearing down the context, starting
// and stopping the writer, and the modules that claim tagged diagnostics.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "krv_log_ops.h"
#include "krv_osal.h"
#include "krv_osalfs.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "log/krv_log_ops_internal.h"
#include "osal/krv_bounded.h"

namespace krv::logops {

std::atomic<Context *> g_context{nullptr};
HookSlot g_hookActive[kHookSlots] = {};

namespace {

constexpr char kKrvSource[] = "krv_log_ops";
constexpr uint32_t kMinLogSize = 5120;
constexpr size_t kAppIdMax = sizeof(KrvLogOpsCfg::appId) - 1;
constexpr size_t kModuleNameMax = 32;
constexpr uint32_t kHookDrainUsec = 1000;
constexpr uint32_t kFlushPollUsec = 1000;

// Successful inits not yet matched by a fini; a plain word: init and fini must not race.
uint32_t g_initCount = 0;

// Checks the configuration; returns KRV_OK, KRV_ERR_INVALID or the path check's code, having
// reported why.
uint32_t ConfigCheck(const KrvLogOpsCfg *cfg)
{
    if (cfg == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "parameter is NULL");
        return KRV_ERR_INVALID;
    }
    if ((cfg->logMode & KRV_LOG_MODE_FILE) != 0) {
        if (cfg->logDir == nullptr || cfg->logSize < kMinLogSize) {
            KRV_DIAG(KRV_ERR_INVALID, "logDir is null or log size is valid, log size:%u, log mode:%u", cfg->logSize,
                     cfg->logMode);
            return KRV_ERR_INVALID;
        }
        uint32_t rc = KRV_RealPathCheck(cfg->logDir);
        if (rc != KRV_OK) {
            KRV_DIAG(rc, "logDir realpath check failed, path: %s", cfg->logDir);
            return rc;
        }
    }
    size_t appIdLen = strnlen(cfg->appId, sizeof(cfg->appId));
    if (appIdLen == 0 || appIdLen > kAppIdMax) {
        KRV_DIAG(KRV_ERR_INVALID, "appId is invalid, len: %zu", appIdLen);
        return KRV_ERR_INVALID;
    }
    return KRV_OK;
}

// The module list's release function: an entry owns its name.
void ModuleEntryFree(RawListNode *node)
{
    ModuleEntry *entry = reinterpret_cast<ModuleEntry *>(node);
    KRV_OsalMemFree(entry->name);
    KRV_OsalMemFree(entry);
}

// Frees the queue, the buffer lock and the context.
void PreResourceRelease(Context *ctx)
{
    (void)KRV_OsalMutexDestroy(&ctx->bufLock);
    KRV_OsalMemFree(ctx->lineQueue);
    KRV_OsalMemFree(ctx);
}

// Frees everything the context owns and the context. Modules still registered are released with
// the list: nobody can reach them once the backend is gone.
void ResourceRelease(Context *ctx)
{
    if (ctx->listLock != nullptr) {
        (void)KRV_OsalMutexDestroy(&ctx->listLock);
    }
    if (ctx->moduleList != nullptr) {
        RawListDeinit(ctx->moduleList);
        KRV_OsalMemFree(ctx->moduleList);
    }
    KRV_OsalMemFree(ctx->baseDir);
    PreResourceRelease(ctx);
}

// Allocates the context with its queue and buffer lock; returns KRV_OK, KRV_ERR_NOMEM or the lock's
// code.
uint32_t PreInit(const KrvLogOpsCfg *cfg, Context **ctxOut)
{
    Context *ctx = static_cast<Context *>(KRV_OsalMemCalloc(1, sizeof(Context)));
    if (ctx == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc fail, size: %zu", sizeof(Context));
        KRV_DIAG(KRV_ERR_NOMEM, "log pre init failed");
        KRV_DIAG(KRV_ERR_NOMEM, "log resource init failed");
        return KRV_ERR_NOMEM;
    }
    ctx->fd = -1;
    ctx->head = -1;
    uint32_t rc = KRV_OK;
    ctx->lineQueue = static_cast<char **>(KRV_OsalMemCalloc(kQueueSlots, sizeof(char *)));
    if (ctx->lineQueue == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "mem alloc failed, num:%u", kQueueSlots);
        rc = KRV_ERR_NOMEM;
    } else {
        rc = KRV_OsalMutexCreate(&ctx->bufLock);
        if (rc != KRV_OK) {
            KRV_DIAG(rc, "lock create failed");
        }
    }
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "log resource init failed");
        KRV_DIAG(rc, "log pre init failed");
        PreResourceRelease(ctx);
        return rc;
    }
    ctx->cfg = *cfg;
    *ctxOut = ctx;
    return KRV_OK;
}

// Fills baseDir with logDir, or "/tmp" without the file bit; returns KRV_OK, KRV_ERR_FAILED or
// KRV_ERR_NOMEM.
uint32_t ConfigGet(Context *ctx, const KrvLogOpsCfg *cfg)
{
    ctx->baseDir = static_cast<char *>(KRV_OsalMemAlloc(kPathBufSize));
    if (ctx->baseDir == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "malloc fail, size: %u", kPathBufSize);
        KRV_DIAG(KRV_ERR_NOMEM, "log config get failed");
        return KRV_ERR_NOMEM;
    }
    ctx->cfg.logDir = ctx->baseDir;
    const char *dir = HasMode(ctx, KRV_LOG_MODE_FILE) ? cfg->logDir : "/tmp";
    if (krv::strcpy_s(ctx->baseDir, kPathBufSize, dir) != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "strcpy failed, baseDir: %s", dir);
        KRV_DIAG(KRV_ERR_FAILED, "log config get failed");
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

// Makes the empty module list and its lock; returns KRV_OK, KRV_ERR_NOMEM or the lock's code.
uint32_t ModuleListInit(Context *ctx)
{
    ctx->moduleList = static_cast<RawList *>(KRV_OsalMemAlloc(sizeof(RawList)));
    if (ctx->moduleList == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "list malloc fail, size: %zu", sizeof(RawList));
        return KRV_ERR_NOMEM;
    }
    uint32_t rc = KRV_OsalMutexCreate(&ctx->listLock);
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "listLock create failed");
        KRV_OsalMemFree(ctx->moduleList);
        ctx->moduleList = nullptr;
        return rc;
    }
    RawListInit(ctx->moduleList, ModuleEntryFree);
    return KRV_OK;
}

// Builds the whole context; on failure nothing is left behind. Returns KRV_OK, KRV_ERR_FAILED,
// KRV_ERR_NOMEM or a lock's code.
uint32_t ResourceInit(const KrvLogOpsCfg *cfg, Context **ctxOut)
{
    Context *ctx = nullptr;
    uint32_t rc = PreInit(cfg, &ctx);
    if (rc != KRV_OK) {
        return rc;
    }
    rc = ConfigGet(ctx, cfg);
    if (rc == KRV_OK) {
        rc = ModuleListInit(ctx);
    }
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "log resource init failed");
        ResourceRelease(ctx);
        return rc;
    }
    *ctxOut = ctx;
    return KRV_OK;
}

// Turns baseDir into the application directory; returns KRV_OK or KRV_ERR_FAILED.
uint32_t AppDirPathMake(Context *ctx)
{
    int rc = krv::strcat_s(ctx->baseDir, kPathBufSize, "/");
    if (rc != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "strcat failed, rc: %d", rc);
        return KRV_ERR_FAILED;
    }
    rc = krv::strcat_s(ctx->baseDir, kPathBufSize, ctx->cfg.appId);
    if (rc != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "strcat failed, rc: %d, src: %s", rc, ctx->cfg.appId);
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

// Starts a fresh file in a (possibly new) application directory; returns KRV_OK, KRV_ERR_FAILED or
// KRV_ERR_NOMEM.
uint32_t LogFileStart(Context *ctx)
{
    if (mkdir(ctx->baseDir, S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) != 0 && errno != EEXIST) {
        KRV_DIAG(KRV_ERR_FAILED, "mkdir failed, errno:%d, dir:%s", errno, ctx->baseDir);
        return KRV_ERR_FAILED;
    }
    uint32_t rc = LogFileCreate(ctx);
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "log file create failed");
    }
    return rc;
}

// Opens the current file (the newest of an earlier run, else a new one) and starts the writer;
// returns KRV_OK, KRV_ERR_FAILED or KRV_ERR_NOMEM. Failing, it leaves no path behind; a file it
// opened stays open, as after a stop.
uint32_t LogPrepare(Context *ctx)
{
    uint32_t rc = KRV_OK;
    bool continued = AppDirPathMake(ctx) == KRV_OK && LogFileScan(ctx) == KRV_OK && LogFileReopen(ctx) == KRV_OK;
    if (!continued) {
        rc = LogFileStart(ctx);
    }
    if (rc == KRV_OK) {
        ctx->running = 1;
        int err = pthread_create(&ctx->writer, nullptr, WriterMain, ctx);
        if (err != 0) {
            KRV_DIAG(KRV_ERR_FAILED, "create thread error, err is %d", err);
            rc = KRV_ERR_FAILED;
        }
    }
    if (rc != KRV_OK) {
        LogPathsFree(ctx);
    }
    return rc;
}

// Makes ctx the running backend. Installing the hook comes last, so that the backend's own reports
// during the build were printed by the plain diagnostic path.
void Publish(Context *ctx)
{
    g_context.store(ctx);
    (void)KRV_LogHookReg(Hook);
    ++g_initCount;
}

// Stops the writer and drops every line it has not written, oldest first.
void WriterStop(Context *ctx)
{
    KRV_OsalMutexLock(ctx->bufLock);
    ctx->running = 0;
    KRV_OsalMutexUnLock(ctx->bufLock);
    pthread_join(ctx->writer, nullptr);
    LogPathsFree(ctx);
    for (bool empty = false; !empty;) {
        KRV_OsalMutexLock(ctx->bufLock);
        empty = ctx->head == -1;
        if (!empty) {
            KRV_OsalMemFree(QueueHeadPop(ctx));
        }
        KRV_OsalMutexUnLock(ctx->bufLock);
    }
}

// The entry registered under exactly name, or null; the caller holds listLock.
ModuleEntry *ModuleFind(Context *ctx, const char *name)
{
    for (RawListNode *node = RawListFront(ctx->moduleList); node != nullptr;
         node = RawListNext(ctx->moduleList, node)) {
        ModuleEntry *entry = reinterpret_cast<ModuleEntry *>(node);
        if (std::strcmp(entry->name, name) == 0) {
            return entry;
        }
    }
    return nullptr;
}

// Makes a registry entry owning a copy of name; returns KRV_OK or KRV_ERR_NOMEM.
uint32_t ModuleEntryMake(const char *name, KrvLogHookFunc func, ModuleEntry **entryOut)
{
    size_t nameLen = std::strlen(name);
    char *copy = static_cast<char *>(KRV_OsalMemAlloc(nameLen + 1));
    if (copy == nullptr || krv::strcpy_s(copy, nameLen + 1, name) != 0) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(KRV_ERR_NOMEM, "name malloc fail, size: %zu", nameLen);
        return KRV_ERR_NOMEM;
    }
    ModuleEntry *entry = static_cast<ModuleEntry *>(KRV_OsalMemAlloc(sizeof(ModuleEntry)));
    if (entry == nullptr) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(KRV_ERR_NOMEM, "module malloc fail, size: %zu", sizeof(ModuleEntry));
        return KRV_ERR_NOMEM;
    }
    entry->name = copy;
    entry->func = func;
    *entryOut = entry;
    return KRV_OK;
}

}  // namespace
}  // namespace krv::logops

using krv::logops::Context;
using krv::logops::g_context;

extern "C" {

/* Only the first successful call configures the backend; later ones only count, ignoring cfg. */
uint32_t KRV_LogOpsInit(const KrvLogOpsCfg *cfg)
{
    using namespace krv::logops;
    if (g_initCount != 0) {
        ++g_initCount;
        return KRV_OK;
    }
    uint32_t rc = ConfigCheck(cfg);
    if (rc != KRV_OK) {
        KRV_DIAG(rc, "param check failed");
        return rc;
    }
    Context *ctx = nullptr;
    rc = ResourceInit(cfg, &ctx);
    if (rc != KRV_OK) {
        return rc;
    }
    if (HasMode(ctx, KRV_LOG_MODE_FILE)) {
        rc = LogPrepare(ctx);
        if (rc != KRV_OK) {
            KRV_DIAG(rc, "log prepare failed");
            ResourceRelease(ctx);
            return rc;
        }
    }
    Publish(ctx);
    return KRV_OK;
}

/* Lines still queued are discarded, not written: a stopping process must not wait for the disk
   (KRV_LogOpsFlush first when they matter). The current file stays open: its descriptor belongs to
   the process from here on. */
void KRV_LogOpsFini(void)
{
    using namespace krv::logops;
    if (g_initCount == 0) {
        return;
    }
    if (g_initCount > 1) {
        --g_initCount;
        return;
    }
    (void)KRV_LogHookUnReg();
    Context *ctx = g_context.exchange(nullptr);
    // A diagnostic that fetched the hook just before it went may still be inside it.
    for (const HookSlot &slot : g_hookActive) {
        while (slot.active.load() != 0) {
            KRV_OsalTaskDelay(0, kHookDrainUsec);
        }
    }
    if (HasMode(ctx, KRV_LOG_MODE_FILE)) {
        WriterStop(ctx);
    }
    ResourceRelease(ctx);
    --g_initCount;
}

/* Names are unique by exact comparison, although routing matches by prefix. */
uint32_t KRV_LogOpsReg(const char *name, KrvLogHookFunc func)
{
    using namespace krv::logops;
    Context *ctx = g_context.load();
    if (ctx == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "log module not init");
        return KRV_ERR_NOT_INIT;
    }
    if (name == nullptr || func == nullptr || strnlen(name, kModuleNameMax + 1) > kModuleNameMax) {
        KRV_DIAG(KRV_ERR_INVALID, "invalid param");
        return KRV_ERR_INVALID;
    }
    KRV_OsalMutexLock(ctx->listLock);
    if (ModuleFind(ctx, name) != nullptr) {
        KRV_OsalMutexUnLock(ctx->listLock);
        KRV_DIAG(KRV_ERR_REGISTERED, "module already reg");
        return KRV_ERR_REGISTERED;
    }
    ModuleEntry *entry = nullptr;
    uint32_t rc = ModuleEntryMake(name, func, &entry);
    if (rc == KRV_OK) {
        RawListPushBack(ctx->moduleList, &entry->link);
    }
    KRV_OsalMutexUnLock(ctx->listLock);
    return rc;
}

/* Erasing the entry through the list releases its name with it. */
uint32_t KRV_LogOpsUnreg(const char *name)
{
    using namespace krv::logops;
    Context *ctx = g_context.load();
    if (ctx == nullptr) {
        KRV_DIAG(KRV_ERR_NOT_INIT, "log module not init");
        return KRV_ERR_NOT_INIT;
    }
    if (name == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invalid param");
        return KRV_ERR_INVALID;
    }
    KRV_OsalMutexLock(ctx->listLock);
    ModuleEntry *entry = ModuleFind(ctx, name);
    if (entry != nullptr) {
        RawListErase(ctx->moduleList, &entry->link);
        KRV_OsalMutexUnLock(ctx->listLock);
        return KRV_OK;
    }
    KRV_OsalMutexUnLock(ctx->listLock);
    KRV_DIAG(KRV_ERR_NOT_REGISTERED, "module name(%s) not reg", name);
    return KRV_ERR_NOT_REGISTERED;
}

/* The level is a plain word read by every hook call without a lock. */
void KRV_LogOpsFilterSet(uint32_t level)
{
    Context *ctx = g_context.load();
    if (ctx != nullptr) {
        __atomic_store_n(&ctx->cfg.logLevel, level, __ATOMIC_RELAXED);
    }
}

uint32_t KRV_LogOpsFilterGet(void)
{
    Context *ctx = g_context.load();
    return ctx != nullptr ? __atomic_load_n(&ctx->cfg.logLevel, __ATOMIC_RELAXED) : KRV_LogLevelGet();
}

/* Counted under the buffer lock, where the drop happens. */
uint64_t KRV_LogOpsDropCountGet(void)
{
    using namespace krv::logops;
    Context *ctx = g_context.load();
    if (ctx == nullptr) {
        return 0;
    }
    KRV_OsalMutexLock(ctx->bufLock);
    uint64_t dropped = ctx->droppedLines;
    KRV_OsalMutexUnLock(ctx->bufLock);
    return dropped;
}

/* Lines leave the queue in the order they entered it, so once the writer has finished as many lines
   as had been queued at the call, every one of them is done. The writer is not woken: it keeps its
   naps, so a flush takes up to one nap longer than the writing itself. */
uint32_t KRV_LogOpsFlush(uint32_t timeoutMs)
{
    using namespace krv::logops;
    Context *ctx = g_context.load();
    if (ctx == nullptr || !HasMode(ctx, KRV_LOG_MODE_FILE)) {
        return KRV_ERR_NOT_INIT;
    }
    struct timespec deadline = {};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    uint64_t deadlineNs = static_cast<uint64_t>(deadline.tv_sec) * 1000000000u +
                          static_cast<uint64_t>(deadline.tv_nsec) + static_cast<uint64_t>(timeoutMs) * 1000000u;
    KRV_OsalMutexLock(ctx->bufLock);
    const uint64_t target = ctx->queuedLines;
    KRV_OsalMutexUnLock(ctx->bufLock);
    for (;;) {
        KRV_OsalMutexLock(ctx->bufLock);
        bool done = ctx->doneLines >= target;
        KRV_OsalMutexUnLock(ctx->bufLock);
        if (done) {
            return KRV_OK;
        }
        struct timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec) >= deadlineNs) {
            return KRV_ERR_PLATFORM;
        }
        KRV_OsalTaskDelay(0, kFlushPollUsec);
    }
}

}  // extern "C"
