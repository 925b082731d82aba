// krv-demo: what the timers do. Every callback runs on the timer module's trigger thread, one at a
// time, so the counter table and the held units need no lock of their own.
#include "components.h"

#include <stdio.h>
#include <string.h>

#include <chrono>
#include <thread>

namespace demo {
namespace {

using Hok::Log::LogLevel;

constexpr uint64_t kCounterBuckets = 16;
// Packets a packet timer keeps "in flight" before it gives the oldest unit back.
constexpr size_t kHeldUnits = 3;
// Longest wait for the trigger thread during shutdown; generous for sanitizer builds.
constexpr auto kStopWait = std::chrono::seconds(10);
// Longest status text logged whole; a line over 1023 characters would be refused by KRV_LogWrite.
constexpr size_t kStatusLogMax = 900;

// Counter table keys are timer names; the table keeps its own copies of them.
uint64_t NameHash(uint64_t key, uint64_t buckets)
{
    uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (const char *c = reinterpret_cast<const char *>(key); *c != '\0'; ++c) {
        hash = (hash ^ static_cast<uint8_t>(*c)) * 1099511628211ull;
    }
    return hash % buckets;
}

bool SameName(uint64_t stored, uint64_t key)
{
    return strcmp(reinterpret_cast<const char *>(stored), reinterpret_cast<const char *>(key)) == 0;
}

uint64_t CopyName(uint64_t key)
{
    const char *name = reinterpret_cast<const char *>(key);
    size_t size = strlen(name) + 1;
    void *copy = KRV_OsalMemAlloc(size);
    if (copy != nullptr) {
        memcpy(copy, name, size);
    }
    return reinterpret_cast<uint64_t>(copy);  // 0 tells the table the copy failed
}

void FreeName(uint64_t key)
{
    KRV_OsalMemFree(reinterpret_cast<void *>(key));
}

uint64_t Key(const std::string &name)
{
    return reinterpret_cast<uint64_t>(name.c_str());
}

// Polls done until it holds or kStopWait passes.
template <typename Done>
bool WaitFor(Done done)
{
    auto deadline = std::chrono::steady_clock::now() + kStopWait;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace

const char *ErrorText(uint32_t code)
{
    if (KRV_EnoErrorModuleGet(code) != kErrModule) {
        return "Unknown";
    }
    switch (KRV_EnoErrorCodeGet(code)) {
        case kErrPoolEmpty:
            return "no free pool unit for a packet";
        case kErrChecksum:
            return "packet checksum mismatch";
        case kErrEncoding:
            return "Base64 text does not decode to its packet";
        case kErrStatus:
            return "status document could not be built";
        default:
            return "Unknown";
    }
}

Service::Service(const Config &config) : config_(config)
{
    for (const TimerConfig &timer : config.timers) {
        timers_.push_back(std::make_unique<TimerRun>());
        timers_.back()->config = timer;
        timers_.back()->service = this;
        timers_.back()->stopped.store(!timer.periodic);
    }
}

Service::~Service()
{
    KRV_HashDestroy(counters_);
}

bool Service::CreateLoggers()
{
    main_ = Hok::Log::CreateLogger("main", "start, stop and progress of the service");
    packet_ = Hok::Log::CreateLogger("packet", "packets built in pool units, checksummed and encoded");
    status_ = Hok::Log::CreateLogger("status", "status documents");
    errors_ = Hok::Log::CreateLogger("errors", "errors taken from the error stack");
    return main_ != nullptr && packet_ != nullptr && status_ != nullptr && errors_ != nullptr;
}

void Service::DestroyLoggers()
{
    for (Hok::Log::Logger **logger : {&main_, &packet_, &status_, &errors_}) {
        if (*logger != nullptr) {
            (*logger)->Destroy();
            *logger = nullptr;
        }
    }
}

Hok::Log::LogStream Service::Line(Hok::Log::Logger *logger, LogLevel level, uint32_t line)
{
    if (Hok::Log::IsLogEnabled(level)) {
        linesLogged_.fetch_add(1);
    }
    return Hok::Log::LogStream("components.cpp", line, level, *logger);
}

Hok::Log::LogStream Service::MainLine(LogLevel level, const char *file, uint32_t line)
{
    if (Hok::Log::IsLogEnabled(level)) {
        linesLogged_.fetch_add(1);
    }
    return Hok::Log::LogStream(file, line, level, *main_);
}

bool Service::CreatePool()
{
    const uint32_t bytes = config_.unitSize * config_.unitCount;  // LoadConfig keeps this within 64 MiB
    region_.reset(new uint64_t[(bytes + 7) / 8]);
    uint32_t rc = KRV_MemPoolCreate("packets", region_.get(), bytes, config_.unitSize, &poolId_);
    if (rc != KRV_OK) {
        Line(main_, Hok::Log::LOG_LEVEL_ERROR, __LINE__) << "KRV_MemPoolCreate returned " << Hok::Log::LogHex32Pre(rc);
        return false;
    }
    poolCreated_ = true;
    return true;
}

uint32_t Service::UnitsInUse() const
{
    return poolCreated_ ? config_.unitCount - KRV_MemUnUsedUnitGet(poolId_) : 0;
}

PoolUsage Service::Pool() const
{
    PoolUsage usage;
    usage.units = config_.unitCount;
    usage.unitSize = config_.unitSize;
    usage.peakInUse = peakInUse_.load();
    usage.allocations = allocations_.load();
    usage.refused = refused_.load();
    usage.inUseAtStop = inUseAtStop_;
    return usage;
}

bool Service::Start(KrvRelTmrPool *pool)
{
    timerPool_ = pool;
    const KrvHashElemFuncs keyFuncs = {CopyName, FreeName};
    const KrvHashElemFuncs valueFuncs = {nullptr, nullptr};  // counts are plain numbers
    counters_ = KRV_HashCreate(kCounterBuckets, NameHash, SameName, &keyFuncs, &valueFuncs);
    if (counters_ == nullptr) {
        Line(main_, Hok::Log::LOG_LEVEL_ERROR, __LINE__) << "no memory for the counter table";
        return false;
    }
    statusTemplate_ = "{\"app\":\"\",\"time\":\"\",\"fires\":{";
    for (const auto &timer : timers_) {
        if (KRV_HashInsert(counters_, Key(timer->config.name), 0) != KRV_OK) {
            return false;
        }
        statusTemplate_ += (timer == timers_.front() ? "\"" : ",\"") + timer->config.name + "\":\"\"";
    }
    statusTemplate_ += "}}";
    for (size_t i = 0; i < timers_.size(); ++i) {
        TimerRun &timer = *timers_[i];
        const KrvRelTmrFuncInfo info = {OnTimer, reinterpret_cast<uint64_t>(&timer), static_cast<uint32_t>(i)};
        uint32_t rc = KRV_CallBackRelTimerStart(&timer.handle, pool, timer.config.intervalMs,
                                                timer.config.periodic ? KRV_RELTMR_MODE_PERIODIC
                                                                      : KRV_RELTMR_MODE_ONESHOT,
                                                &info);
        if (rc != KRV_OK) {
            Line(main_, Hok::Log::LOG_LEVEL_ERROR, __LINE__)
                << "timer " << timer.config.name << " did not start: " << Hok::Log::LogHex32Pre(rc);
            Stop();
            return false;
        }
    }
    return true;
}

void Service::OnTimer(uint64_t arg, uint32_t)
{
    TimerRun &timer = *reinterpret_cast<TimerRun *>(arg);
    Service &service = *timer.service;
    service.inCallback_.fetch_add(1);
    if (!service.stopping_.load()) {
        service.Work(timer);
    } else if (!timer.stopped.load()) {
        // Stopped inside its own callback, a periodic timer goes back to its pool as the call returns.
        if (KRV_RelTimerStop(&timer.handle) == KRV_OK) {
            timer.stopped.store(true);
        } else {
            service.shutdownFailed_.store(true);
        }
    }
    service.inCallback_.fetch_sub(1);
}

/* A periodic timer stopped after the trigger thread collected it, but before its callback ran, is
 * never returned to its pool, and the pool then refuses KRV_RelTimerFini. Another thread cannot tell
 * whether a timer is in that state, so periodic timers are stopped on the trigger thread: each
 * collected one (KRV_RELTMR_STATUS_TIMEOUT) stops itself in its own callback, and this one-shot
 * shutdown timer stops those still waiting in the wheel. */
void Service::OnShutdown(uint64_t arg, uint32_t)
{
    Service &service = *reinterpret_cast<Service *>(arg);
    service.inCallback_.fetch_add(1);
    for (const auto &timer : service.timers_) {
        if (timer->stopped.load()) {
            continue;
        }
        if (timer->handle == nullptr) {  // never started
            timer->stopped.store(true);
            continue;
        }
        if (timer->handle->status == KRV_RELTMR_STATUS_TIMEOUT) {
            continue;
        }
        if (KRV_RelTimerStop(&timer->handle) == KRV_OK) {
            timer->stopped.store(true);
        } else {
            service.shutdownFailed_.store(true);
        }
    }
    service.shutdownRan_.store(true);
    service.inCallback_.fetch_sub(1);
}

bool Service::StopFromTriggerThread(KrvRelTmrPool *pool)
{
    const KrvRelTmrFuncInfo info = {OnShutdown, reinterpret_cast<uint64_t>(this), 0};
    if (KRV_CallBackRelTimerStart(&shutdownHandle_, pool, 0, KRV_RELTMR_MODE_ONESHOT, &info) != KRV_OK) {
        return false;
    }
    return WaitFor([this] {
        if (!shutdownRan_.load()) {
            return false;
        }
        for (const auto &timer : timers_) {
            if (!timer->stopped.load()) {
                return false;
            }
        }
        return true;
    });
}

bool Service::Stop()
{
    stopping_.store(true);
    bool ok = timerPool_ == nullptr || StopFromTriggerThread(timerPool_);
    for (const auto &timer : timers_) {
        // A one-shot timer may be stopped in any state; an empty handle (it fired) is fine too.
        if (!timer->config.periodic && KRV_RelTimerStop(&timer->handle) != KRV_OK) {
            ok = false;
        }
    }
    // A callback that began before the stops may still run; it does no work once stopping_ is set.
    ok = WaitFor([this] { return inCallback_.load() == 0; }) && ok && !shutdownFailed_.load();
    for (const auto &timer : timers_) {
        if (counters_ != nullptr) {
            KRV_HashAt(counters_, Key(timer->config.name), &timer->fires);
        }
    }
    KRV_HashDestroy(counters_);
    counters_ = nullptr;
    timerPool_ = nullptr;
    return ok;
}

bool Service::ReleaseUnits()
{
    bool ok = true;
    for (const auto &timer : timers_) {
        while (!timer->heldUnits.empty()) {
            ok = KRV_MemPoolFree(poolId_, timer->heldUnits.front()) == KRV_OK && ok;
            timer->heldUnits.pop_front();
        }
    }
    // The pool's own count, which must be back at zero now.
    inUseAtStop_ = UnitsInUse();
    return ok && inUseAtStop_ == 0;
}

void Service::CountFire(TimerRun &timer, uint64_t *fire)
{
    uint64_t count = 0;
    KRV_HashAt(counters_, Key(timer.config.name), &count);
    *fire = count + 1;
    KRV_HashPut(counters_, Key(timer.config.name), *fire);
    totalFires_.fetch_add(1);
}

void Service::Work(TimerRun &timer)
{
    uint64_t fire = 0;
    CountFire(timer, &fire);
    bool ok = true;
    switch (timer.config.job) {
        case Job::Packet:
            ok = Packet(timer, fire);
            break;
        case Job::Status:
            ok = Status();
            break;
        case Job::Errors:
            ok = CheckDamagedPacket();
            break;
    }
    if (!ok) {
        ReportErrors();
    }
}

// Builds a packet in a pool unit, checksums it, and checks that its Base64 form decodes back.
bool Service::Packet(TimerRun &timer, uint64_t fire)
{
    auto *unit = static_cast<uint8_t *>(KRV_MemPoolAlloc(poolId_));
    if (unit == nullptr) {
        refused_.fetch_add(1);
        KRV_EnoErrorWrapperPush(kErrHigh, kErrModule, kErrPoolEmpty);
        return false;
    }
    allocations_.fetch_add(1);
    timer.heldUnits.push_back(unit);
    if (UnitsInUse() > peakInUse_.load()) {
        peakInUse_.store(UnitsInUse());
    }
    const uint32_t size = config_.unitSize - KRV_MEMPOOL_UNIT_HEAD_SIZE;
    const std::string text = timer.config.name + " #" + std::to_string(fire) + " ";
    for (uint32_t i = 0; i < size; ++i) {
        unit[i] = static_cast<uint8_t>(text[i % text.size()]);
    }
    // Seeded with all ones and finished with an XOR: the library applies neither itself.
    uint32_t crc = 0xFFFFFFFFu;
    KRV_Crc32bitMake(unit, size, &crc);
    crc ^= 0xFFFFFFFFu;
    char *encoded = nullptr;
    uint8_t *decoded = nullptr;
    size_t decodedLen = 0;
    bool ok = KRV_Base64Encode(unit, size, &encoded) == KRV_OK &&
              KRV_Base64Decode(encoded, &decoded, &decodedLen) == KRV_OK && decodedLen == size &&
              memcmp(decoded, unit, size) == 0;
    if (ok) {
        Line(packet_, Hok::Log::LOG_LEVEL_INFO, __LINE__)
            << timer.config.name << " #" << static_cast<unsigned long>(fire) << ": " << size << " bytes, crc "
            << Hok::Log::LogHex32Pre(crc) << ", base64 " << std::string(encoded).substr(0, 12) << "... ("
            << static_cast<unsigned long>(strlen(encoded)) << " chars)";
    } else {
        KRV_EnoErrorWrapperPush(kErrHigh, kErrModule, kErrEncoding);
    }
    KRV_OsalMemFree(encoded);
    KRV_OsalMemFree(decoded);
    while (timer.heldUnits.size() > kHeldUnits) {
        if (KRV_MemPoolFree(poolId_, timer.heldUnits.front()) != KRV_OK) {
            ok = false;
        }
        timer.heldUnits.pop_front();
    }
    return ok;
}

// Serialises {"app":...,"time":...,"fires":{<timer>:<count>,...}}. The document is parsed from a
// template that already holds every member, so each setter replaces a string in place (a setter that
// has to append reports the failed lookup first). The serialiser writes strings, arrays and objects
// only, so the counts go in as text; it also reports its type tests, four diagnostics per string.
bool Service::Status()
{
    KrvJson *doc = nullptr;
    if (KRV_JsonParseByString(statusTemplate_.c_str(), &doc) != KRV_OK) {
        KRV_EnoErrorWrapperPush(kErrHigh, kErrModule, kErrStatus);
        return false;
    }
    KrvDateTime now = {};
    char stamp[32] = "--:--:--.---";
    if (KRV_LmtTimeGetNoLock(&now) == KRV_OK) {
        snprintf(stamp, sizeof(stamp), "%02u:%02u:%02u.%03u", now.hour, now.minute, now.second,
                 static_cast<unsigned>(now.millisecond));
    }
    KrvJson *fires = nullptr;
    bool ok = KRV_JsonStringValueSet(doc, "app", config_.appId.c_str()) == KRV_OK &&
              KRV_JsonStringValueSet(doc, "time", stamp) == KRV_OK &&
              KRV_JsonItemGet(doc, "fires", &fires) == KRV_OK;
    for (const auto &timer : timers_) {
        uint64_t count = 0;
        KRV_HashAt(counters_, Key(timer->config.name), &count);
        ok = ok && KRV_JsonStringValueSet(fires, timer->config.name.c_str(), std::to_string(count).c_str()) == KRV_OK;
    }
    char *text = nullptr;
    size_t len = 0;
    ok = ok && KRV_JsonSerializesToString(doc, &text, &len) == KRV_OK;
    if (ok && len <= kStatusLogMax) {
        Line(status_, Hok::Log::LOG_LEVEL_INFO, __LINE__) << text;
    } else if (ok) {
        Line(status_, Hok::Log::LOG_LEVEL_INFO, __LINE__) << "status document of " << static_cast<unsigned long>(len)
                                                          << " bytes";
    } else {
        KRV_EnoErrorWrapperPush(kErrHigh, kErrModule, kErrStatus);
    }
    KRV_JsonStringValueFree(text);
    KRV_JsonDelete(doc);
    return ok;
}

// Receives a packet whose bit flipped on the way and a Base64 text with a tab in it. Both faults
// are deliberate: they show errors travelling through the calling thread's error stack.
bool Service::CheckDamagedPacket()
{
    uint8_t packet[48];
    for (size_t i = 0; i < sizeof(packet); ++i) {
        packet[i] = static_cast<uint8_t>(i * 7);
    }
    uint32_t sent = 0xFFFFFFFFu;
    KRV_Crc32bitMake(packet, sizeof(packet), &sent);
    packet[7] ^= 0x10;
    uint32_t received = 0xFFFFFFFFu;
    KRV_Crc32bitMake(packet, sizeof(packet), &received);
    bool ok = true;
    if (received != sent) {
        KRV_EnoErrorWrapperPush(kErrHigh, kErrModule, kErrChecksum);
        ok = false;
    }
    uint8_t *decoded = nullptr;
    size_t decodedLen = 0;
    if (KRV_Base64Decode("ZGVt\tbw==", &decoded, &decodedLen) != KRV_OK) {
        KRV_EnoErrorWrapperPush(kErrHigh, kErrModule, kErrEncoding);
        ok = false;
    }
    KRV_OsalMemFree(decoded);
    return ok;
}

// Pops the calling thread's error stack, newest first, until it is empty (0).
void Service::ReportErrors()
{
    for (uint32_t code = KRV_EnoLastErrorGet(); code != 0 && code != KRV_ERR_UNKNOWN; code = KRV_EnoLastErrorGet()) {
        Line(errors_, Hok::Log::LOG_LEVEL_WARN, __LINE__)
            << Hok::Log::LogHex32Pre(code) << " (module " << KRV_EnoErrorModuleGet(code) << ", error "
            << KRV_EnoErrorCodeGet(code) << "): " << KRV_EnoErrorStrGet(code);
    }
}

}  // namespace demo
