// Logging: diagnostics before and after a hook, named loggers, stream-style lines, routing one
// logger's lines to a module function, and a shutdown that loses nothing.
#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "hok_log.h"
#include "krv.h"

namespace {

unsigned g_audited;

// Lines of the "audit" logger come here instead of the files, whatever their level. The function
// runs with the backend's module-list lock held: it must not register or unregister modules.
void AuditModule(uint32_t, uint32_t level, const char *, uint32_t, const char *msg)
{
    ++g_audited;
    std::printf("audit module got level %u: %s\n", level, msg);
}

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

void RemoveTree(const std::string &root, const std::string &appDir)
{
    for (const std::string &name : ListDir(appDir)) {
        unlink((appDir + "/" + name).c_str());
    }
    rmdir(appDir.c_str());
    rmdir(root.c_str());
}

}  // namespace

int main()
{
    using namespace Hok::Log;

    // Without a hook, diagnostics of level 2 (error) and below are printed on standard output; the
    // library's modules report every failure this way until logging is initialised.
    KRV_LogWrite(22, 2, "example", __LINE__, "printed: no hook is installed yet");
    KRV_LogWrite(0, 4, "example", __LINE__, "not printed: the printing filter is 2");

    // The log directory must exist and be canonical; files go to <logDir>/<appId>.
    char root[] = "/tmp/krv_example_XXXXXX";
    if (mkdtemp(root) == nullptr) {
        return 1;
    }
    const std::string appDir = std::string(root) + "/example";
    // 6144 bytes for three files: each rotates before it would pass 2048 bytes.
    InitLogging("example", root, 6144, LOG_LEVEL_INFO, LOG_MODE_FILE);
    if (!IsLogInited()) {  // InitLogging reports failures on standard output only
        RemoveTree(root, appDir);
        return 1;
    }
    Logger *net = CreateLogger("net", "network layer");
    Logger *audit = CreateLogger("audit", "security audit trail");
    if (MdlLogReg("audit", AuditModule) != KRV_OK) {
        return 1;
    }

    // The first insertion puts "[net][W] > " in front; the line is written when the stream dies at
    // the end of the statement.
    net->LogWarn(__FILE__, __LINE__) << "retry " << 3 << " of " << LogHex16Pre(31);
    net->LogInfo(__FILE__, __LINE__) << "flags " << LogBin8(0xA5) << ", id " << LogHex64Pre(0x0123456789ABCDEFull)
                                      << ", ratio " << 0.5 << ", ok " << true;
    // Line makers never consult the filter; test it first to skip building a line it would drop.
    if (IsLogEnabled(LOG_LEVEL_DEBUG)) {
        net->LogDebug(__FILE__, __LINE__) << "not built: the filter admits INFO and more severe";
    }
    audit->LogVerbose(__FILE__, __LINE__) << "login by " << std::string("operator");
    for (int i = 0; i < 60; ++i) {
        net->LogInfo(__FILE__, __LINE__) << "tick " << i << " state " << LogHex32(0xC0DE0000u + i);
    }
    net->LogError(__FILE__, __LINE__) << "last line";

    // FiniLogging discards lines still queued for the writer thread: flush first.
    if (FlushLogging(5000) != KRV_OK) {
        return 1;
    }
    std::printf("%llu lines dropped by a full queue\n", static_cast<unsigned long long>(KRV_LogOpsDropCountGet()));
    size_t files = 0;
    bool sawLast = false;
    for (const std::string &name : ListDir(appDir)) {
        std::string text = ReadFile(appDir + "/" + name);
        sawLast = sawLast || text.find("[net][E] > last line") != std::string::npos;
        ++files;
        std::printf("  %s: %zu bytes\n", name.c_str(), text.size());
    }

    MdlLogUnreg("audit");
    // The last FiniLogging refuses to stop while loggers exist ("some loggers are not destroy").
    audit->Destroy();
    net->Destroy();
    FiniLogging();
    bool stopped = !IsLogInited();
    RemoveTree(root, appDir);
    return files == 3 && sawLast && g_audited == 1 && stopped ? 0 : 1;
}
