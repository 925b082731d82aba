// Helpers shared by the file log backend tests: configurations, directory listings, polling.
#ifndef TEST_LOG_OPS_UTIL_H
#define TEST_LOG_OPS_UTIL_H

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "krv_log_ops.h"

namespace logopstest {

inline KrvLogOpsCfg Cfg(const char *appId, const char *logDir, uint32_t mode, uint32_t size = 5120,
                        uint32_t level = 6)
{
    KrvLogOpsCfg cfg = {};
    std::strncpy(cfg.appId, appId, sizeof(cfg.appId));
    cfg.logDir = logDir;
    cfg.logMode = mode;
    cfg.logSize = size;
    cfg.logLevel = level;
    return cfg;
}

// Regular entries of dir (no "." and ".."), in name order.
inline std::vector<std::string> ListDir(const std::string &dir)
{
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d)) {
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) {
                names.push_back(e->d_name);
            }
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// All files of dir concatenated in name order.
inline std::string ReadAll(const std::string &dir)
{
    std::string all;
    for (const std::string &name : ListDir(dir)) {
        all += ReadFile(dir + "/" + name);
    }
    return all;
}

inline unsigned ModeOf(const std::string &path)
{
    struct stat st = {};
    stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

// Polls cond every 10 ms for up to 10 s; the writer sleeps 50 ms when idle.
template <typename Cond>
bool WaitFor(Cond cond)
{
    for (int i = 0; i < 1000; ++i) {
        if (cond()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return cond();
}

}  // namespace logopstest

#endif  // TEST_LOG_OPS_UTIL_H
