// krv-demo: the progress line while the service runs and the summary after it stopped.
#ifndef KRV_DEMO_SUMMARY_H
#define KRV_DEMO_SUMMARY_H

#include <cstdint>
#include <string>
#include <vector>

#include "components.h"
#include "config.h"

namespace demo {

// One start or stop step of the service and how it went.
struct StepResult {
    std::string name;
    std::string note;
    bool ok = false;
    double ms = 0;
};

// One status line a second: rewritten in place on a terminal, one plain line each otherwise.
class Progress {
public:
    Progress();
    void Show(uint32_t second, uint32_t total, const Service &service);
    // Ends a line left open on a terminal.
    void Finish();

private:
    bool terminal_;
    bool open_ = false;
};

// Everything the summary reports besides what the service counted itself.
struct RunReport {
    uint64_t droppedLines = 0;           // KRV_LogOpsDropCountGet just before logging stopped
    std::vector<StepResult> shutdown;    // in the order the steps ran
    bool clean = false;
};

void PrintSummary(const Config &config, const Service &service, const RunReport &report);

}  // namespace demo

#endif  // KRV_DEMO_SUMMARY_H
