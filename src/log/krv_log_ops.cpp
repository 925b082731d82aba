// File log backend, lifecycle and module registry: building and tearing down the context, starting
// and stopping the writer, and the modules that claim tagged diagnostics.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "krv_log_ops.h"
#include "krv_osal.h"
#include "krv_osalfs.h"
#include "log/krv_diag.h"
#include "log/krv_log_ops_internal.h"
#include "osal/krv_bounded.h"

namespace krv::logops {

std::atomic<Context *> g_context{nullptr};
std::atomic<uint32_t> g_hookActive{0};

namespace {

constexpr char kKrvSource[] = "krv_log_ops";
constexpr uint32_t kMinLogSize = 5120;
constexpr size_t kAppIdMax = sizeof(KrvLogOpsCfg::appId) - 1;
constexpr size_t kModuleNameMax = 32;
constexpr uint32_t kHookDrainUsec = 1000;

// Successful inits not yet matched by a fini; a plain word: init and fini must not race.
uint32_t g_initCount = 0;

// Checks the configuration; returns 0, 22 or the path check's code, having reported why.
uint32_t ConfigCheck(const KrvLogOpsCfg *cfg)
{
    if (cfg == nullptr) {
        KRV_DIAG(22, "parameter is NULL");
        return 22;
    }
    if ((cfg->logMode & KRV_LOG_MODE_FILE) != 0) {
        if (cfg->logDir == nullptr || cfg->logSize < kMinLogSize) {
            KRV_DIAG(22, "logDir is null or log size is valid, log size:%u, log mode:%u", cfg->logSize,
                     cfg->logMode);
            return 22;
        }
        uint32_t rc = KRV_RealPathCheck(cfg->logDir);
        if (rc != 0) {
            KRV_DIAG(rc, "logDir realpath check failed, path: %s", cfg->logDir);
            return rc;
        }
    }
    size_t appIdLen = strnlen(cfg->appId, sizeof(cfg->appId));
    if (appIdLen == 0 || appIdLen > kAppIdMax) {
        KRV_DIAG(22, "appId is invalid, len: %zu", appIdLen);
        return 22;
    }
    return 0;
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

// Allocates the context with its queue and buffer lock; returns 0, 12 or the lock's code.
uint32_t PreInit(const KrvLogOpsCfg *cfg, Context **ctxOut)
{
    Context *ctx = static_cast<Context *>(KRV_OsalMemCalloc(1, sizeof(Context)));
    if (ctx == nullptr) {
        KRV_DIAG(12, "malloc fail, size: %zu", sizeof(Context));
        KRV_DIAG(12, "log pre init failed");
        KRV_DIAG(12, "log resource init failed");
        return 12;
    }
    ctx->fd = -1;
    ctx->head = -1;
    uint32_t rc = 0;
    ctx->lineQueue = static_cast<char **>(KRV_OsalMemCalloc(kQueueSlots, sizeof(char *)));
    if (ctx->lineQueue == nullptr) {
        KRV_DIAG(12, "mem alloc failed, num:%u", kQueueSlots);
        rc = 12;
    } else {
        rc = KRV_OsalMutexCreate(&ctx->bufLock);
        if (rc != 0) {
            KRV_DIAG(rc, "lock create failed");
        }
    }
    if (rc != 0) {
        KRV_DIAG(rc, "log resource init failed");
        KRV_DIAG(rc, "log pre init failed");
        PreResourceRelease(ctx);
        return rc;
    }
    ctx->cfg = *cfg;
    *ctxOut = ctx;
    return 0;
}

// Fills baseDir with logDir, or "/tmp" without the file bit; returns 0, 1 or 12.
uint32_t ConfigGet(Context *ctx, const KrvLogOpsCfg *cfg)
{
    ctx->baseDir = static_cast<char *>(KRV_OsalMemAlloc(kPathBufSize));
    if (ctx->baseDir == nullptr) {
        KRV_DIAG(12, "malloc fail, size: %u", kPathBufSize);
        KRV_DIAG(12, "log config get failed");
        return 12;
    }
    ctx->cfg.logDir = ctx->baseDir;
    const char *dir = HasMode(ctx, KRV_LOG_MODE_FILE) ? cfg->logDir : "/tmp";
    if (krv::strcpy_s(ctx->baseDir, kPathBufSize, dir) != 0) {
        KRV_DIAG(1, "strcpy failed, baseDir: %s", dir);
        KRV_DIAG(1, "log config get failed");
        return 1;
    }
    return 0;
}

// Makes the empty module list and its lock; returns 0, 12 or the lock's code.
uint32_t ModuleListInit(Context *ctx)
{
    ctx->moduleList = static_cast<RawList *>(KRV_OsalMemAlloc(sizeof(RawList)));
    if (ctx->moduleList == nullptr) {
        KRV_DIAG(12, "list malloc fail, size: %zu", sizeof(RawList));
        return 12;
    }
    uint32_t rc = KRV_OsalMutexCreate(&ctx->listLock);
    if (rc != 0) {
        KRV_DIAG(rc, "listLock create failed");
        KRV_OsalMemFree(ctx->moduleList);
        ctx->moduleList = nullptr;
        return rc;
    }
    RawListInit(ctx->moduleList, ModuleEntryFree);
    return 0;
}

// Builds the whole context; on failure nothing is left behind. Returns 0, 1, 12 or a lock's code.
uint32_t ResourceInit(const KrvLogOpsCfg *cfg, Context **ctxOut)
{
    Context *ctx = nullptr;
    uint32_t rc = PreInit(cfg, &ctx);
    if (rc != 0) {
        return rc;
    }
    rc = ConfigGet(ctx, cfg);
    if (rc == 0) {
        rc = ModuleListInit(ctx);
    }
    if (rc != 0) {
        KRV_DIAG(rc, "log resource init failed");
        ResourceRelease(ctx);
        return rc;
    }
    *ctxOut = ctx;
    return 0;
}

// Turns baseDir into the application directory; returns 0, or the bounded append's code.
uint32_t AppDirPathMake(Context *ctx)
{
    int rc = krv::strcat_s(ctx->baseDir, kPathBufSize, "/");
    if (rc != 0) {
        KRV_DIAG(1, "strcat failed, rc: %d", rc);
        return 1;
    }
    rc = krv::strcat_s(ctx->baseDir, kPathBufSize, ctx->cfg.appId);
    if (rc != 0) {
        KRV_DIAG(1, "strcat failed, rc: %d, src: %s", rc, ctx->cfg.appId);
        return 1;
    }
    return 0;
}

// Starts a fresh file in a (possibly new) application directory; returns 0, 1 or 12.
uint32_t LogFileStart(Context *ctx)
{
    if (mkdir(ctx->baseDir, S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) != 0 && errno != EEXIST) {
        KRV_DIAG(1, "mkdir failed, errno:%d, dir:%s", errno, ctx->baseDir);
        return 1;
    }
    uint32_t rc = LogFileCreate(ctx);
    if (rc != 0) {
        KRV_DIAG(rc, "log file create failed");
    }
    return rc;
}

// Opens the current file (the newest of an earlier run, else a new one) and starts the writer;
// returns 0, 1 or 12. Failing, it leaves no descriptor and no path behind.
uint32_t LogPrepare(Context *ctx)
{
    uint32_t rc = 0;
    bool continued = AppDirPathMake(ctx) == 0 && LogFileScan(ctx) == 0 && LogFileReopen(ctx) == 0;
    if (!continued) {
        rc = LogFileStart(ctx);
    }
    if (rc == 0) {
        ctx->running = 1;
        int err = pthread_create(&ctx->writer, nullptr, WriterMain, ctx);
        if (err != 0) {
            KRV_DIAG(1, "create thread error, err is %d", err);
            rc = 1;
        }
    }
    if (rc != 0) {
        LogPathsFree(ctx);
        if (ctx->fd >= 0) {
            close(ctx->fd);
            ctx->fd = -1;
        }
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

// Makes a registry entry owning a copy of name; returns 0 or 12.
uint32_t ModuleEntryMake(const char *name, KrvLogHookFunc func, ModuleEntry **entryOut)
{
    size_t nameLen = std::strlen(name);
    char *copy = static_cast<char *>(KRV_OsalMemAlloc(nameLen + 1));
    if (copy == nullptr || krv::strcpy_s(copy, nameLen + 1, name) != 0) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(12, "name malloc fail, size: %zu", nameLen);
        return 12;
    }
    ModuleEntry *entry = static_cast<ModuleEntry *>(KRV_OsalMemAlloc(sizeof(ModuleEntry)));
    if (entry == nullptr) {
        KRV_OsalMemFree(copy);
        KRV_DIAG(12, "module malloc fail, size: %zu", sizeof(ModuleEntry));
        return 12;
    }
    entry->name = copy;
    entry->func = func;
    *entryOut = entry;
    return 0;
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
        return 0;
    }
    uint32_t rc = ConfigCheck(cfg);
    if (rc != 0) {
        KRV_DIAG(rc, "param check failed");
        return rc;
    }
    Context *ctx = nullptr;
    rc = ResourceInit(cfg, &ctx);
    if (rc != 0) {
        return rc;
    }
    if (HasMode(ctx, KRV_LOG_MODE_FILE)) {
        rc = LogPrepare(ctx);
        if (rc != 0) {
            KRV_DIAG(rc, "log prepare failed");
            ResourceRelease(ctx);
            return rc;
        }
    }
    Publish(ctx);
    return 0;
}

/* Lines still queued are discarded, not written: a stopping process must not wait for the disk. */
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
    while (g_hookActive.load() != 0) {
        KRV_OsalTaskDelay(0, kHookDrainUsec);
    }
    if (HasMode(ctx, KRV_LOG_MODE_FILE)) {
        WriterStop(ctx);
    }
    if (ctx->fd >= 0) {
        close(ctx->fd);
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
        KRV_DIAG(124, "log module not init");
        return 124;
    }
    if (name == nullptr || func == nullptr || strnlen(name, kModuleNameMax + 1) > kModuleNameMax) {
        KRV_DIAG(22, "invalid param");
        return 22;
    }
    KRV_OsalMutexLock(ctx->listLock);
    if (ModuleFind(ctx, name) != nullptr) {
        KRV_OsalMutexUnLock(ctx->listLock);
        KRV_DIAG(113, "module already reg");
        return 113;
    }
    ModuleEntry *entry = nullptr;
    uint32_t rc = ModuleEntryMake(name, func, &entry);
    if (rc == 0) {
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
        KRV_DIAG(124, "log module not init");
        return 124;
    }
    if (name == nullptr) {
        KRV_DIAG(22, "invalid param");
        return 22;
    }
    KRV_OsalMutexLock(ctx->listLock);
    ModuleEntry *entry = ModuleFind(ctx, name);
    if (entry != nullptr) {
        RawListErase(ctx->moduleList, &entry->link);
        KRV_OsalMutexUnLock(ctx->listLock);
        return 0;
    }
    KRV_OsalMutexUnLock(ctx->listLock);
    KRV_DIAG(60, "module name(%s) not reg", name);
    return 60;
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

}  // extern "C"
