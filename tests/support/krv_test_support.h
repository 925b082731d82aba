// Helpers shared by the test binaries: stdout capture, diagnostic capture, allocation failure.
#ifndef KRV_TEST_SUPPORT_H
#define KRV_TEST_SUPPORT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "krv_time.h"

namespace krvtest {

// Redirects the process's standard output into a temporary file until Finish() or destruction.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;
    // Restores standard output and returns everything printed meanwhile.
    std::string Finish();

private:
    int savedFd_ = -1;
    std::string path_;
};

struct Diag {
    uint32_t code;
    uint32_t level;
    std::string file;  // "(null)" when the caller passed no file name
    uint32_t line;
    std::string msg;
};

// Installs a KRV_LogHookReg hook that records every diagnostic (from any thread) until destruction.
class DiagCapture {
public:
    DiagCapture();
    ~DiagCapture();
    DiagCapture(const DiagCapture &) = delete;
    DiagCapture &operator=(const DiagCapture &) = delete;
    std::vector<Diag> Take();
    // Messages only, in order.
    std::vector<std::string> Messages();
    // (code, message) in order; each must be an error-level line of the module whose source is file.
    std::vector<std::pair<uint32_t, std::string>> Errors(const std::string &file);
};

// A fresh empty directory under /tmp, removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &Path() const { return path_; }

private:
    std::string path_;
};

// A file's bytes ("" when it cannot be read).
std::string ReadFile(const std::string &path);

// The bytes of every regular file below dir, at any depth, concatenated in path order.
std::string ReadAll(const std::string &dir);

// Closes every descriptor of this process that is open on a file below dir and returns the paths
// it closed, in descriptor order. The log backend leaves its current file open when it stops.
std::vector<std::string> CloseFilesUnder(const std::string &dir);

// While alive, the calling thread's mallocs after the first `skip` fail, `count` times in all.
// Only the binaries listed in KRV_ALLOC_FAILURE_TESTS (tests/CMakeLists.txt) link the interposed malloc.
class AllocFailure {
public:
    explicit AllocFailure(unsigned skip, unsigned count = ~0u);
    ~AllocFailure();
    AllocFailure(const AllocFailure &) = delete;
    AllocFailure &operator=(const AllocFailure &) = delete;
    // Number of allocations refused so far.
    unsigned Failed() const;
};

// While alive, the calling thread's pthread_create calls after the first `skip` fail with EAGAIN,
// `count` times in all. Linked like AllocFailure.
class ThreadFailure {
public:
    explicit ThreadFailure(unsigned skip, unsigned count = ~0u);
    ~ThreadFailure();
    ThreadFailure(const ThreadFailure &) = delete;
    ThreadFailure &operator=(const ThreadFailure &) = delete;
    // Number of thread starts refused so far.
    unsigned Failed() const;
};

// Whether this binary runs under AddressSanitizer or ThreadSanitizer, which slow everything down.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// How long a stress test keeps going: KRV_SOAK_SECONDS when set (a soak run), else byDefault.
std::chrono::milliseconds SoakDuration(std::chrono::milliseconds byDefault);

// Threads of this process as /proc/self/task lists them. A joined thread can stay listed for a moment,
// so compare by polling.
size_t ThreadCount();

// The thread count once it holds still: any helper thread a sanitizer runtime starts with the first
// thread is up, and threads joined by earlier tests have left the list.
size_t SettledThreadCount();

// Polls cond every 2 ms until it holds or the limit (generous: CI runs sanitizer builds on 2 cores)
// passes; returns its last value.
bool WaitFor(const std::function<bool()> &cond, std::chrono::milliseconds limit = std::chrono::seconds(20));

// A date as "YYYY-MM-DD hh:mm:ss.mmm.u" (every field, unchecked).
std::string DateText(const KrvDateTime &d);

// A date's broken-down fields read as if they were UTC, in milliseconds.
int64_t FieldsMs(const KrvDateTime &d);

// The system's local time now, the same way.
int64_t LocalMsNow();

}  // namespace krvtest

#endif  // KRV_TEST_SUPPORT_H
