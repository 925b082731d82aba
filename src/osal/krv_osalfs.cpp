// Paths and socket I/O: one system call each, failures translated to the library's error numbers.
#include "krv_osalfs.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "krv_osal.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_pathbuf.h"

namespace {

constexpr char kKrvSource[] = "krv_osalfs";
constexpr size_t kPeerTextSize = 16;  // INET_ADDRSTRLEN: the length reported is always this

// The I/O failures callers are prepared for; the values agree with KRV_OsalEnoTransfer.
uint32_t TranslateIoErrno(int err)
{
    switch (err) {
        case EPERM: return 1;
        case EINTR: return 4;
        case EIO: return 5;
        case EBADF: return 9;
        case EAGAIN: return 11;  // also EWOULDBLOCK on Linux, so 41 never comes out
        case EFAULT: return 14;
        case EISDIR: return 21;
        case EINVAL: return 22;
        case EFBIG: return 27;
        case ENOSPC: return 28;
        case EPIPE: return 32;
        case EDESTADDRREQ: return 88;
        case EDQUOT: return 121;
        default: return 255;
    }
}

}  // namespace

extern "C" {

/* One write() only: partial transfers and EINTR are left to the caller. */
uint32_t KRV_OsalIoSend(uint32_t fd, const void *buf, uint64_t len, uint64_t *sentLen)
{
    ssize_t done = write(static_cast<int>(fd), buf, len);
    if (done < 0) {
        return TranslateIoErrno(errno);
    }
    *sentLen = static_cast<uint64_t>(done);
    return 0;
}

uint32_t KRV_OsalIoRecv(uint32_t fd, void *buf, uint64_t len, uint64_t *recvLen)
{
    ssize_t done = read(static_cast<int>(fd), buf, len);
    if (done < 0) {
        return TranslateIoErrno(errno);
    }
    *recvLen = static_cast<uint64_t>(done);
    return 0;
}

/* The whole 16-byte text buffer is copied and reported, trailing NULs included. */
uint32_t KRV_OsalPeerAddrGet(uint32_t sockfd, uint64_t bufLen, char *buf, uint64_t *addrLen)
{
    if (buf == nullptr || addrLen == nullptr || bufLen == 0) {
        return 22;
    }
    struct sockaddr_in peer = {};
    socklen_t peerLen = sizeof(peer);
    errno = 0;
    if (getpeername(static_cast<int>(sockfd), reinterpret_cast<struct sockaddr *>(&peer), &peerLen) != 0) {
        return TranslateIoErrno(errno);
    }
    char text[kPeerTextSize] = {};
    (void)inet_ntop(AF_INET, &peer.sin_addr, text, sizeof(text));
    if (krv::memcpy_s(buf, bufLen, text, sizeof(text)) != 0) {
        return 1;
    }
    *addrLen = kPeerTextSize;
    return 0;
}

/* A path that does not exist is not an error here: callers create what is missing. Without a
   buffer realpath would allocate one that nobody frees, so that is refused as a failure. */
uint32_t KRV_RealPath(const char *path, char *resolved)
{
    if (resolved == nullptr) {
        return 1;
    }
    if (realpath(path, resolved) != nullptr) {
        return 0;
    }
    return errno == ENOENT ? 0 : 1;
}

uint32_t KRV_RealPathCheck(const char *path)
{
    if (path == nullptr) {
        KRV_DIAG_AT(45, 22, krv::kLevelError, "param is null");
        return 22;
    }
    char *resolved = static_cast<char *>(KRV_OsalMemAlloc(krv::kPathBufSize));
    if (resolved == nullptr) {
        KRV_DIAG_AT(51, 12, krv::kLevelError, "malloc failed, pathLen:%zu", static_cast<size_t>(krv::kPathBufSize));
        return 12;
    }
    resolved[0] = '\0';  // a missing path may leave the buffer untouched; compare against "" then
    uint32_t result = 0;
    if (KRV_RealPath(path, resolved) != 0) {
        KRV_DIAG_AT(56, 1, krv::kLevelError, "RealPath fail, path:%s", path);
        result = 1;
    } else if (std::strcmp(resolved, path) != 0) {
        KRV_DIAG_AT(63, 22, krv::kLevelError, "strcmp fail, realpath:%s, path:%s", resolved, path);
        result = 22;
    }
    KRV_OsalMemFree(resolved);
    return result;
}

}  // extern "C"
