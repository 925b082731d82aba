// Paths and socket I/O: canonical-path checks with their reports, resolution failures, and single
// transfers with errno translation.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
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
    *report = got.empty() ? "" : std::to_string(got[0].line) + " " + got[0].msg;
    EXPECT_TRUE(got.empty() || (got[0].file == "krv_osalfs" && got[0].level == 2 && got[0].code == rc));
    return rc;
}

TEST(RealPath, CheckPassesOnlyAbsoluteCanonicalPathsAndResolveFailsOnlyOnRealErrors)
{
    krvtest::TempDir dir;
    const std::string base = dir.Path();
    ASSERT_EQ(0, mkdir((base + "/sub").c_str(), 0755));
    ASSERT_EQ(0, symlink((base + "/sub").c_str(), (base + "/link").c_str()));
    ASSERT_EQ(0, symlink((base + "/loop").c_str(), (base + "/loop").c_str()));  // resolving it fails
    close(open((base + "/file").c_str(), O_CREAT | O_WRONLY, 0600));
    const std::pair<std::string, std::string> cases[] = {
        {base + "/sub", ""},
        {base + "/not-yet", ""},  // a missing last component is left as written
        {base + "/sub/", "63 strcmp fail, realpath:" + base + "/sub, path:" + base + "/sub/"},
        {"tmp", "63 strcmp fail, realpath:"},
        {base + "/link", "63 strcmp fail, realpath:"},
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
    EXPECT_EQ(1u, KRV_RealPath((base + "/loop").c_str(), resolved));
    EXPECT_EQ(1u, KRV_RealPath(nullptr, resolved));
    EXPECT_EQ(1u, KRV_RealPath(base.c_str(), nullptr));
}

TEST(OsalIo, TransfersOnceAndTranslatesFailures)
{
    std::signal(SIGPIPE, SIG_IGN);
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    uint64_t count = 99;
    char buf[16] = {};
    EXPECT_EQ(0u, KRV_OsalIoSend(fds[1], "hello", 5, &count));
    EXPECT_EQ(5u, count);
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
    close(fds[0]);
    EXPECT_EQ(32u, KRV_OsalIoSend(fds[1], "x", 1, &count)) << "EPIPE";
    close(fds[1]);
    EXPECT_EQ(KRV_ERR_BUSY, KRV_OsalIoRecv(-1, buf, sizeof(buf), &count)) << "EBADF";
    int unaddressed = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(88u, KRV_OsalIoSend(unaddressed, "x", 1, &count)) << "EDESTADDRREQ: above 58, one less";
    close(unaddressed);
    std::signal(SIGPIPE, SIG_DFL);
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
    ASSERT_EQ(0, connect(client, reinterpret_cast<sockaddr *>(&addr), len));

    char buf[32];
    uint64_t addrLen = 0;
    EXPECT_EQ(22u, KRV_OsalPeerAddrGet(client, 0, buf, &addrLen));
    EXPECT_EQ(1u, KRV_OsalPeerAddrGet(client, 15, buf, &addrLen));
    std::memset(buf, 'z', sizeof(buf));
    EXPECT_EQ(0u, KRV_OsalPeerAddrGet(client, 16, buf, &addrLen));
    EXPECT_EQ(16u, addrLen);
    EXPECT_EQ(0, std::memcmp("127.0.0.1\0\0\0\0\0\0\0z", buf, 17)) << "trailing NULs are copied, no more";
    close(client);
    close(listener);
}

}  // namespace
