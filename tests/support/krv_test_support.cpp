#include "support/krv_test_support.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

#include "krv_log.h"
#include "support/krv_date_tm.h"

namespace krvtest {

StdoutCapture::StdoutCapture()
{
    std::fflush(stdout);
    char name[] = "/tmp/krv_stdout_XXXXXX";
    int fd = mkstemp(name);
    path_ = name;
    savedFd_ = dup(STDOUT_FILENO);
    dup2(fd, STDOUT_FILENO);
    close(fd);
}

std::string StdoutCapture::Finish()
{
    if (savedFd_ < 0) {
        return {};
    }
    std::fflush(stdout);
    dup2(savedFd_, STDOUT_FILENO);
    close(savedFd_);
    savedFd_ = -1;
    std::string text = ReadFile(path_);
    std::remove(path_.c_str());
    return text;
}

StdoutCapture::~StdoutCapture()
{
    Finish();
}

namespace {

std::mutex g_diagMutex;
std::vector<Diag> g_diags;

void RecordDiag(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    std::lock_guard<std::mutex> lock(g_diagMutex);
    g_diags.push_back({code, level, file != nullptr ? file : "(null)", line, msg});
}

}  // namespace

DiagCapture::DiagCapture()
{
    Take();
    if (KRV_LogHookReg(RecordDiag) != 0) {
        std::fprintf(stderr, "DiagCapture: a log hook is already installed\n");
        std::abort();
    }
}

DiagCapture::~DiagCapture()
{
    KRV_LogHookUnReg();
}

std::vector<Diag> DiagCapture::Take()
{
    std::lock_guard<std::mutex> lock(g_diagMutex);
    std::vector<Diag> taken;
    taken.swap(g_diags);
    return taken;
}

std::vector<std::string> DiagCapture::Messages()
{
    std::vector<std::string> msgs;
    for (const Diag &d : Take()) {
        msgs.push_back(d.msg);
    }
    return msgs;
}

std::vector<std::pair<uint32_t, std::string>> DiagCapture::Errors(const std::string &file)
{
    std::vector<std::pair<uint32_t, std::string>> lines;
    for (const Diag &d : Take()) {
        EXPECT_TRUE(d.level == 2 && d.file == file) << d.file << ": " << d.msg;
        lines.emplace_back(d.code, d.msg);
    }
    return lines;
}

TempDir::TempDir()
{
    char name[] = "/tmp/krv_test_XXXXXX";
    path_ = mkdtemp(name);
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string ReadAll(const std::string &dir)
{
    std::vector<std::filesystem::path> files;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir, ignored)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::string text;
    for (const auto &file : files) {
        text += ReadFile(file);
    }
    return text;
}

std::vector<std::string> CloseFilesUnder(const std::string &dir)
{
    std::vector<std::pair<int, std::string>> open;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        std::string target = std::filesystem::read_symlink(entry.path(), ignored).string();
        if (target.compare(0, dir.size() + 1, dir + "/") == 0) {
            open.emplace_back(std::stoi(entry.path().filename().string()), target);
        }
    }
    std::sort(open.begin(), open.end());
    std::vector<std::string> closed;
    for (const auto &[fd, path] : open) {
        close(fd);
        closed.push_back(path);
    }
    return closed;
}

std::chrono::milliseconds SoakDuration(std::chrono::milliseconds byDefault)
{
    const char *soak = std::getenv("KRV_SOAK_SECONDS");
    if (soak == nullptr || std::atof(soak) <= 0) {
        return byDefault;
    }
    return std::chrono::milliseconds(static_cast<long long>(std::atof(soak) * 1000));
}

size_t ThreadCount()
{
    size_t count = 0;
    DIR *dir = opendir("/proc/self/task");
    while (dirent *entry = readdir(dir)) {
        count += entry->d_name[0] != '.';
    }
    closedir(dir);
    return count;
}

size_t SettledThreadCount()
{
    std::thread([] {}).join();
    size_t settled = 0;
    WaitFor([&] {
        const size_t before = ThreadCount();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return (settled = ThreadCount()) == before;
    });
    return settled;
}

bool WaitFor(const std::function<bool()> &cond, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return cond();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::string DateText(const KrvDateTime &d)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u.%03u.%u", d.year, d.month, d.day, d.hour, d.minute,
                  d.second, d.millisecond, d.microsecond);
    return text;
}

int64_t FieldsMs(const KrvDateTime &d)
{
    std::tm t = DateToTm(d);
    return static_cast<int64_t>(timegm(&t)) * 1000 + d.millisecond;
}

int64_t LocalMsNow()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    struct tm local {};
    localtime_r(&now.tv_sec, &local);
    return static_cast<int64_t>(timegm(&local)) * 1000 + now.tv_usec / 1000;
}

}  // namespace krvtest
