// Fuzz target: encode arbitrary bytes. The text has the canonical length and alphabet, and decodes
// back to the bytes, also with line breaks and spaces put in where the first input byte says.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "krv_base64.h"
#include "krv_osal.h"

namespace {

void CheckDecodesTo(const std::string &text, const uint8_t *data, size_t size)
{
    uint8_t *bytes = nullptr;
    size_t len = 0;
    if (KRV_Base64Decode(text.c_str(), &bytes, &len) != KRV_OK || len != size ||
        std::memcmp(bytes, data, size) != 0) {
        std::abort();
    }
    KRV_OsalMemFree(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    char *encoded = nullptr;
    uint32_t code = KRV_Base64Encode(data, size, &encoded);
    if (size == 0) {
        if (code != KRV_BASE64_ERR_PARAM) {
            std::abort();
        }
        return 0;
    }
    if (code != KRV_OK) {
        std::abort();
    }
    std::string text(encoded);
    KRV_OsalMemFree(encoded);
    if (text.size() != (size + 2) / 3 * 4 ||
        text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=") !=
            std::string::npos) {
        std::abort();
    }
    CheckDecodesTo(text, data, size);
    // Skip bytes every (data[0] % 7 + 1) characters, padding included.
    std::string spaced;
    size_t step = data[0] % 7 + 1;
    for (size_t i = 0; i < text.size(); ++i) {
        spaced += text[i];
        if (i % step == step - 1) {
            spaced += "\r\n "[i % 3];
        }
    }
    CheckDecodesTo(spaced, data, size);
    return 0;
}
