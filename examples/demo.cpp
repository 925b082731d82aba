// Demonstration: prints the library version and sends a diagnostic through a registered hook.
#include <cstdio>

#include "krv.h"

namespace {

void PrintingHook(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg)
{
    std::printf("hook received: code 0x%x, level %u, %s:%u, \"%s\"\n", errCode, level, fileName ? fileName : "-",
                line, msg);
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
    return 0;
}
