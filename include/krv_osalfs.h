/* Paths and socket I/O with errno values translated to the library's error numbers. */
#ifndef KRV_OSALFS_H
#define KRV_OSALFS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One write() of len bytes; returns 0 with *sentLen set, or the translated errno. */
uint32_t KRV_OsalIoSend(uint32_t fd, const void *buf, uint64_t len, uint64_t *sentLen);
/* One read() of up to len bytes; returns 0 with *recvLen set (0 at end of file), or the translated errno. */
uint32_t KRV_OsalIoRecv(uint32_t fd, void *buf, uint64_t len, uint64_t *recvLen);
/* Copies the 16-byte IPv4 peer text into buf (capacity first); returns 0 with *addrLen = 16, 22, 1 or the translated errno. */
uint32_t KRV_OsalPeerAddrGet(uint32_t sockfd, uint64_t bufLen, char *buf, uint64_t *addrLen);
/* Canonicalises path into resolved (at least 4096 bytes); returns 0 (also when the path does not exist) or 1 (also for a null argument). */
uint32_t KRV_RealPath(const char *path, char *resolved);
/* Returns 0 when path is already absolute and canonical, else 22, 1 or 12. */
uint32_t KRV_RealPathCheck(const char *path);

#ifdef __cplusplus
}
#endif

#endif /* KRV_OSALFS_H */
