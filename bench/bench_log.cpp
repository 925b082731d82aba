// Logging: what a producer pays per line, and how many lines per second reach the file, through
// KRV_LogWrite on the file backend and through Hok::Log streams, beside spdlog's asynchronous file
// logger (blocking queue of 8192 messages, one worker), from one and from two producer threads.
//
// Both are measured in steady state: before the timed loop, a warm-up fills the queue (our 300
// slots, spdlog's 8192). From then on spdlog's producers wait for its worker, while ours drop a line
// whenever the 300 slots are full (printing "log buf add failed, buffer is full", sent to /dev/null
// here, its cost included). So every row also reports how many lines reached the file and how many
// were dropped; after the run the queue is drained (KRV_LogOpsFlush, or spdlog's worker joined) and
// the files are counted, and the counts must add up to every line produced.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
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

constexpr int64_t kLinesPerThread = 200000;
constexpr int64_t kOurWarmup = 2000;      // many times our 300 slots
constexpr int64_t kSpdlogWarmup = 16384;  // twice spdlog's 8192 slots
constexpr uint32_t kLogSize = 1024u * 1024u * 1024u;  // files of 341 MiB: no rotation loses lines
constexpr uint32_t kFlushTimeoutMs = 60000;
constexpr char kAppId[] = "benchlog";
constexpr size_t kSpdlogQueue = 8192;

double Seconds(Clock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

// CPU time of the calling thread, in nanoseconds: what producing cost, without the time spent waiting.
double ThreadCpuNs()
{
    struct timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
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

// What one library needs for a run: start it (into a directory), produce one line, drain and stop
// it, and say how many lines it dropped.
struct Library {
    bool (*start)(const std::string &dir);
    void (*produce)(int64_t seq);
    void (*drainAndStop)();
    uint64_t (*dropped)();
    int64_t warmup;
};

// State of one run, shared by its producer threads; thread 0 sets it up and tears it down, the
// others only produce (Google Benchmark starts and ends the timed loop of all threads together).
struct Run {
    std::unique_ptr<ScratchDir> dir;
    std::unique_ptr<krvbench::QuietStdout> quiet;
    Clock::time_point started;
    std::atomic<uint64_t> produced{0};
};
Run g_run;

// Times produce() per line on every thread, then checks and reports what reached the files.
void Measure(benchmark::State &state, const Library &lib)
{
    if (state.thread_index() == 0) {
        g_run.dir = std::make_unique<ScratchDir>();
        g_run.quiet = std::make_unique<krvbench::QuietStdout>();
        g_run.produced = 0;
        g_run.started = Clock::now();
        if (g_run.dir->Path().empty() || !lib.start(g_run.dir->Path())) {
            g_run.quiet.reset();
            state.SkipWithError("could not start logging");
        }
        for (int64_t i = 0; i < lib.warmup; ++i) {
            lib.produce(-1 - i);
        }
        g_run.produced = static_cast<uint64_t>(lib.warmup);
    }
    int64_t seq = 0;
    Clock::time_point t0;
    double cpu0 = 0;
    for (auto _ : state) {
        if (seq == 0) {
            t0 = Clock::now();
            cpu0 = ThreadCpuNs();
        }
        lib.produce(seq++);
    }
    const Clock::duration producing = Clock::now() - t0;
    const double lines = static_cast<double>(seq);
    g_run.produced += static_cast<uint64_t>(seq);
    state.counters["ns_per_line"] =
        benchmark::Counter(1e9 * Seconds(producing) / lines, benchmark::Counter::kAvgThreads);
    state.counters["cpu_ns_per_line"] =
        benchmark::Counter((ThreadCpuNs() - cpu0) / lines, benchmark::Counter::kAvgThreads);
    if (state.thread_index() != 0) {
        return;
    }
    // The end of the timed loop waits for every thread, so all lines have been produced.
    lib.drainAndStop();
    const Clock::duration elapsed = Clock::now() - g_run.started;
    g_run.quiet.reset();
    const uint64_t inFile = CountLines(g_run.dir->Path()), dropped = lib.dropped();
    if (inFile + dropped != g_run.produced) {
        state.SkipWithError("lines in the files and dropped lines do not add up to the lines produced");
    }
    state.counters["dropped_pct"] = 100.0 * static_cast<double>(dropped) / static_cast<double>(g_run.produced);
    state.counters["file_lines_per_s"] = static_cast<double>(inFile) / Seconds(elapsed);
    g_run.dir.reset();
}

// --- ours

uint64_t g_dropsAtStop = 0;

bool StartBackend(const std::string &dir)
{
    KrvLogOpsCfg cfg{};
    std::snprintf(cfg.appId, sizeof(cfg.appId), "%s", kAppId);
    cfg.logDir = dir.c_str();
    cfg.logMode = KRV_LOG_MODE_FILE;
    cfg.logSize = kLogSize;
    cfg.logLevel = 6;
    return KRV_LogOpsInit(&cfg) == KRV_OK;
}

void WriteOneLine(int64_t seq)
{
    KRV_LogWrite(0, 4, "bench_log.cpp", 42, "[bench][I] > request %ld done in %d us", static_cast<long>(seq), 678);
}

void StopBackend()
{
    (void)KRV_LogOpsFlush(kFlushTimeoutMs);
    g_dropsAtStop = KRV_LogOpsDropCountGet();
    KRV_LogOpsFini();
}

uint64_t BackendDrops()
{
    return g_dropsAtStop;
}

const Library kKrvLogWrite = {StartBackend, WriteOneLine, StopBackend, BackendDrops, kOurWarmup};

Hok::Log::Logger *g_logger = nullptr;

bool StartHokLog(const std::string &dir)
{
    Hok::Log::InitLogging(kAppId, dir, kLogSize, Hok::Log::LOG_LEVEL_VERBOSE, Hok::Log::LOG_MODE_FILE);
    g_logger = Hok::Log::IsLogInited() ? Hok::Log::CreateLogger("bench", "benchmark lines") : nullptr;
    return g_logger != nullptr;
}

void StreamOneLine(int64_t seq)
{
    g_logger->LogInfo("bench_log.cpp", 42) << "request " << static_cast<long>(seq) << " done in " << 678 << " us";
}

void StopHokLog()
{
    (void)Hok::Log::FlushLogging(kFlushTimeoutMs);
    g_dropsAtStop = KRV_LogOpsDropCountGet();
    g_logger->Destroy();
    g_logger = nullptr;
    Hok::Log::FiniLogging();
}

const Library kHokLogStream = {StartHokLog, StreamOneLine, StopHokLog, BackendDrops, kOurWarmup};

// --- spdlog

std::shared_ptr<spdlog::details::thread_pool> g_pool;
std::shared_ptr<spdlog::async_logger> g_spdlog;

bool StartSpdlog(const std::string &dir)
{
    g_pool = std::make_shared<spdlog::details::thread_pool>(kSpdlogQueue, 1);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(dir + "/spdlog.log", true);
    g_spdlog = std::make_shared<spdlog::async_logger>("bench", sink, g_pool, spdlog::async_overflow_policy::block);
    // The same fields as our backend's lines: stamp, level, code, file:line, message.
    g_spdlog->set_pattern("[%Y.%m.%d %H:%M:%S.%f][%l][0x0][%s:%#]%v");
    g_spdlog->set_level(spdlog::level::trace);
    return true;
}

void SpdlogOneLine(int64_t seq)
{
    g_spdlog->log(spdlog::source_loc{"bench_log.cpp", 42, ""}, spdlog::level::info,
                  "[bench][I] > request {} done in {} us", static_cast<long>(seq), 678);
}

// The pool's destructor queues a stop behind every pending message and joins its worker.
void StopSpdlog()
{
    g_spdlog->flush();
    g_spdlog.reset();
    g_pool.reset();
}

uint64_t SpdlogDrops()
{
    return 0;  // the blocking queue never drops; the file count checks it
}

const Library kSpdlogBlock = {StartSpdlog, SpdlogOneLine, StopSpdlog, SpdlogDrops, kSpdlogWarmup};

void BM_KrvLogWrite(benchmark::State &state)
{
    Measure(state, kKrvLogWrite);
}

void BM_HokLogStream(benchmark::State &state)
{
    Measure(state, kHokLogStream);
}

void BM_SpdlogAsyncBlock(benchmark::State &state)
{
    Measure(state, kSpdlogBlock);
}

BENCHMARK(BM_KrvLogWrite)->Iterations(kLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_SpdlogAsyncBlock)->Iterations(kLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_HokLogStream)->Iterations(kLinesPerThread)->Threads(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
