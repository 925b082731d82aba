/* Diagnostic hook: the single entry point through which every module reports. */
#ifndef KRV_LOG_H
#define KRV_LOG_H

#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Receives every formatted diagnostic: code, level, source base name (may be null), line, message without newline. */
typedef void (*KrvLogHookFunc)(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg);

/* Installs hook; returns KRV_OK, or KRV_ERR_INVALID when hook is null or one is already installed. */
uint32_t KRV_LogHookReg(KrvLogHookFunc hook);
/* Removes the installed hook; returns KRV_OK, or KRV_ERR_FAILED when none was installed. */
uint32_t KRV_LogHookUnReg(void);
/* Sets the most verbose level printed when no hook is installed (initially 2). */
void KRV_LogFilter(uint32_t level);
/* Returns the filter level of the printing path. */
uint32_t KRV_LogLevelGet(void);
/* Formats a diagnostic (at most 1023 characters) and hands it to the hook or prints it; never fails towards the caller. */
void KRV_LogWrite(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 5, 6)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif /* KRV_LOG_H */
