/* File log backend: routes, filters and queues diagnostics, and writes a ring of three rotating files. */
#ifndef KRV_LOG_OPS_H
#define KRV_LOG_OPS_H

#include <stdint.h>

#include "krv_log.h"
#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KRV_LOG_MODE_MODULE 1u /* route tagged diagnostics to registered module functions */
#define KRV_LOG_MODE_FILE 2u   /* write lines to the log file ring */
#define KRV_LOG_MODE_STDOUT 4u /* print lines to standard output */

/* Backend configuration; copied whole by KRV_LogOpsInit. */
typedef struct {
    char appId[32];      /* 1..31 characters; names the log directory and prefixes file names */
    const char *logDir;  /* existing canonical base directory; used only with KRV_LOG_MODE_FILE */
    uint32_t logMode;    /* bit set of KRV_LOG_MODE_* */
    uint32_t logSize;    /* byte budget of the three files together; at least 5120 with the file bit */
    uint32_t logLevel;   /* the backend's filter level */
} KrvLogOpsCfg;

/* Starts the backend (or counts a further user); returns KRV_OK, KRV_ERR_INVALID, KRV_ERR_NOMEM,
   KRV_ERR_FAILED or the path check's code. */
uint32_t KRV_LogOpsInit(const KrvLogOpsCfg *cfg);
/* Drops one user; the last one stops the writer and discards queued lines (the current file stays open). */
void KRV_LogOpsFini(void);
/* Registers func for diagnostics tagged "[name..."; returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID,
   KRV_ERR_REGISTERED or KRV_ERR_NOMEM. The name is copied. */
uint32_t KRV_LogOpsReg(const char *name, KrvLogHookFunc func);
/* Removes the module registered under name; returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID or
   KRV_ERR_NOT_REGISTERED. */
uint32_t KRV_LogOpsUnreg(const char *name);
/* Sets the backend's filter level; ignored while the backend is not initialised. */
void KRV_LogOpsFilterSet(uint32_t level);
/* Returns the backend's filter level, or KRV_LogLevelGet() while not initialised. */
uint32_t KRV_LogOpsFilterGet(void);
/* Returns the number of lines a full queue has dropped since KRV_LogOpsInit; 0 while not initialised. */
uint64_t KRV_LogOpsDropCountGet(void);
/* Waits up to timeoutMs until the writer has finished every line queued before the call; returns KRV_OK,
   KRV_ERR_PLATFORM on timeout, or KRV_ERR_NOT_INIT when not initialised or not writing files. */
uint32_t KRV_LogOpsFlush(uint32_t timeoutMs);

#ifdef __cplusplus
}
#endif

#endif /* KRV_LOG_OPS_H */
