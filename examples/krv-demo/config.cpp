// krv-demo: reading and checking the configuration file.
#include "config.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <cmath>
#include <mutex>

#include "krv.h"

namespace demo {
namespace {

using Hok::Log::LogLevel;

const char *const kLevelNames[] = {"sec", "fatal", "error", "warn", "info", "debug", "verbose"};
const char *const kJobNames[] = {"packet", "status", "errors"};
const char *const kTopKeys[] = {"appId", "logDir", "logSize", "logLevel", "logMode", "runSeconds", "timers", "pool"};
const char *const kTimerKeys[] = {"name", "intervalMs", "mode", "job"};
const char *const kPoolKeys[] = {"unitSize", "unitCount"};
// The status document holds one member per timer, and the serialiser writes at most 50 per object.
constexpr uint32_t kMaxTimers = 32;
constexpr uint64_t kMaxPoolBytes = 64u << 20;

// The library reports every failure through KRV_LogWrite, and without a hook those lines go to
// standard output. While the file is read a hook keeps them instead, so that a bad file gives one
// clear message, with the parser's first complaint as its reason.
std::mutex g_diagMutex;
std::vector<std::string> g_diagnostics;

void KeepDiagnostic(uint32_t, uint32_t level, const char *, uint32_t, const char *msg)
{
    if (level <= 2) {
        std::lock_guard<std::mutex> lock(g_diagMutex);
        g_diagnostics.emplace_back(msg);
    }
}

class DiagnosticScope {
public:
    DiagnosticScope() : installed_(KRV_LogHookReg(KeepDiagnostic) == KRV_OK) {}
    ~DiagnosticScope()
    {
        if (installed_) {
            KRV_LogHookUnReg();
        }
        std::lock_guard<std::mutex> lock(g_diagMutex);
        g_diagnostics.clear();
    }
    DiagnosticScope(const DiagnosticScope &) = delete;
    DiagnosticScope &operator=(const DiagnosticScope &) = delete;

    // The first diagnostic kept, or a placeholder when another hook took them.
    std::string First() const
    {
        std::lock_guard<std::mutex> lock(g_diagMutex);
        return g_diagnostics.empty() ? std::string("no diagnostic") : g_diagnostics.front();
    }

private:
    bool installed_;
};

// Frees a parsed tree when the reader is done with it, whichever way it leaves.
struct TreeOwner {
    KrvJson *root = nullptr;
    ~TreeOwner() { KRV_JsonDelete(root); }
};

template <size_t N>
bool Known(const char *key, const char *const (&names)[N])
{
    for (const char *name : names) {
        if (strcmp(key, name) == 0) {
            return true;
        }
    }
    return false;
}

// Refuses a member the demo does not know: a misspelt key would otherwise be ignored silently.
template <size_t N>
bool OnlyKnownKeys(const KrvJson *object, const char *const (&names)[N], const std::string &where,
                   std::string *error)
{
    for (const KrvJsonChild *link = object->child; link != nullptr; link = link->next) {
        if (!Known(link->item->key, names)) {
            *error = where + "unknown key \"" + link->item->key + "\"";
            return false;
        }
    }
    return true;
}

bool HasMember(const KrvJson *object, const char *key)
{
    for (const KrvJsonChild *link = object->child; link != nullptr; link = link->next) {
        if (strcmp(link->item->key, key) == 0) {
            return true;
        }
    }
    return false;
}

// Reads an optional whole number from lo to hi; an absent key keeps *value.
bool ReadNumber(KrvJson *object, const char *key, uint32_t lo, uint32_t hi, const std::string &where,
                uint32_t *value, std::string *error)
{
    if (!HasMember(object, key)) {
        return true;
    }
    double number = 0;
    if (KRV_JsonNumberValueGet(object, key, &number) != KRV_OK || number != std::floor(number) || number < lo ||
        number > hi) {
        *error = where + key + ": expected a whole number from " + std::to_string(lo) + " to " + std::to_string(hi);
        return false;
    }
    *value = static_cast<uint32_t>(number);
    return true;
}

// Reads an optional text of at most maxLen characters; an absent key keeps *value.
bool ReadText(KrvJson *object, const char *key, size_t maxLen, const std::string &where, std::string *value,
              std::string *error)
{
    if (!HasMember(object, key)) {
        return true;
    }
    char *text = nullptr;
    if (KRV_JsonStringValueGet(object, key, &text) != KRV_OK) {
        *error = where + key + ": expected a text";
        return false;
    }
    *value = text;
    KRV_JsonStringValueFree(text);
    if (value->size() > maxLen) {
        *error = where + key + ": longer than " + std::to_string(maxLen) + " characters";
        return false;
    }
    return true;
}

// Reads an optional text that must be one of names; *index receives its position.
template <size_t N>
bool ReadChoice(KrvJson *object, const char *key, const char *const (&names)[N], const std::string &where,
                size_t *index, std::string *error)
{
    if (!HasMember(object, key)) {
        return true;
    }
    std::string text;
    if (!ReadText(object, key, 32, where, &text, error)) {
        return false;
    }
    for (size_t i = 0; i < N; ++i) {
        if (text == names[i]) {
            *index = i;
            return true;
        }
    }
    *error = where + key + ": \"" + text + "\" is not one of";
    for (const char *name : names) {
        *error += std::string(" ") + name;
    }
    return false;
}

bool ReadTimer(KrvJson *item, size_t index, TimerConfig *timer, std::string *error)
{
    const std::string where = "timers[" + std::to_string(index) + "]: ";
    if (KRV_JsonIsObject(item) != 1) {
        *error = where + "expected an object";
        return false;
    }
    if (!OnlyKnownKeys(item, kTimerKeys, where, error)) {
        return false;
    }
    if (!HasMember(item, "name") || !HasMember(item, "intervalMs")) {
        *error = where + "\"name\" and \"intervalMs\" are required";
        return false;
    }
    const char *const modes[] = {"periodic", "oneshot"};
    size_t mode = 0;
    size_t job = 0;
    if (!ReadText(item, "name", 31, where, &timer->name, error) ||
        !ReadNumber(item, "intervalMs", 1, 3600000, where, &timer->intervalMs, error) ||
        !ReadChoice(item, "mode", modes, where, &mode, error) || !ReadChoice(item, "job", kJobNames, where, &job, error)) {
        return false;
    }
    // Names go into log lines and, unescaped, into JSON text: keep them plain.
    if (timer->name.empty() ||
        timer->name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-") !=
            std::string::npos) {
        *error = where + "name: letters, digits, '_', '.' and '-' only, not empty";
        return false;
    }
    timer->periodic = mode == 0;
    timer->job = static_cast<Job>(job);
    return true;
}

bool ReadTimers(KrvJson *root, std::vector<TimerConfig> *timers, std::string *error)
{
    KrvJson *array = nullptr;
    uint32_t size = 0;
    if (!HasMember(root, "timers") || KRV_JsonArrayGet(root, "timers", &array) != KRV_OK ||
        KRV_JsonArraySizeGet(array, &size) != KRV_OK || size == 0 || size > kMaxTimers) {
        *error = "timers: expected an array of 1 to " + std::to_string(kMaxTimers) + " timers";
        return false;
    }
    for (uint32_t i = 0; i < size; ++i) {
        KrvJson *item = nullptr;
        TimerConfig timer;
        if (KRV_JsonArrayItemGet(array, i, &item) != KRV_OK || !ReadTimer(item, i, &timer, error)) {
            return false;
        }
        for (const TimerConfig &earlier : *timers) {
            if (earlier.name == timer.name) {
                *error = "timers[" + std::to_string(i) + "]: name \"" + timer.name + "\" is used twice";
                return false;
            }
        }
        timers->push_back(timer);
    }
    return true;
}

bool ReadPool(KrvJson *root, Config *config, std::string *error)
{
    if (!HasMember(root, "pool")) {
        return true;
    }
    KrvJson *pool = nullptr;
    const std::string where = "pool: ";
    if (KRV_JsonItemGet(root, "pool", &pool) != KRV_OK || KRV_JsonIsObject(pool) != 1) {
        *error = "pool: expected an object";
        return false;
    }
    // A unit must hold its 56-byte header and at least one byte; the pool module counts units in 16 bits.
    if (!OnlyKnownKeys(pool, kPoolKeys, where, error) ||
        !ReadNumber(pool, "unitSize", KRV_MEMPOOL_UNIT_HEAD_SIZE + 1, 65536, where, &config->unitSize, error) ||
        !ReadNumber(pool, "unitCount", 1, KRV_MEMPOOL_MAX_UNITS, where, &config->unitCount, error)) {
        return false;
    }
    if (static_cast<uint64_t>(config->unitSize) * config->unitCount > kMaxPoolBytes) {
        *error = "pool: unitSize * unitCount exceeds 64 MiB";
        return false;
    }
    return true;
}

bool ReadLogSettings(KrvJson *root, Config *config, std::string *error)
{
    const char *const modes[] = {"file", "file+stdout"};
    size_t level = config->logLevel;
    size_t mode = 0;
    if (!ReadText(root, "appId", 31, "", &config->appId, error) ||
        !ReadText(root, "logDir", PATH_MAX - 64, "", &config->logDir, error) ||
        !ReadNumber(root, "logSize", 5120, 1u << 30, "", &config->logSize, error) ||
        !ReadChoice(root, "logLevel", kLevelNames, "", &level, error) ||
        !ReadChoice(root, "logMode", modes, "", &mode, error)) {
        return false;
    }
    if (config->appId.empty() || config->appId.find('/') != std::string::npos || config->appId[0] == '.') {
        *error = "appId: must be a plain file name, not empty";
        return false;
    }
    config->logLevel = static_cast<LogLevel>(level);
    config->logMode = mode == 0 ? Hok::Log::LOG_MODE_FILE : Hok::Log::LOG_MODE_FILE | Hok::Log::LOG_MODE_STDOUT;
    return true;
}

// Creates dir and its missing parents, then stores its canonical form in *dir.
bool PrepareLogDir(std::string *dir, std::string *error)
{
    std::string path = *dir;
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string prefix = path.substr(0, slash);
        if (!prefix.empty() && mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
            *error = "logDir: cannot create " + prefix + ": " + strerror(errno);
            return false;
        }
        if (slash == std::string::npos) {
            break;
        }
    }
    char resolved[PATH_MAX];
    struct stat info;
    if (realpath(path.c_str(), resolved) == nullptr || stat(resolved, &info) != 0 || !S_ISDIR(info.st_mode)) {
        *error = "logDir: " + path + " is not a usable directory";
        return false;
    }
    *dir = resolved;
    return true;
}

}  // namespace

bool LoadConfig(const std::string &path, const std::string &defaultLogDir, Config *config, std::string *error)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        *error = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *error = path + " is not a regular file";
        return false;
    }
    TreeOwner tree;
    {
        DiagnosticScope diagnostics;
        if (KRV_JsonParse(path.c_str(), &tree.root) != KRV_OK) {
            *error = path + " is not JSON the library reads (" + diagnostics.First() +
                     "); no escapes, signs or exponents, one type per array";
            return false;
        }
        if (KRV_JsonIsObject(tree.root) != 1) {
            *error = path + ": expected an object at the top";
            return false;
        }
        std::string reason;
        bool ok = OnlyKnownKeys(tree.root, kTopKeys, "", &reason) && ReadLogSettings(tree.root, config, &reason) &&
                  ReadNumber(tree.root, "runSeconds", 1, 86400, "", &config->runSeconds, &reason) &&
                  ReadTimers(tree.root, &config->timers, &reason) && ReadPool(tree.root, config, &reason);
        if (!ok) {
            *error = path + ": " + reason;
            return false;
        }
    }
    if (config->logDir.empty()) {
        config->logDir = defaultLogDir;
    }
    if (!PrepareLogDir(&config->logDir, error)) {
        return false;
    }
    return true;
}

const char *LevelName(LogLevel level)
{
    return level < sizeof(kLevelNames) / sizeof(kLevelNames[0]) ? kLevelNames[level] : "unknown";
}

const char *JobName(Job job)
{
    return kJobNames[static_cast<size_t>(job)];
}

}  // namespace demo
