// Paths and socket I/O: canonical-path checks with their reports, resolution failures, and single
// transfers with errno translation.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "krv_osalfs.h"
#include "support/krv_test_support.h"

namespace {

// KRV_RealPathCheck's result; its single report (file, level, code checked here) as "<line> <message>".
uint32_t Check(const char *path, std::string *report)
{
    krvtest::DiagCapture diags;
    uint32_t rc = KRV_RealPathCheck(path);
    std::vector<krvtest::Diag> got = diags.Take();
    EXPECT_EQ(rc == 0 ? 0u : 1u, got.size()) << path;
    report->clear();
    for (const krvtest::Diag &d : got) {
        EXPECT_TRUE(d.file == "krv_osalfs" && d.level == 2 && d.code == rc) << d.file << d.level << d.code;
        *report = std::to_string(d.line) + " " + d.msg;
    }
    return rc;
}

TEST(RealPath, CheckPassesOnlyAbsoluteCanonicalPathsAndResolveFailsOnlyOnRealErrors)
{
    krvtest::TempDir dir;
    const std::string base = dir.Path();
    ASSERT_EQ(0, mkdir((base + "/sub").c_str(), 0755));
    ASSERT_EQ(0, symlink((base + "/sub").c_str(), (base + "/link").c_str()));
    ASSERT_EQ(0, symlink((base + "/loop").c_str(), (base + "/loop").c_str()));
    close(open((base + "/file").c_str(), O_CREAT | O_WRONLY, 0600));
    const std::pair<std::string, std::string> cases[] = {
        {"/", ""},
        {base + "/sub", ""},
        {base + "/not-yet", ""},  // a missing last component is left as written
        {base + "/sub/", "63 strcmp fail, realpath:" + base + "/sub, path:" + base + "/sub/"},
        {"tmp", "63 strcmp fail, realpath:"},
        {base + "/link", "63 strcmp fail, realpath:"},
        {base + "/sub/../sub", "63 strcmp fail, realpath:"},
        {base + "//sub", "63 strcmp fail, realpath:"},
        {base + "/missing/deeper", "63 strcmp fail, realpath:"},
        {base + "/file/child", "56 RealPath fail, path:" + base + "/file/child"},
    };
    std::string report;
    for (const auto &[path, expected] : cases) {
        uint32_t want = expected.empty() ? 0 : expected[0] == '6' ? 22 : 1;
        EXPECT_EQ(want, Check(path.c_str(), &report)) << path;
        EXPECT_EQ(expected, report.substr(0, expected.size())) << path;
    }
    EXPECT_EQ(22u, Check(nullptr, &report));
    EXPECT_EQ("45 param is null", report);
    krvtest::AllocFailure failure(0, 1);  // the buffer; the capture's own allocations succeed
    EXPECT_EQ(12u, Check("/", &report));
    EXPECT_EQ("51 malloc failed, pathLen:4096", report);

    char resolved[4096];
    EXPECT_EQ(0u, KRV_RealPath((base + "/missing").c_str(), resolved));
    EXPECT_EQ(0u, KRV_RealPath((base + "/.").c_str(), resolved));
    EXPECT_EQ(base, resolved);
    // Root searches every directory, so ENOTDIR and ELOOP stand in for EACCES.
    for (const char *bad : {"/file/child", "/loop"}) {
        EXPECT_EQ(1u, KRV_RealPath((base + bad).c_str(), resolved)) << bad;
    }
    EXPECT_EQ(1u, KRV_RealPath(nullptr, resolved));
    EXPECT_EQ(1u, KRV_RealPath(base.c_str(), nullptr));
}

// A file sealed against writing.
int SealedFile()
{
    int fd = memfd_create("sealed", MFD_ALLOW_SEALING);
    fcntl(fd, F_ADD_SEALS, F_SEAL_WRITE);
    return fd;
}

// A terminal master whose other side has hung up.
int HungUpTerminal()
{
    int fd = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(fd);
    unlockpt(fd);
    close(open(ptsname(fd), O_RDWR | O_NOCTTY));
    return fd;
}

TEST(OsalIo, TransfersOnceAndTranslatesEveryFailure)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    uint64_t count = 99;
    char buf[16] = {};
    struct sigaction action = {}, previous = {};
    action.sa_handler = [](int) {};  // no SA_RESTART: a blocked read fails with EINTR
    ASSERT_EQ(0, sigaction(SIGALRM, &action, &previous));
    itimerval ticking = {{0, 20000}, {0, 20000}}, stopped = {};
    setitimer(ITIMER_REAL, &ticking, nullptr);
    EXPECT_EQ(4u, KRV_OsalIoRecv(fds[0], buf, sizeof(buf), &count)) << "EINTR";
    setitimer(ITIMER_REAL, &stopped, nullptr);
    sigaction(SIGALRM, &previous, nullptr);

    void *volatile unmapped = reinterpret_cast<void *>(8);
    EXPECT_EQ(0u, KRV_OsalIoSend(fds[1], "hello", 5, &count));
    EXPECT_EQ(5u, count);
    EXPECT_EQ(14u, KRV_OsalIoRecv(fds[0], unmapped, 5, &count)) << "EFAULT";
    EXPECT_EQ(0u, KRV_OsalIoRecv(fds[0], buf, sizeof(buf), &count));
    EXPECT_EQ("hello", std::string(buf, count));
    // One write only: a full pipe takes part of a large buffer, then refuses without touching the count.
    std::vector<char> big(1 << 20);
    fcntl(fds[1], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(0u, KRV_OsalIoSend(fds[1], big.data(), big.size(), &count));
    uint64_t partial = count;
    EXPECT_TRUE(partial > 0 && partial < big.size()) << partial;
    EXPECT_EQ(11u, KRV_OsalIoSend(fds[1], big.data(), big.size(), &count)) << "EAGAIN";
    EXPECT_EQ(partial, count);
    close(fds[1]);
    while (read(fds[0], big.data(), big.size()) > 0) {
        // drain what the partial write left, up to the end of file
    }
    EXPECT_EQ(0u, KRV_OsalIoRecv(fds[0], buf, sizeof(buf), &count));
    EXPECT_EQ(0u, count) << "end of file";
    close(fds[0]);

    // A file-size limit of 0 refuses any growth of a regular file; it is lifted before anything is printed.
    rlimit saved = {};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit none = {0, saved.rlim_max};
    int file = memfd_create("limited", 0);
    setrlimit(RLIMIT_FSIZE, &none);
    uint32_t tooBig = KRV_OsalIoSend(file, "x", 1, &count);
    setrlimit(RLIMIT_FSIZE, &saved);
    close(file);
    EXPECT_EQ(27u, tooBig) << "EFBIG";

    // Each failure provoked for real (-1 stands for a closed descriptor); numbers above 58 shift down by one.
    const std::tuple<int, bool, uint32_t> failures[] = {  // descriptor, send (or receive), result
        {SealedFile(), true, 1},
        {HungUpTerminal(), false, 5},
        {open("/", O_RDONLY), false, 21},
        {open("/dev/full", O_WRONLY), true, 28},
        {socket(AF_INET, SOCK_DGRAM, 0), true, 88},   // EDESTADDRREQ
        {socket(AF_INET, SOCK_STREAM, 0), true, 32},  // EPIPE
        {eventfd(0, 0), true, 22},
        {-1, false, 9},
        {-1, true, 9},
    };
    for (const auto &[fd, send, rc] : failures) {
        EXPECT_EQ(rc, send ? KRV_OsalIoSend(fd, "x", 1, &count) : KRV_OsalIoRecv(fd, buf, sizeof(buf), &count)) << fd;
        close(fd);
    }
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
}

TEST(OsalPeerAddr, ReportsTheWholeSixteenByteText)
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof(addr);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr *>(&addr), len));
    ASSERT_EQ(0, listen(listener, 1));
    getsockname(listener, reinterpret_cast<sockaddr *>(&addr), &len);
    int client = socket(AF_INET, SOCK_STREAM, 0);
    int unconnected = socket(AF_INET, SOCK_STREAM, 0);
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
    EXPECT_EQ(255u, KRV_OsalPeerAddrGet(unconnected, 16, buf, &addrLen)) << "ENOTCONN is not in the table";
    for (int fd : {unconnected, client, listener}) {
        close(fd);
    }
    EXPECT_EQ(9u, KRV_OsalPeerAddrGet(client, 16, buf, &addrLen));
}

}  // namespace
