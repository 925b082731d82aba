// krv-demo: the service's components, the work its timers do, and their shutdown.
#ifndef KRV_DEMO_COMPONENTS_H
#define KRV_DEMO_COMPONENTS_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "config.h"
#include "hok_log.h"
#include "krv.h"

namespace demo {

// The demo's own composed error codes: module 45 of the "YIM" family (modules 40-49).
constexpr uint32_t kErrHigh = 0x0DE0;
constexpr uint32_t kErrModule = 45;
constexpr uint32_t kErrPoolEmpty = 1;  // no free pool unit for a packet
constexpr uint32_t kErrChecksum = 2;   // a packet's CRC-32 does not match
constexpr uint32_t kErrEncoding = 3;   // a Base64 text does not decode to its packet
constexpr uint32_t kErrStatus = 4;     // the status document could not be built

// Turns the codes above into text for KRV_EnoErrorStrGet; registered for the "YIM" family.
const char *ErrorText(uint32_t code);

class Service;

// One configured timer while it runs.
struct TimerRun {
    TimerConfig config;
    Service *service = nullptr;
    KrvRelTmrNode *handle = nullptr;     // written by the timer module
    std::deque<void *> heldUnits;        // pool units of packets still "in flight" (trigger thread)
    std::atomic<bool> stopped{false};    // a periodic timer is out of the wheel for good
    uint64_t fires = 0;                  // read from the counter table at shutdown
};

struct PoolUsage {
    uint32_t units = 0;
    uint32_t unitSize = 0;
    uint32_t peakInUse = 0;
    uint32_t inUseAtStop = 0;
    uint64_t allocations = 0;
    uint64_t refused = 0;
};

// Everything the timers work with: a logger per component, a memory pool over the service's own
// region, a counter table, and the timers themselves. Callbacks run one at a time on the timer
// module's trigger thread; the main thread only reads the atomic progress figures until the timers
// are stopped.
class Service {
public:
    explicit Service(const Config &config);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Creates the loggers "main", "packet", "status" and "errors".
    bool CreateLoggers();
    // Destroys them; FiniLogging refuses to stop while loggers are registered.
    void DestroyLoggers();
    // Carves the unit pool "packets" out of the service's region (needs KRV_MemPoolInit).
    bool CreatePool();
    // Makes the counter table and starts every timer from pool (needs KRV_RelTimerInit).
    bool Start(KrvRelTmrPool *pool);
    // Stops every timer, waits until no callback runs, reads the counters and frees the table.
    bool Stop();
    // Gives the units still held back to the pool; false when a release failed or units stay in use.
    bool ReleaseUnits();

    // A log line of the "main" component, counted like the components' own lines.
    Hok::Log::LogStream MainLine(Hok::Log::LogLevel level, const char *file, uint32_t line);

    // Progress figures, safe to read from any thread while the timers run.
    uint64_t TotalFires() const { return totalFires_.load(); }
    uint64_t LinesLogged() const { return linesLogged_.load(); }
    uint32_t UnitsInUse() const;

    // Results, complete once Stop and ReleaseUnits have run.
    const std::vector<std::unique_ptr<TimerRun>> &Timers() const { return timers_; }
    PoolUsage Pool() const;

    // Timer callbacks (arg is the TimerRun, or the Service for the shutdown timer).
    static void OnTimer(uint64_t arg, uint32_t param);
    static void OnShutdown(uint64_t arg, uint32_t param);

private:
    Hok::Log::LogStream Line(Hok::Log::Logger *logger, Hok::Log::LogLevel level, uint32_t line);
    void Work(TimerRun &timer);
    bool Packet(TimerRun &timer, uint64_t fire);
    bool Status();
    bool CheckDamagedPacket();
    void ReportErrors();
    void CountFire(TimerRun &timer, uint64_t *fire);
    bool StopFromTriggerThread(KrvRelTmrPool *pool);

    const Config &config_;
    std::vector<std::unique_ptr<TimerRun>> timers_;
    Hok::Log::Logger *main_ = nullptr;
    Hok::Log::Logger *packet_ = nullptr;
    Hok::Log::Logger *status_ = nullptr;
    Hok::Log::Logger *errors_ = nullptr;
    std::unique_ptr<uint64_t[]> region_;  // the pool's memory, 8-byte aligned, owned here
    uint32_t poolId_ = 0;
    bool poolCreated_ = false;
    uint32_t inUseAtStop_ = 0;
    KrvHashTable *counters_ = nullptr;
    std::string statusTemplate_;  // the status document with every member present, values empty
    KrvRelTmrPool *timerPool_ = nullptr;
    KrvRelTmrNode *shutdownHandle_ = nullptr;

    std::atomic<bool> stopping_{false};
    std::atomic<bool> shutdownRan_{false};
    std::atomic<bool> shutdownFailed_{false};
    std::atomic<int> inCallback_{0};
    std::atomic<uint64_t> totalFires_{0};
    std::atomic<uint64_t> linesLogged_{0};
    std::atomic<uint32_t> peakInUse_{0};
    std::atomic<uint64_t> allocations_{0};
    std::atomic<uint64_t> refused_{0};
};

}  // namespace demo

#endif  // KRV_DEMO_COMPONENTS_H
