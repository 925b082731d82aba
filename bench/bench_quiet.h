// Shared by the benchmarks: silences standard output, where the library prints diagnostics and
// dropped-line notices when no hook takes them, so that the benchmark report stays readable.
#ifndef KRV_BENCH_QUIET_H
#define KRV_BENCH_QUIET_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace krvbench {

// Sends standard output to /dev/null while it lives. The printing still costs what it costs.
class QuietStdout {
public:
    QuietStdout()
    {
        std::fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        int devNull = open("/dev/null", O_WRONLY);
        if (devNull >= 0) {
            dup2(devNull, STDOUT_FILENO);
            close(devNull);
        }
    }
    ~QuietStdout()
    {
        std::fflush(stdout);
        if (saved_ >= 0) {
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
        }
    }
    QuietStdout(const QuietStdout &) = delete;
    QuietStdout &operator=(const QuietStdout &) = delete;

private:
    int saved_ = -1;
};

}  // namespace krvbench

#endif  // KRV_BENCH_QUIET_H
