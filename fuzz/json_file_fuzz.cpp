// Fuzz target: parse arbitrary bytes from a file. The file path must give what the text path gives
// for the same bytes up to the first NUL: the same status and, when accepted, the same tree.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "krv_json.h"
#include "krv_log.h"
#include "support/krv_json_dump.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

// The status of a parse and the rendering of its tree (empty on failure); the tree is freed.
std::string Outcome(uint32_t rc, KrvJson *root)
{
    std::string out = std::to_string(rc) + "|";
    if (rc == 0) {
        krvtest::JsonDump(root, &out);
    } else if (root != nullptr) {
        std::abort();  // a refused parse hands out nothing
    }
    KRV_JsonDelete(root);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = KRV_LogHookReg(IgnoreDiagnostic) == 0;
    (void)quiet;
    static const std::string path = "/tmp/krv_json_file_fuzz_" + std::to_string(getpid()) + ".json";
    FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
        std::abort();
    }
    KrvJson *fromFile = nullptr;
    const std::string viaFile = Outcome(KRV_JsonParse(path.c_str(), &fromFile), fromFile);
    std::string text(reinterpret_cast<const char *>(data), size);
    KrvJson *fromText = nullptr;
    const std::string viaText = Outcome(KRV_JsonParseByString(text.c_str(), &fromText), fromText);
    std::remove(path.c_str());
    if (viaFile != viaText) {
        std::abort();
    }
    return 0;
}
