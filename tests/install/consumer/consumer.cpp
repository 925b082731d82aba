// Installed-package check from C++: the class interface and the C headers side by side.
#include <hok_log.h>
#include <krv.h>

#include <cstdio>

int main()
{
    char *block = static_cast<char *>(KRV_OsalMemAlloc(32));
    if (block == nullptr) {
        return 1;
    }
    KRV_OsalMemFree(block);
    std::printf("level %u\n", static_cast<unsigned>(Hok::Log::GetLogLevel()));
    return 0;
}
