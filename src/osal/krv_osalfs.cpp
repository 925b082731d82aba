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
#include "krv_osaleno.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_pathbuf.h"

namespace {

constexpr char kKrvSource[] = "krv_osalfs";
constexpr size_t kPeerTextSize = 16;  // INET_ADDRSTRLEN: the length reported is always this

// Lines of KRV_RealPathCheck's reports, fixed by the interface.
constexpr uint32_t kLineNullPath = 45;
constexpr uint32_t kLineNoBuffer = 51;
constexpr uint32_t kLineResolveFailed = 56;
constexpr uint32_t kLineNotCanonical = 63;

// The I/O failures callers are prepared for get their library error number; any other is unknown.
uint32_t TranslateIoErrno(int err)
{
    switch (err) {
        case EPERM:
        case EINTR:
        case EIO:
        case EBADF:
        case EAGAIN:  // also EWOULDBLOCK on Linux, so its 41 never comes out
        case EFAULT:
        case EISDIR:
        case EINVAL:
        case EFBIG:
        case ENOSPC:
        case EPIPE:
        case EDESTADDRREQ:
        case EDQUOT:
            return KRV_OsalEnoTransfer(err);
        default:
            return KRV_ERR_UNKNOWN;
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
    return KRV_OK;
}

uint32_t KRV_OsalIoRecv(uint32_t fd, void *buf, uint64_t len, uint64_t *recvLen)
{
    ssize_t done = read(static_cast<int>(fd), buf, len);
    if (done < 0) {
        return TranslateIoErrno(errno);
    }
    *recvLen = static_cast<uint64_t>(done);
    return KRV_OK;
}

/* The whole 16-byte text buffer is copied and reported, trailing NULs included. */
uint32_t KRV_OsalPeerAddrGet(uint32_t sockfd, uint64_t bufLen, char *buf, uint64_t *addrLen)
{
    if (buf == nullptr || addrLen == nullptr || bufLen == 0) {
        return KRV_ERR_INVALID;
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
        return KRV_ERR_FAILED;
    }
    *addrLen = kPeerTextSize;
    return KRV_OK;
}

/* A path that does not exist is not an error here: callers create what is missing. Without a
   buffer realpath would allocate one that nobody frees, so that is refused as a failure. */
uint32_t KRV_RealPath(const char *path, char *resolved)
{
    if (resolved == nullptr) {
        return KRV_ERR_FAILED;
    }
    if (realpath(path, resolved) != nullptr) {
        return KRV_OK;
    }
    return errno == ENOENT ? KRV_OK : KRV_ERR_FAILED;
}

uint32_t KRV_RealPathCheck(const char *path)
{
    if (path == nullptr) {
        KRV_DIAG_AT(kLineNullPath, KRV_ERR_INVALID, krv::kLevelError, "param is null");
        return KRV_ERR_INVALID;
    }
    char *resolved = static_cast<char *>(KRV_OsalMemAlloc(krv::kPathBufSize));
    if (resolved == nullptr) {
        KRV_DIAG_AT(kLineNoBuffer, KRV_ERR_NOMEM, krv::kLevelError, "malloc failed, pathLen:%zu",
                    static_cast<size_t>(krv::kPathBufSize));
        return KRV_ERR_NOMEM;
    }
    resolved[0] = '\0';  // a missing path may leave the buffer untouched; compare against "" then
    uint32_t result = KRV_OK;
    if (KRV_RealPath(path, resolved) != KRV_OK) {
        KRV_DIAG_AT(kLineResolveFailed, KRV_ERR_FAILED, krv::kLevelError, "RealPath fail, path:%s", path);
        result = KRV_ERR_FAILED;
    } else if (std::strcmp(resolved, path) != 0) {
        KRV_DIAG_AT(kLineNotCanonical, KRV_ERR_INVALID, krv::kLevelError, "strcmp fail, realpath:%s, path:%s", resolved,
                    path);
        result = KRV_ERR_INVALID;
    }
    KRV_OsalMemFree(resolved);
    return result;
}

}  // extern "C"
