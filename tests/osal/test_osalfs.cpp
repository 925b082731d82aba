// Paths and socket I/O: canonical-path checks with their reports, resolution failures, and socket
// transfers with errno translation.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

#include "krv_osalfs.h"
#include "support/krv_test_support.h"

namespace {

// KRV_RealPathCheck's result, with "<line> <message>" of its single report in *report.
uint32_t Check(const std::string &path, std::string *report = nullptr, bool nullPath = false)
{
    krvtest::DiagCapture diags;
    uint32_t rc = KRV_RealPathCheck(nullPath ? nullptr : path.c_str());
    std::vector<krvtest::Diag> got = diags.Take();
    EXPECT_EQ(rc == 0 ? 0u : 1u, got.size()) << path;
    for (const krvtest::Diag &d : got) {
        EXPECT_EQ("krv_osalfs", d.file);
        EXPECT_EQ(2u, d.level);
        EXPECT_EQ(rc, d.code);
        if (report != nullptr) {
            *report = std::to_string(d.line) + " " + d.msg;
        }
    }
    return rc;
}

TEST(RealPathCheck, PassesOnlyAbsoluteCanonicalPaths)
{
    krvtest::TempDir dir;
    const std::string base = dir.Path();
    ASSERT_EQ(0, mkdir((base + "/sub").c_str(), 0755));
    ASSERT_EQ(0, symlink((base + "/sub").c_str(), (base + "/link").c_str()));
    close(open((base + "/file").c_str(), O_CREAT | O_WRONLY, 0600));

    EXPECT_EQ(0u, Check("/"));
    EXPECT_EQ(0u, Check(base + "/sub"));
    EXPECT_EQ(0u, Check(base + "/not-yet")) << "a missing last component is left as written";
    std::string report;
    EXPECT_EQ(22u, Check(base + "/sub/", &report));
    EXPECT_EQ("63 strcmp fail, realpath:" + base + "/sub, path:" + base + "/sub/", report);
    for (const std::string &path : {std::string("tmp"), std::string("."), base + "/link", base + "/sub/../sub",
                                    base + "//sub", base + "/missing/deeper"}) {
        EXPECT_EQ(22u, Check(path, &report)) << path;
        EXPECT_EQ("63 strcmp", report.substr(0, 9));
    }
    EXPECT_EQ(22u, Check("", &report, true));
    EXPECT_EQ("45 param is null", report);
    EXPECT_EQ(1u, Check(base + "/file/child", &report));
    EXPECT_EQ("56 RealPath fail, path:" + base + "/file/child", report);
    krvtest::AllocFailure failure(0, 1);  // the buffer; the capture's own allocations succeed
    EXPECT_EQ(12u, Check("/", &report));
    EXPECT_EQ("51 malloc failed, pathLen:4096", report);
}

TEST(RealPath, TreatsOnlyAMissingPathAsSuccess)
{
    krvtest::TempDir dir;
    const std::string base = dir.Path();
    char resolved[4096];
    EXPECT_EQ(0u, KRV_RealPath((base + "/missing").c_str(), resolved));
    EXPECT_EQ(0u, KRV_RealPath((base + "/.").c_str(), resolved));
    EXPECT_EQ(base, resolved);
    // Root searches every directory, so other failures than a missing path stand in for EACCES.
    close(open((base + "/file").c_str(), O_CREAT | O_WRONLY, 0600));
    EXPECT_EQ(1u, KRV_RealPath((base + "/file/child").c_str(), resolved)) << "ENOTDIR";
    ASSERT_EQ(0, symlink((base + "/loop").c_str(), (base + "/loop").c_str()));
    EXPECT_EQ(1u, KRV_RealPath((base + "/loop").c_str(), resolved)) << "ELOOP";
    EXPECT_EQ(1u, KRV_RealPath(nullptr, resolved));
    EXPECT_EQ(1u, KRV_RealPath(base.c_str(), nullptr));
}

TEST(OsalIo, TransfersOnceAndTranslatesFailures)
{
    std::signal(SIGPIPE, SIG_IGN);
    int fds[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
    uint64_t count = 99;
    char buf[16] = {};
    EXPECT_EQ(0u, KRV_OsalIoSend(fds[0], "hello", 5, &count));
    EXPECT_EQ(5u, count);
    EXPECT_EQ(0u, KRV_OsalIoRecv(fds[1], buf, sizeof(buf), &count));
    EXPECT_EQ(5u, count);
    EXPECT_STREQ("hello", buf);
    fcntl(fds[1], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(11u, KRV_OsalIoRecv(fds[1], buf, sizeof(buf), &count)) << "EAGAIN";
    EXPECT_EQ(5u, count) << "a failure leaves the count alone";
    close(fds[0]);
    EXPECT_EQ(0u, KRV_OsalIoRecv(fds[1], buf, sizeof(buf), &count));
    EXPECT_EQ(0u, count) << "end of file";
    EXPECT_EQ(32u, KRV_OsalIoSend(fds[1], "x", 1, &count)) << "EPIPE";
    close(fds[1]);
    EXPECT_EQ(9u, KRV_OsalIoRecv(fds[1], buf, sizeof(buf), &count));
    EXPECT_EQ(9u, KRV_OsalIoSend(fds[1], "x", 1, &count));

    // More rows of the translation, each provoked for real: the numbers above 58 shift down by one.
    int dir = open("/", O_RDONLY);
    int full = open("/dev/full", O_WRONLY);
    int udp = socket(AF_INET, SOCK_DGRAM, 0);
    int event = eventfd(0, 0);
    ASSERT_EQ(0, pipe(fds));
    ASSERT_EQ(3, write(fds[1], "abc", 3));
    void *volatile unmapped = reinterpret_cast<void *>(8);
    EXPECT_EQ(21u, KRV_OsalIoRecv(dir, buf, sizeof(buf), &count)) << "EISDIR";
    EXPECT_EQ(28u, KRV_OsalIoSend(full, "x", 1, &count)) << "ENOSPC";
    EXPECT_EQ(88u, KRV_OsalIoSend(udp, "x", 1, &count)) << "EDESTADDRREQ";
    EXPECT_EQ(22u, KRV_OsalIoSend(event, "x", 1, &count)) << "EINVAL";
    EXPECT_EQ(14u, KRV_OsalIoRecv(fds[0], unmapped, 3, &count)) << "EFAULT";
    for (int fd : {dir, full, udp, event, fds[0], fds[1]}) {
        close(fd);
    }
    std::signal(SIGPIPE, SIG_DFL);
}

TEST(OsalPeerAddr, ReportsTheWholeSixteenByteText)
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(addr);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr *>(&addr), len));
    ASSERT_EQ(0, listen(listener, 1));
    getsockname(listener, reinterpret_cast<sockaddr *>(&addr), &len);
    int client = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(0, connect(client, reinterpret_cast<sockaddr *>(&addr), len));

    char buf[32];
    uint64_t addrLen = 0;
    EXPECT_EQ(22u, KRV_OsalPeerAddrGet(client, sizeof(buf), nullptr, &addrLen));
    EXPECT_EQ(22u, KRV_OsalPeerAddrGet(client, sizeof(buf), buf, nullptr));
    EXPECT_EQ(22u, KRV_OsalPeerAddrGet(client, 0, buf, &addrLen));
    EXPECT_EQ(1u, KRV_OsalPeerAddrGet(client, 15, buf, &addrLen));
    std::memset(buf, 'z', sizeof(buf));
    EXPECT_EQ(0u, KRV_OsalPeerAddrGet(client, 16, buf, &addrLen));
    EXPECT_EQ(16u, addrLen);
    EXPECT_EQ(0, std::memcmp("127.0.0.1\0\0\0\0\0\0\0z", buf, 17)) << "trailing NULs are copied, no more";
    int unconnected = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(255u, KRV_OsalPeerAddrGet(unconnected, 16, buf, &addrLen)) << "ENOTCONN is not in the table";
    for (int fd : {unconnected, client, listener}) {
        close(fd);
    }
    EXPECT_EQ(9u, KRV_OsalPeerAddrGet(client, 16, buf, &addrLen));
}

}  // namespace
