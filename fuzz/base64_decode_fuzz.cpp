// Fuzz target: decode arbitrary text. The result must match the plain character-by-character model,
// and accepted bytes must survive an encode and a second decode unchanged.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "krv_base64.h"
#include "krv_osal.h"
#include "support/krv_base64_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);  // a NUL inside ends the text
    uint8_t *bytes = nullptr;
    size_t len = 0;
    uint32_t code = KRV_Base64Decode(text.c_str(), &bytes, &len);
    krvtest::Base64Result expected = krvtest::Base64ModelDecode(text.c_str());
    std::string got = code == KRV_OK ? std::string(reinterpret_cast<char *>(bytes), len) : std::string();
    if (!(expected == krvtest::Base64Result{code, got}) || (code == KRV_OK && bytes[len] != 0)) {
        std::abort();
    }
    if (code == KRV_OK && len > 0) {
        char *again = nullptr;
        uint8_t *back = nullptr;
        size_t backLen = 0;
        if (KRV_Base64Encode(bytes, len, &again) != KRV_OK || KRV_Base64Decode(again, &back, &backLen) != KRV_OK ||
            backLen != len || std::memcmp(back, bytes, len) != 0) {
            std::abort();
        }
        KRV_OsalMemFree(again);
        KRV_OsalMemFree(back);
    }
    KRV_OsalMemFree(bytes);
    return 0;
}
