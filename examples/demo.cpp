// Demonstration: prints the library version, sends a diagnostic through a registered hook, then
// logs through a named logger into a ring of log files and shows what was written.
#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hok_log.h"
#include "krv.h"

namespace {

void PrintingHook(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg)
{
    std::printf("hook received: code 0x%x, level %u, %s:%u, \"%s\"\n", errCode, level, fileName ? fileName : "-",
                line, msg);
}

// Lines of the "audit" context land here instead of in the files.
void AuditModule(uint32_t, uint32_t level, const char *, uint32_t, const char *msg)
{
    std::printf("audit module got (level %u): %s\n", level, msg);
}

// Names of the entries of dir in sort order, "." and ".." left out.
std::vector<std::string> ListDir(const std::string &dir)
{
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (const struct dirent *entry = readdir(d)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(name);
            }
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Total text of the files in dir; the writer thread appends lines a moment after they are logged.
std::string RingText(const std::string &dir)
{
    std::string text;
    for (const std::string &name : ListDir(dir)) {
        text += ReadFile(dir + "/" + name);
    }
    return text;
}

void RemoveTree(const std::string &root, const std::string &appDir)
{
    for (const std::string &name : ListDir(appDir)) {
        unlink((appDir + "/" + name).c_str());
    }
    rmdir(appDir.c_str());
    rmdir(root.c_str());
}

int DemoLogging()
{
    char root[] = "/tmp/krv_demo_XXXXXX";
    if (mkdtemp(root) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string appDir = std::string(root) + "/demo";

    using namespace Hok::Log;
    InitLogging("demo", root, 3 * 4096 * 2, LOG_LEVEL_INFO, LOG_MODE_FILE);
    if (!IsLogInited()) {
        RemoveTree(root, appDir);
        return 1;
    }
    std::printf("logging initialised: appId %s, level %d, files under %s\n", GetLogAppId().c_str(),
                static_cast<int>(GetLogLevel()), appDir.c_str());

    Logger *net = CreateLogger("net", "network layer");
    Logger *audit = CreateLogger("audit", "security audit trail");
    MdlLogReg("audit", AuditModule);

    net->LogWarn(__FILE__, __LINE__) << "retry " << 3 << " of " << LogHex16Pre(31);
    net->LogInfo(__FILE__, __LINE__) << "flags " << LogBin8(0xA5) << ", id " << LogHex64Pre(0x0123456789ABCDEFull)
                                      << ", ratio " << 0.5f << ", ok " << true;
    if (IsLogEnabled(LOG_LEVEL_DEBUG)) {
        net->LogDebug(__FILE__, __LINE__) << "not built: the filter admits INFO and above";
    }
    audit->LogSec(__FILE__, __LINE__) << "login by " << std::string("operator");
    // Enough lines to spread over the three files of 8 KiB each: the writer rotates by size.
    for (int tick = 0; tick < 250; ++tick) {
        net->LogInfo(__FILE__, __LINE__) << "tick " << tick << " state " << LogHex32(0xC0DE0000u + tick);
    }
    net->LogError(__FILE__, __LINE__) << "last line, level " << LOG_LEVEL_ERROR;

    // Lines still queued at FiniLogging are discarded, so give the writer time to catch up.
    for (int wait = 0; wait < 100 && RingText(appDir).find("last line") == std::string::npos; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::printf("log ring %s:\n", appDir.c_str());
    for (const std::string &name : ListDir(appDir)) {
        std::string text = ReadFile(appDir + "/" + name);
        size_t lines = 0;
        for (char c : text) {
            lines += c == '\n' ? 1 : 0;
        }
        std::printf("  %s: %zu bytes, %zu lines, last: %s", name.c_str(), text.size(), lines,
                    text.substr(text.rfind('\n', text.size() - 2) + 1).c_str());
    }

    MdlLogUnreg("audit");
    audit->Destroy();
    net->Destroy();
    FiniLogging();
    std::printf("logging finalised: %s\n", IsLogInited() ? "still running" : "stopped");
    RemoveTree(root, appDir);
    return 0;
}

}  // namespace

int main()
{
    std::printf("libhokkrv %s (released %s)\n", KRV_VersionGet(), KRV_VersionReleaseTimeGet());
    KRV_LogWrite(0, 2, "demo", __LINE__, "printed directly: no hook installed yet");
    if (KRV_LogHookReg(PrintingHook) != 0) {
        return 1;
    }
    KRV_LogWrite(22, 6, "demo", __LINE__, "verbose diagnostics reach a hook whatever the filter (%d)", 42);
    KRV_LogHookUnReg();
    return DemoLogging();
}
