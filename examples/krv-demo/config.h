// krv-demo: the service's configuration, read from a JSON file.
#ifndef KRV_DEMO_CONFIG_H
#define KRV_DEMO_CONFIG_H

#include <cstdint>
#include <string>
#include <vector>

#include "hok_log.h"

namespace demo {

// What a timer's callback does each time it fires.
enum class Job {
    Packet,  // builds a packet in a pool unit, checksums and encodes it, counts it
    Status,  // serialises a status document
    Errors,  // checks a deliberately damaged packet and reports through the error stack
};

struct TimerConfig {
    std::string name;  // 1..31 characters, unique: it keys the fire counters
    uint32_t intervalMs = 0;
    bool periodic = true;
    Job job = Job::Packet;
};

struct Config {
    std::string appId = "krv-demo";
    std::string logDir;  // absolute and canonical once LoadConfig has prepared it
    uint32_t logSize = 6144;
    Hok::Log::LogLevel logLevel = Hok::Log::LOG_LEVEL_INFO;
    Hok::Log::LogMode logMode = Hok::Log::LOG_MODE_FILE;
    uint32_t runSeconds = 5;
    std::vector<TimerConfig> timers;
    uint32_t unitSize = 256;  // bytes per pool unit, the library's 56-byte unit header included
    uint32_t unitCount = 32;
};

// Reads the file at path into *config. A missing or empty "logDir" means defaultLogDir. The log
// directory is created (with its parents) when missing and made canonical, as the log backend
// requires. Returns false with a one-line reason in *error when the file cannot be read, is not
// JSON of the library's dialect, or holds an unknown key or a value of the wrong type or range.
bool LoadConfig(const std::string &path, const std::string &defaultLogDir, Config *config, std::string *error);

// Returns the configuration name of level or of a job ("info", "packet").
const char *LevelName(Hok::Log::LogLevel level);
const char *JobName(Job job);

}  // namespace demo

#endif  // KRV_DEMO_CONFIG_H
