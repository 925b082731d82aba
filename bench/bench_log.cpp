// Logging: what a producer pays per line, and how many lines per second reach the file, through
// KRV_LogWrite on the file backend and through Hok::Log streams, beside spdlog's asynchronous file
// logger (blocking queue of 8192 messages, one worker) and glog (synchronous, buffered file), from
// one and from two producer threads.
//
// Two ways to produce:
//   saturated  every producer writes as fast as it can, in steady state: before the timed loop a
//              warm-up fills the queue (our 300 slots, spdlog's 8192). From then on spdlog's
//              producers wait for its worker whenever its queue is full, while ours drop a line
//              whenever the 300 slots are full (printing "log buf add failed, buffer is full", sent
//              to /dev/null here, its cost included).
//   paced      producers write batches of 100 lines each and wait, untimed, until the backend has
//              written them (our KRV_LogOpsFlush, spdlog's queue empty): no line is ever dropped or
//              blocked on, so both libraries do the same work per line.
// After the run the queue is drained (KRV_LogOpsFlush, spdlog's worker joined, glog flushed) and the
// files are read: every line must end in the message produced, the lines written and dropped must
// add up to the lines produced, and the line of request -1 (the first one, written before the
// warm-up) must read the same in every library after its time stamp (glog's own prefix aside).
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <glog/logging.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bench_quiet.h"
#include "hok_log.h"
#include "krv_log.h"
#include "krv_log_ops.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t kLinesPerThread = 200000;
constexpr int64_t kPacedLinesPerThread = 10000;
constexpr int64_t kPacedBatch = 100;  // per producer: two batches stay well inside our 300 slots
constexpr int64_t kOurWarmup = 2000;      // many times our 300 slots
constexpr int64_t kSpdlogWarmup = 16384;  // twice spdlog's 8192 slots
constexpr uint32_t kLogSize = 1024u * 1024u * 1024u;  // files of 341 MiB: no rotation loses lines
constexpr uint32_t kFlushTimeoutMs = 60000;
constexpr char kAppId[] = "benchlog";
constexpr size_t kSpdlogQueue = 8192;
constexpr char kMessageEnd[] = " done in 678 us";

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

// What the files below a directory hold: the lines that end in our message, and whether one of
// them ends in `probe`. glog's files also carry a header of their own; its symlinks are skipped.
struct FileScan {
    uint64_t lines = 0;
    bool probeFound = false;
};

FileScan ScanFiles(const std::string &dir, const std::string &probe)
{
    FileScan scan;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir, ignored)) {
        if (entry.is_symlink() || !entry.is_regular_file()) {
            continue;
        }
        std::ifstream in(entry.path(), std::ios::binary);
        for (std::string line; std::getline(in, line);) {
            auto endsWith = [&line](const std::string &end) {
                return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
            };
            scan.lines += endsWith(kMessageEnd);
            scan.probeFound = scan.probeFound || endsWith(probe);
        }
    }
    return scan;
}

// Where every thread of a paced run waits for the others, so that one of them drains between batches.
class Barrier {
public:
    void Wait(int threads)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        const uint64_t generation = generation_;
        if (++waiting_ == threads) {
            waiting_ = 0;
            ++generation_;
            cond_.notify_all();
            return;
        }
        cond_.wait(lock, [this, generation] { return generation_ != generation; });
    }

private:
    std::mutex mutex_;
    std::condition_variable cond_;
    int waiting_ = 0;
    uint64_t generation_ = 0;
};

// What one library needs for a run: start it (into a directory), produce one line, wait until what
// was produced is written, drain and stop it, and say how many lines it dropped. `probe` is how its
// line of request -1 ends; the part after the time stamp is the same text in every library.
struct Library {
    bool (*start)(const std::string &dir);
    void (*produce)(int64_t seq);
    void (*drain)();
    void (*drainAndStop)();
    uint64_t (*dropped)();
    int64_t warmup;
    const char *probe;
};

constexpr char kProbe[] = "][4][0x0][bench_log.cpp:42][bench][I] > request -1 done in 678 us";

// State of one run, shared by its producer threads; thread 0 sets it up and tears it down, the
// others only produce (Google Benchmark starts and ends the timed loop of all threads together).
struct Run {
    std::unique_ptr<ScratchDir> dir;
    std::unique_ptr<krvbench::QuietStdout> quiet;
    Clock::time_point started;
    uint64_t produced = 0;  // by thread 0 before the timed loop: request -1 and the warm-up
    Barrier batchEnd;
};
Run g_run;

// Times produce() per line on every thread, then checks and reports what reached the files. A paced
// run stops its clocks after every batch while thread 0 waits for the backend to write it.
void Measure(benchmark::State &state, const Library &lib, bool paced)
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
        // Request -1 goes first into an empty queue, so it reaches the file whatever comes after it.
        const int64_t first = paced ? 1 : 1 + lib.warmup;
        for (int64_t i = 0; i < first; ++i) {
            lib.produce(-1 - i);
        }
        g_run.produced = static_cast<uint64_t>(first);
    }
    const int64_t batch = paced ? kPacedBatch : INT64_MAX;
    int64_t seq = 0;
    Clock::duration producing{};
    Clock::time_point t0;
    double cpuNs = 0, cpu0 = 0;
    for (auto _ : state) {
        if (seq % batch == 0) {
            if (seq != 0) {
                producing += Clock::now() - t0;
                cpuNs += ThreadCpuNs() - cpu0;
                g_run.batchEnd.Wait(state.threads());
                if (state.thread_index() == 0) {
                    lib.drain();
                }
                g_run.batchEnd.Wait(state.threads());
            }
            t0 = Clock::now();
            cpu0 = ThreadCpuNs();
        }
        lib.produce(seq++);
    }
    producing += Clock::now() - t0;
    cpuNs += ThreadCpuNs() - cpu0;
    const double lines = static_cast<double>(seq);
    state.counters["ns_per_line"] =
        benchmark::Counter(1e9 * Seconds(producing) / lines, benchmark::Counter::kAvgThreads);
    state.counters["cpu_ns_per_line"] = benchmark::Counter(cpuNs / lines, benchmark::Counter::kAvgThreads);
    if (state.thread_index() != 0) {
        return;
    }
    // The end of the timed loop waits for every thread, so all lines have been produced: as many on
    // each thread as on this one (the iteration count is fixed).
    g_run.produced += static_cast<uint64_t>(state.threads()) * static_cast<uint64_t>(seq);
    lib.drainAndStop();
    const Clock::duration elapsed = Clock::now() - g_run.started;
    g_run.quiet.reset();
    const FileScan scan = ScanFiles(g_run.dir->Path(), lib.probe);
    const uint64_t dropped = lib.dropped();
    if (scan.lines + dropped != g_run.produced) {
        state.SkipWithError("lines in the files and dropped lines do not add up to the lines produced");
    } else if (!scan.probeFound) {
        state.SkipWithError("the line of request -1 differs from the other libraries'");
    }
    state.counters["dropped_pct"] = 100.0 * static_cast<double>(dropped) / static_cast<double>(g_run.produced);
    if (!paced) {
        state.counters["file_lines_per_s"] = static_cast<double>(scan.lines) / Seconds(elapsed);
    }
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

void DrainBackend()
{
    (void)KRV_LogOpsFlush(kFlushTimeoutMs);
}

void StopBackend()
{
    DrainBackend();
    g_dropsAtStop = KRV_LogOpsDropCountGet();
    KRV_LogOpsFini();
}

uint64_t BackendDrops()
{
    return g_dropsAtStop;
}

const Library kKrvLogWrite = {StartBackend, WriteOneLine, DrainBackend, StopBackend, BackendDrops, kOurWarmup, kProbe};

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

const Library kHokLogStream = {StartHokLog, StreamOneLine, DrainBackend, StopHokLog, BackendDrops, kOurWarmup, kProbe};

// --- spdlog

std::shared_ptr<spdlog::details::thread_pool> g_pool;
std::shared_ptr<spdlog::async_logger> g_spdlog;

bool StartSpdlog(const std::string &dir)
{
    g_pool = std::make_shared<spdlog::details::thread_pool>(kSpdlogQueue, 1);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(dir + "/spdlog.log", true);
    g_spdlog = std::make_shared<spdlog::async_logger>("bench", sink, g_pool, spdlog::async_overflow_policy::block);
    // Our backend's line: stamp, level number, code, file:line, message.
    g_spdlog->set_pattern("[%Y.%m.%d %H:%M:%S.%f][4][0x0][%s:%#]%v");
    g_spdlog->set_level(spdlog::level::trace);
    return true;
}

void SpdlogOneLine(int64_t seq)
{
    g_spdlog->log(spdlog::source_loc{"bench_log.cpp", 42, ""}, spdlog::level::info,
                  "[bench][I] > request {} done in {} us", static_cast<long>(seq), 678);
}

// Waits until the worker has taken every queued message.
void DrainSpdlog()
{
    while (g_pool->queue_size() != 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

// The pool's destructor queues a stop behind every pending message and joins its worker.
void StopSpdlog()
{
    g_spdlog->flush();
    g_spdlog.reset();
    g_pool.reset();
}

uint64_t NoDrops()
{
    return 0;  // the library never drops; the file count checks it
}

const Library kSpdlogBlock = {StartSpdlog, SpdlogOneLine, DrainSpdlog, StopSpdlog, NoDrops, kSpdlogWarmup, kProbe};

// --- glog: synchronous; each line goes through the library's lock into a buffered file, flushed
// every 30 s, when full, and at the end of the run.

bool StartGlog(const std::string &dir)
{
    static const bool initialised = [] {
        FLAGS_logtostderr = false;
        FLAGS_alsologtostderr = false;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        google::InitGoogleLogging("bench_log");
        return true;
    }();
    // A new destination closes the previous run's file; no symlink beside the file.
    google::SetLogDestination(google::GLOG_INFO, (dir + "/glog.").c_str());
    google::SetLogSymlink(google::GLOG_INFO, "");
    return initialised;
}

void GlogOneLine(int64_t seq)
{
    google::LogMessage("bench_log.cpp", 42, google::GLOG_INFO).stream()
        << "[bench][I] > request " << static_cast<long>(seq) << " done in " << 678 << " us";
}

void FlushGlog()
{
    google::FlushLogFiles(google::GLOG_INFO);
}

const Library kGlog = {StartGlog, GlogOneLine, FlushGlog, FlushGlog, NoDrops, 0,
                       " bench_log.cpp:42] [bench][I] > request -1 done in 678 us"};

void BM_KrvLogWrite(benchmark::State &state)
{
    Measure(state, kKrvLogWrite, false);
}

void BM_HokLogStream(benchmark::State &state)
{
    Measure(state, kHokLogStream, false);
}

void BM_SpdlogAsyncBlock(benchmark::State &state)
{
    Measure(state, kSpdlogBlock, false);
}

void BM_GlogWrite(benchmark::State &state)
{
    Measure(state, kGlog, false);
}

void BM_KrvLogWritePaced(benchmark::State &state)
{
    Measure(state, kKrvLogWrite, true);
}

void BM_SpdlogAsyncPaced(benchmark::State &state)
{
    Measure(state, kSpdlogBlock, true);
}

void BM_GlogWritePaced(benchmark::State &state)
{
    Measure(state, kGlog, true);
}

BENCHMARK(BM_KrvLogWrite)->Iterations(kLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_SpdlogAsyncBlock)->Iterations(kLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_GlogWrite)->Iterations(kLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_HokLogStream)->Iterations(kLinesPerThread)->Threads(1)->UseRealTime();
BENCHMARK(BM_KrvLogWritePaced)->Iterations(kPacedLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_SpdlogAsyncPaced)->Iterations(kPacedLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_GlogWritePaced)->Iterations(kPacedLinesPerThread)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
