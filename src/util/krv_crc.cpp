// CRC-32 update: chooses the folding engine where the processor has it, the tables otherwise.
#include "krv_crc.h"

#include "krv_status.h"
#include "log/krv_diag.h"
#include "util/krv_crc_internal.h"

namespace {
constexpr char kKrvSource[] = "krv_crc";
}  // namespace

extern "C" {

/* Bad arguments give 1, not 22: established by the first callers of this function. */
uint32_t KRV_Crc32bitMake(const uint8_t *data, uint32_t count, uint32_t *crc)
{
    if (data == nullptr || count == 0 || crc == nullptr) {
        KRV_DIAG(KRV_ERR_FAILED, "Param Invalid, count(%u)", count);
        return KRV_ERR_FAILED;
    }
    if (count >= krv::crc::kFoldMinBytes && krv::crc::FoldSupported()) {
        *crc = krv::crc::UpdateFolded(*crc, data, count);
    } else {
        *crc = krv::crc::UpdateSliced(*crc, data, count);
    }
    return KRV_OK;
}

}  // extern "C"
