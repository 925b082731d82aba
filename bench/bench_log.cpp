// Logging: what a producer pays per line, and how many lines per second reach the file, through
// Hok::Log streams and through KRV_LogWrite on the file backend, beside spdlog's asynchronous file
// logger (blocking and overrun-oldest queues).
//
// Our backend queues at most 300 lines and drops a line when the queue is full (printing "log buf
// add failed, buffer is full" for each one, which these cases send to /dev/null); its writer naps
// 50 ms whenever the queue is empty. spdlog's default queue holds 8192 messages. After each run the
// files are counted once the writer has gone quiet, so the dropped count is what really went missing.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "bench_quiet.h"
#include "hok_log.h"
#include "krv_log.h"
#include "krv_log_ops.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t kLinesPerRun = 200000;
constexpr uint32_t kLogSize = 1024u * 1024u * 1024u;  // files of 341 MiB: no rotation loses lines
constexpr char kAppId[] = "benchlog";
constexpr size_t kSpdlogQueue = 8192;

double Seconds(Clock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

// A fresh, canonical directory for one run's files, removed with everything in it afterwards.
class ScratchDir {
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/krv-bench-log.XXXXXX";
        char resolved[PATH_MAX];
        if (mkdtemp(pattern) != nullptr && realpath(pattern, resolved) != nullptr) {
            path_ = resolved;
        }
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        if (!path_.empty()) {
            std::filesystem::remove_all(path_, ignored);
        }
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;
    const std::string &Path() const { return path_; }

private:
    std::string path_;
};

// Counts the newlines in every file below dir.
uint64_t CountLines(const std::string &dir)
{
    uint64_t lines = 0;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir, ignored)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        std::ifstream in(entry.path(), std::ios::binary);
        char buf[65536];
        while (in.read(buf, sizeof(buf)) || in.gcount() > 0) {
            for (std::streamsize i = 0; i < in.gcount(); ++i) {
                lines += buf[i] == '\n';
            }
        }
    }
    return lines;
}

// Waits until the files below dir have stopped growing for 300 ms (several writer naps) and
// returns the time from the call to the last growth seen.
Clock::duration WaitForQuietFiles(const std::string &dir)
{
    Clock::time_point start = Clock::now();
    Clock::time_point lastGrowth = start;
    uint64_t seen = CountLines(dir);
    while (Clock::now() - lastGrowth < std::chrono::milliseconds(300)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        uint64_t now = CountLines(dir);
        if (now != seen) {
            seen = now;
            lastGrowth = Clock::now();
        }
    }
    return lastGrowth - start;
}

void ReportDelivery(benchmark::State &state, uint64_t produced, uint64_t inFile, Clock::duration producing,
                    Clock::duration draining)
{
    state.counters["in_file"] = static_cast<double>(inFile);
    state.counters["dropped"] = static_cast<double>(produced - inFile);
    state.counters["drain_ms"] = Seconds(draining) * 1e3;
    state.counters["file_lines_per_s"] = static_cast<double>(inFile) / Seconds(producing + draining);
}

// Runs produce(firstLine) once per iteration, which returns how many lines it wrote, with our file
// backend started by start(dir) and stopped by stop(), then counts what reached the files. Iteration counts are fixed so every library gets
// the same burst.
template <typename Start, typename Produce, typename Stop>
void RunOurs(benchmark::State &state, Start start, Produce produce, Stop stop)
{
    ScratchDir dir;
    uint64_t produced = 0;
    Clock::duration producing{};
    {
        krvbench::QuietStdout quiet;
        if (dir.Path().empty() || !start(dir.Path())) {
            state.SkipWithError("could not start logging");
            return;
        }
        Clock::time_point t0 = Clock::now();
        for (auto _ : state) {
            produced += static_cast<uint64_t>(produce(static_cast<int64_t>(produced)));
        }
        producing = Clock::now() - t0;
    }
    Clock::duration draining = WaitForQuietFiles(dir.Path());
    uint64_t inFile = CountLines(dir.Path());
    {
        krvbench::QuietStdout quiet;
        stop();
    }
    ReportDelivery(state, produced, inFile, producing, draining);
}

Hok::Log::Logger *g_logger = nullptr;

bool StartHokLog(const std::string &dir)
{
    Hok::Log::InitLogging(kAppId, dir, kLogSize, Hok::Log::LOG_LEVEL_INFO, Hok::Log::LOG_MODE_FILE);
    g_logger = Hok::Log::IsLogInited() ? Hok::Log::CreateLogger("bench", "benchmark lines") : nullptr;
    return g_logger != nullptr;
}

void StopHokLog()
{
    g_logger->Destroy();
    g_logger = nullptr;
    Hok::Log::FiniLogging();
}

void BM_HokLogStream(benchmark::State &state)
{
    RunOurs(
        state, StartHokLog,
        [](int64_t i) {
            g_logger->LogInfo(__FILE__, __LINE__) << "request " << i << " done in " << 678 << " us";
            return 1;
        },
        StopHokLog);
}

bool StartBackend(const std::string &dir)
{
    KrvLogOpsCfg cfg{};
    std::snprintf(cfg.appId, sizeof(cfg.appId), "%s", kAppId);
    cfg.logDir = dir.c_str();
    cfg.logMode = KRV_LOG_MODE_FILE;
    cfg.logSize = kLogSize;
    cfg.logLevel = 4;
    return KRV_LogOpsInit(&cfg) == 0;
}

int WriteOneLine(int64_t i)
{
    KRV_LogWrite(0, 4, "bench_log.cpp", __LINE__, "[bench][I] > request %ld done in %d us", static_cast<long>(i), 678);
    return 1;
}

void BM_KrvLogWrite(benchmark::State &state)
{
    RunOurs(state, StartBackend, WriteOneLine, KRV_LogOpsFini);
}

// Bursts of range(0) lines every 50 ms, each burst smaller than the 300-line queue; the writer's
// 50 ms nap decides whether two bursts can meet in the queue. Only the time spent producing counts
// towards the per-line cost.
void BM_KrvLogWritePaced(benchmark::State &state)
{
    const int64_t burst = state.range(0);
    RunOurs(
        state, StartBackend,
        [&state, burst](int64_t first) {
            Clock::time_point t0 = Clock::now();
            for (int64_t n = 0; n < burst; ++n) {
                WriteOneLine(first + n);
            }
            state.SetIterationTime(Seconds(Clock::now() - t0) / static_cast<double>(burst));
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return burst;
        },
        KRV_LogOpsFini);
}

void BM_SpdlogAsync(benchmark::State &state, spdlog::async_overflow_policy policy)
{
    ScratchDir dir;
    auto pool = std::make_shared<spdlog::details::thread_pool>(kSpdlogQueue, 1);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(dir.Path() + "/spdlog.log", true);
    auto logger = std::make_shared<spdlog::async_logger>("bench", sink, pool, policy);
    // The same fields as our backend's lines: stamp, level, code, file:line, message.
    logger->set_pattern("[%Y.%m.%d %H:%M:%S.%f][%l][0x0][%s:%#]%v");
    uint64_t produced = 0;
    Clock::time_point t0 = Clock::now();
    for (auto _ : state) {
        logger->log(spdlog::source_loc{"bench_log.cpp", __LINE__, ""}, spdlog::level::info,
                    "[bench][I] > request {} done in {} us", static_cast<long>(produced++), 678);
    }
    Clock::time_point producedAt = Clock::now();
    size_t overrun = pool->overrun_counter();
    // The pool's destructor queues a stop behind every pending message and joins its thread.
    logger->flush();
    logger.reset();
    pool.reset();
    Clock::time_point drainedAt = Clock::now();
    sink.reset();
    ReportDelivery(state, produced, CountLines(dir.Path()), producedAt - t0, drainedAt - producedAt);
    state.counters["overrun"] = static_cast<double>(overrun);
}

BENCHMARK(BM_HokLogStream)->Iterations(kLinesPerRun)->UseRealTime();
BENCHMARK(BM_KrvLogWrite)->Iterations(kLinesPerRun)->UseRealTime();
BENCHMARK(BM_KrvLogWritePaced)->Arg(100)->Arg(250)->ArgName("burst")->Iterations(40)->UseManualTime();
BENCHMARK_CAPTURE(BM_SpdlogAsync, block, spdlog::async_overflow_policy::block)
    ->Iterations(kLinesPerRun)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_SpdlogAsync, overrun_oldest, spdlog::async_overflow_policy::overrun_oldest)
    ->Iterations(kLinesPerRun)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
