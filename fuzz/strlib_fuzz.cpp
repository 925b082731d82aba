// Fuzz target: every string helper on arbitrary text, against plain models of what each must do.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "krv_log.h"
#include "krv_strlib.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

void Check(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

std::string Stripped(const std::string &s)
{
    size_t b = s.find_first_not_of(' ');
    return b == std::string::npos ? "" : s.substr(b, s.find_last_not_of(' ') - b + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    std::string raw(reinterpret_cast<const char *>(data), size);  // may hold NULs: SpaceDeleteEx reads len bytes
    std::string text = raw.c_str();

    Check(KRV_StrIsDecDigit(text.c_str()) == (text.find_first_not_of("0123456789") == std::string::npos));
    for (char ch : raw) {
        uint8_t value = 0xEE;
        bool hex = std::isxdigit(static_cast<unsigned char>(ch)) != 0;
        Check(KRV_StrlibHexCharToUint8(ch, &value) == (hex ? KRV_OK : KRV_ERR_INVALID));
        Check(hex ? value == std::strtoul(std::string(1, ch).c_str(), nullptr, 16) : value == 0xEE);
    }

    uint64_t value = 0;
    unsigned long expected = 0;
    bool parsed = std::sscanf(text.c_str(), "%lu", &expected) == 1;
    Check(KRV_StrlibStrToUint64(text.c_str(), &value) == (parsed ? KRV_OK : KRV_ERR_FAILED));
    Check(!parsed || value == expected);

    std::string inPlace = text;
    Check(KRV_StrlibSpaceDelete(inPlace.data(), inPlace.size()) == (text.empty() ? KRV_ERR_INVALID : KRV_OK));
    Check(text.empty() || Stripped(text) == inPlace.c_str());

    std::string out(raw.size() + 1, '#');
    size_t outLen = 0;
    Check(KRV_StrlibSpaceDeleteEx(raw.data(), raw.size(), out.data(), &outLen) == KRV_OK);
    Check(outLen == Stripped(raw).size() && out.compare(0, outLen, Stripped(raw)) == 0 && out[outLen] == '\0');
    return 0;
}
