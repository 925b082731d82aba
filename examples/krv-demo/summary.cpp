// krv-demo: the progress line and the summary table.
#include "summary.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "krv.h"

namespace demo {
namespace {

struct RingFile {
    std::string name;
    uint64_t bytes = 0;
    uint64_t lines = 0;
    struct timespec modified = {};
};

// The files of the log ring as they are on disk now, oldest first. Their names carry the creation
// time with unpadded microseconds, so name order is not always creation order; the time of the last
// write is.
std::vector<RingFile> ListRing(const std::string &dir)
{
    std::vector<RingFile> files;
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) {
        return files;
    }
    while (const struct dirent *entry = readdir(d)) {
        RingFile file;
        file.name = entry->d_name;
        struct stat info;
        if (file.name == "." || file.name == ".." || stat((dir + "/" + file.name).c_str(), &info) != 0) {
            continue;
        }
        file.bytes = static_cast<uint64_t>(info.st_size);
        file.modified = info.st_mtim;
        std::ifstream in(dir + "/" + file.name);
        file.lines = static_cast<uint64_t>(
            std::count(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>(), '\n'));
        files.push_back(file);
    }
    closedir(d);
    std::sort(files.begin(), files.end(), [](const RingFile &a, const RingFile &b) {
        return a.modified.tv_sec != b.modified.tv_sec ? a.modified.tv_sec < b.modified.tv_sec
                                                      : a.modified.tv_nsec < b.modified.tv_nsec;
    });
    return files;
}

}  // namespace

Progress::Progress() : terminal_(isatty(STDOUT_FILENO) == 1) {}

void Progress::Show(uint32_t second, uint32_t total, const Service &service)
{
    KrvDateTime now = {};
    char clock[32] = "--:--:--.---";
    if (KRV_LmtTimeGetNoLock(&now) == KRV_OK) {
        snprintf(clock, sizeof(clock), "%02u:%02u:%02u.%03u", now.hour, now.minute, now.second,
                 static_cast<unsigned>(now.millisecond));
    }
    char line[160];
    snprintf(line, sizeof(line), "[%3u/%u s] %s  fires %llu  log lines %llu (dropped %llu)  pool units in use %u",
             second, total, clock, static_cast<unsigned long long>(service.TotalFires()),
             static_cast<unsigned long long>(service.LinesLogged()),
             static_cast<unsigned long long>(KRV_LogOpsDropCountGet()), service.UnitsInUse());
    if (terminal_) {
        std::printf("\r%s\033[K", line);  // back to the line's start, then clear what is left of it
        open_ = true;
    } else {
        std::printf("%s\n", line);
    }
    std::fflush(stdout);
}

void Progress::Finish()
{
    if (open_) {
        std::printf("\n");
        open_ = false;
    }
}

void PrintSummary(const Config &config, const Service &service, const RunReport &report)
{
    std::printf("\nsummary\n  %-16s %-7s %-9s %10s %8s\n", "timer", "job", "mode", "interval", "fires");
    for (const auto &timer : service.Timers()) {
        const TimerConfig &t = timer->config;
        std::printf("  %-16s %-7s %-9s %7u ms %8llu\n", t.name.c_str(), JobName(t.job),
                    t.periodic ? "periodic" : "one-shot", t.intervalMs, static_cast<unsigned long long>(timer->fires));
    }

    const std::string ringDir = config.logDir + "/" + config.appId;
    const std::vector<RingFile> ring = ListRing(ringDir);
    uint64_t ringBytes = 0;
    uint64_t ringLines = 0;
    for (const RingFile &file : ring) {
        ringBytes += file.bytes;
        ringLines += file.lines;
    }
    std::printf("  log lines        %llu logged by the components at level %s or above; %llu dropped (queue full)\n",
                static_cast<unsigned long long>(service.LinesLogged()), LevelName(config.logLevel),
                static_cast<unsigned long long>(report.droppedLines));
    std::printf("  log ring         %s: %zu files, %llu bytes, %llu lines (budget %u bytes, %u per file)\n",
                ringDir.c_str(), ring.size(), static_cast<unsigned long long>(ringBytes),
                static_cast<unsigned long long>(ringLines), config.logSize, config.logSize / 3);
    for (const RingFile &file : ring) {
        std::printf("    %-48s %8llu bytes %6llu lines\n", file.name.c_str(), static_cast<unsigned long long>(file.bytes),
                    static_cast<unsigned long long>(file.lines));
    }

    const PoolUsage pool = service.Pool();
    std::printf("  memory pool      \"packets\": %u units of %u bytes (%u usable); peak %u in use, %u at stop; "
                "%llu taken, %llu refused\n",
                pool.units, pool.unitSize, pool.unitSize - KRV_MEMPOOL_UNIT_HEAD_SIZE, pool.peakInUse,
                pool.inUseAtStop, static_cast<unsigned long long>(pool.allocations),
                static_cast<unsigned long long>(pool.refused));

    double total = 0;
    for (const StepResult &step : report.shutdown) {
        total += step.ms;
    }
    std::printf("  shutdown         %.1f ms\n", total);
    for (const StepResult &step : report.shutdown) {
        std::printf("    %-16s %9.1f ms  %s%s%s\n", step.name.c_str(), step.ms, step.ok ? "ok" : "FAILED",
                    step.note.empty() ? "" : step.ok ? "      " : "  ", step.note.c_str());
    }
    std::printf("  result           %s\n",
                report.clean ? "clean: every module started and stopped" : "NOT clean: see the steps above");
}

}  // namespace demo
