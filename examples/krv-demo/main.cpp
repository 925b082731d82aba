// krv-demo: a small service built on libhokkrv. It reads its configuration, starts the modules in
// the usual order (error codes, logging, timer module, memory pools, lock-free clock), runs its
// timers for a while showing progress, then stops everything in reverse order and prints a summary.
//
//     krv-demo [config.json]      (default: examples/krv-demo.json of the source tree)
//
// Exit status: 0 when every module started and stopped cleanly, 1 for a bad configuration, 2 when a
// module failed to start or stop.
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include "components.h"
#include "config.h"
#include "hok_log.h"
#include "krv.h"
#include "summary.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long a flush may wait for the log writer, which naps 50 ms when idle.
constexpr uint32_t kFlushTimeoutMs = 5000;

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int)
{
    g_interrupted.store(true);
}

// One module of the service: how to start it and how to stop it again.
struct Step {
    const char *name;
    const char *note;  // what makes its stop take the time it takes
    std::function<bool()> start;
    std::function<bool()> stop;
};

double MsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Stops the steps before `end` in reverse order, timing each.
void StopSteps(const std::vector<Step> &steps, size_t end, std::vector<demo::StepResult> *results)
{
    while (end > 0) {
        const Step &step = steps[--end];
        Clock::time_point begin = Clock::now();
        bool ok = step.stop();
        results->push_back({step.name, step.note, ok, MsSince(begin)});
    }
}

// Sleeps until `until`, waking early when the run is interrupted.
void SleepUntil(Clock::time_point until)
{
    while (!g_interrupted.load() && Clock::now() < until) {
        std::this_thread::sleep_for(std::min<Clock::duration>(until - Clock::now(), std::chrono::milliseconds(100)));
    }
}

}  // namespace

int main(int argc, char **argv)
{
    const std::string path = argc > 1 ? argv[1] : KRV_DEMO_CONFIG;
    if (argc > 2 || path == "-h" || path == "--help") {
        std::fprintf(stderr, "usage: krv-demo [config.json]   (default %s)\n", KRV_DEMO_CONFIG);
        return 1;
    }
    demo::Config config;
    std::string error;
    if (!demo::LoadConfig(path, KRV_DEMO_LOG_DIR, &config, &error)) {
        std::fprintf(stderr, "krv-demo: %s\n", error.c_str());
        return 1;
    }
    std::printf("krv-demo on libhokkrv %s\n  config %s\n  logs   %s/%s (%u bytes, level %s)\n  run    %u s, %zu timers\n",
                KRV_VersionGet(), path.c_str(), config.logDir.c_str(), config.appId.c_str(), config.logSize,
                demo::LevelName(config.logLevel), config.runSeconds, config.timers.size());

    demo::Service service(config);
    KrvRelTmrPool *timerPool = nullptr;
    demo::RunReport report;
    // The order of the steps is the order in which the modules depend on each other.
    const std::vector<Step> steps = {
        {"error codes", "",
         [] {
             return KRV_EnoErrCodeInit() == KRV_OK &&
                    KRV_EnoErrorStrFuncRegister("YIM", 40, 49, demo::ErrorText) == KRV_OK;
         },
         [] {
             // Stacks outlive their threads; remove them before the module mutex goes.
             KRV_EnoErrorStackRemove(true);
             KRV_EnoErrorStrFuncRegister("YIM", 40, 49, nullptr);
             return KRV_EnoErrCodeDeInit() == KRV_OK;
         }},
        {"logging", "flushes again, joins the writer thread",
         [&] {
             Hok::Log::InitLogging(config.appId, config.logDir, config.logSize, config.logLevel, config.logMode);
             if (Hok::Log::IsLogInited() && service.CreateLoggers()) {
                 return true;
             }
             service.DestroyLoggers();
             Hok::Log::FiniLogging();
             return false;
         },
         [&] {
             // Lines still queued at FiniLogging would be discarded: wait for the writer first.
             bool flushed = Hok::Log::FlushLogging(kFlushTimeoutMs) == KRV_OK;
             report.droppedLines = KRV_LogOpsDropCountGet();
             service.DestroyLoggers();
             Hok::Log::FiniLogging();
             return flushed && !Hok::Log::IsLogInited();
         }},
        {"timer module", "joins the trigger thread", [&] { return KRV_RelTimerInit(static_cast<uint32_t>(config.timers.size()) + 1, &timerPool) == KRV_OK; },
         [&] { return KRV_RelTimerFini(timerPool) == KRV_OK; }},
        {"memory pools", "",
         [&] {
             if (KRV_MemPoolInit() != KRV_OK) {
                 return false;
             }
             if (service.CreatePool()) {
                 return true;
             }
             KRV_MemPoolFini();
             return false;
         },
         [&] { return service.ReleaseUnits() && KRV_MemPoolFini() == KRV_OK; }},
        {"lock-free clock", "joins the updater thread, which wakes every 5 s", [] { return KRV_NolockTimeInit() == KRV_OK; },
         [] {
             KRV_NolockTimeFini();  // joins the updater, which wakes every 5 s
             return true;
         }},
        {"log flush", "waits for the writer thread, which naps 50 ms when idle", [] { return true; },
         [] { return Hok::Log::FlushLogging(kFlushTimeoutMs) == KRV_OK; }},
        {"timers", "periodic timers stop on the trigger thread", [&] { return service.Start(timerPool); }, [&] { return service.Stop(); }},
    };

    size_t up = 0;
    while (up < steps.size() && steps[up].start()) {
        ++up;
    }
    if (up < steps.size()) {
        std::fprintf(stderr, "krv-demo: %s did not start\n", steps[up].name);
    }

    if (up == steps.size()) {
        service.MainLine(Hok::Log::LOG_LEVEL_INFO, "main.cpp", __LINE__)
            << "started " << static_cast<unsigned long>(config.timers.size()) << " timers, running "
            << config.runSeconds << " s";
        struct sigaction action = {};
        action.sa_handler = OnInterrupt;
        sigaction(SIGINT, &action, nullptr);
        demo::Progress progress;
        Clock::time_point begin = Clock::now();
        for (uint32_t second = 1; second <= config.runSeconds && !g_interrupted.load(); ++second) {
            SleepUntil(begin + std::chrono::seconds(second));
            progress.Show(second, config.runSeconds, service);
        }
        progress.Finish();
        // From here on Ctrl-C ends the process at once.
        action.sa_handler = SIG_DFL;
        sigaction(SIGINT, &action, nullptr);
        service.MainLine(Hok::Log::LOG_LEVEL_INFO, "main.cpp", __LINE__)
            << "stopping after " << static_cast<unsigned long>(MsSince(begin)) << " ms"
            << (g_interrupted.load() ? " (interrupted)" : "");
    }

    StopSteps(steps, up, &report.shutdown);
    report.clean = up == steps.size();
    for (const demo::StepResult &step : report.shutdown) {
        report.clean = report.clean && step.ok;
    }
    demo::PrintSummary(config, service, report);
    return report.clean ? 0 : 2;
}
