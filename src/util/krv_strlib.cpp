// Small text helpers: digit tests, number parsing, stripping of surrounding spaces.
#include "krv_strlib.h"

#include <cassert>
#include <cstring>
#include <type_traits>

#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"

namespace {

constexpr char kKrvSource[] = "krv_strlib";

// Only the space counts as blank; tabs and line breaks are content.
constexpr char kBlank = ' ';

}  // namespace

extern "C" {

bool KRV_StrIsDecDigit(const char *str)
{
    if (str == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "input invalid");
        return false;
    }
    for (; *str != '\0'; ++str) {
        if (*str < '0' || *str > '9') {
            return false;
        }
    }
    return true;
}

uint32_t KRV_StrlibHexCharToUint8(char ch, uint8_t *value)
{
    assert(value != nullptr);
    if (ch >= '0' && ch <= '9') {
        *value = static_cast<uint8_t>(ch - '0');
    } else if (ch >= 'a' && ch <= 'f') {
        *value = static_cast<uint8_t>(ch - 'a' + 10);
    } else if (ch >= 'A' && ch <= 'F') {
        *value = static_cast<uint8_t>(ch - 'A' + 10);
    } else {
        KRV_DIAG(KRV_ERR_INVALID, "input invalid. ch = %c", ch);
        return KRV_ERR_INVALID;
    }
    return KRV_OK;
}

uint32_t KRV_StrlibStrToUint64(const char *str, uint64_t *value)
{
    if (str == nullptr || value == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "input invalid");
        return KRV_ERR_INVALID;
    }
    static_assert(std::is_same_v<uint64_t, unsigned long>, "%lu converts straight into the caller's word");
    if (krv::sscanf_s(str, "%lu", value) != 1) {
        KRV_DIAG(KRV_ERR_FAILED, "sscanf failed");
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

uint32_t KRV_StrlibSpaceDelete(char *str, size_t len)
{
    if (str == nullptr || len == 0) {
        KRV_DIAG(KRV_ERR_INVALID, "Input Invalid. len = %zu", len);
        return KRV_ERR_INVALID;
    }
    size_t lead = 0;
    while (lead < len && str[lead] == kBlank) {
        ++lead;
    }
    if (lead > 0) {
        std::memmove(str, str + lead, len - lead + 1);  // the terminator moves too
    }
    size_t end = std::strlen(str);
    while (end > 0 && str[end - 1] == kBlank) {
        --end;
    }
    str[end] = '\0';
    return KRV_OK;
}

uint32_t KRV_StrlibSpaceDeleteEx(const char *str, size_t len, char *out, size_t *outLen)
{
    if (str == nullptr || out == nullptr || outLen == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "Input Invalid. len = %zu", len);
        return KRV_ERR_INVALID;
    }
    while (len > 0 && str[len - 1] == kBlank) {
        --len;
    }
    size_t lead = 0;
    while (lead < len && str[lead] == kBlank) {
        ++lead;
    }
    // out may be str itself, hence a move.
    std::memmove(out, str + lead, len - lead);
    out[len - lead] = '\0';
    *outLen = len - lead;
    return KRV_OK;
}

}  // extern "C"
