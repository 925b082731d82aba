/* Paths and socket I/O with errno values translated to the library's error numbers. */
#ifndef KRV_OSALFS_H
#define KRV_OSALFS_H

#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One write() of len bytes; returns KRV_OK with *sentLen set, or the translated errno (KRV_ERR_UNKNOWN when
   it has no translation). */
uint32_t KRV_OsalIoSend(uint32_t fd, const void *buf, uint64_t len, uint64_t *sentLen);
/* One read() of up to len bytes; returns KRV_OK with *recvLen set (0 at end of file), or the translated errno. */
uint32_t KRV_OsalIoRecv(uint32_t fd, void *buf, uint64_t len, uint64_t *recvLen);
/* Copies the 16-byte IPv4 peer text into buf (capacity first); returns KRV_OK with *addrLen = 16,
   KRV_ERR_INVALID (null or empty buffer), KRV_ERR_FAILED (buffer too small) or the translated errno. */
uint32_t KRV_OsalPeerAddrGet(uint32_t sockfd, uint64_t bufLen, char *buf, uint64_t *addrLen);
/* Canonicalises path into resolved (at least 4096 bytes); returns KRV_OK (also when the path does not exist)
   or KRV_ERR_FAILED (also for a null buffer). */
uint32_t KRV_RealPath(const char *path, char *resolved);
/* Returns KRV_OK when path is already absolute and canonical, else KRV_ERR_INVALID (null or not canonical),
   KRV_ERR_FAILED (resolution failed) or KRV_ERR_NOMEM; each failure is logged. */
uint32_t KRV_RealPathCheck(const char *path);

#ifdef __cplusplus
}
#endif

#endif /* KRV_OSALFS_H */
