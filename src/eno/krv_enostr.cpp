// Composed error codes: errno translation, bit accessors and the table of error-string functions.
#include <cstring>

#include "eno/krv_enocode.h"
#include "eno/krv_enolock.h"
#include "krv_osaleno.h"
#include "krv_status.h"

namespace {

using krv::eno::kByteMask;
using krv::eno::kModuleShift;

constexpr int64_t kErrnoAgain = 11;
constexpr int64_t kErrnoNeverTranslated = 41;
constexpr char kUnknownText[] = "Unknown";

// The translation of an errno value is its index here. 58 is absent, so values above it shift down
// by one; entry 0 is outside every search, so 0 translates to "unknown".
constexpr int32_t kErrnoTable[] = {
    0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,  16,  17,  18,  19,
    20,  21,  22,  23,  24,  25,  26,  27,  28,  29,  30,  31,  32,  33,  34,  35,  36,  37,  38,  39,
    40,  41,  42,  43,  44,  45,  46,  47,  48,  49,  50,  51,  52,  53,  54,  55,  56,  57,  59,  60,
    61,  62,  63,  64,  65,  66,  67,  68,  69,  70,  71,  72,  73,  74,  75,  76,  77,  78,  79,  80,
    81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  91,  92,  93,  94,  95,  96,  97,  98,  99,  100,
    101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120,
    121, 122, 123, 124,
};
constexpr int32_t kErrnoTableSize = static_cast<int32_t>(sizeof(kErrnoTable) / sizeof(kErrnoTable[0]));
static_assert(kErrnoTableSize == 124, "the translation table has 124 entries");

// One module family: its name (NUL-padded), its module range and the registered string function.
struct KrvEnoModuleRow {
    char name[8];
    uint32_t firstModule;
    uint32_t lastModule;
    KrvEnoErrorStrFunc strFunc;
};

// Fixed for the life of the process: rows are never added, renamed or re-ranged. Only strFunc
// changes, under the error-module mutex.
KrvEnoModuleRow g_moduleRows[] = {
    {"KORALIN", 0, 9, nullptr},
    {"ZUD", 10, 19, nullptr},
    {"FENRO", 20, 29, nullptr},
    {"WOQ", 30, 39, nullptr},
    {"YIM", 40, 49, nullptr},
};

// Binary search of entries 1..123; returns the index of err, or -1.
int32_t ErrnoBinarySearch(int64_t err)
{
    int32_t low = 1;
    int32_t high = kErrnoTableSize - 1;
    while (low <= high) {
        int32_t middle = (low + high) >> 1;
        int64_t entry = kErrnoTable[middle];
        if (entry > err) {
            high = middle - 1;
        } else if (entry < err) {
            low = middle + 1;
        } else {
            return middle;
        }
    }
    return -1;
}

// Linear scan of entries 1..123; returns the index of the first entry equal to err, or -1.
int32_t ErrnoScan(int64_t err)
{
    for (int32_t i = 1; i < kErrnoTableSize; ++i) {
        if (kErrnoTable[i] == err) {
            return i;
        }
    }
    return -1;
}

}  // namespace

extern "C" {

/* EAGAIN and 41 leave before any search; 41 reads as unknown although the table holds it. */
uint32_t KRV_OsalEnoTransfer(int64_t err)
{
    if (err == kErrnoAgain) {
        return static_cast<uint32_t>(kErrnoAgain);
    }
    if (err == kErrnoNeverTranslated) {
        return KRV_ERR_UNKNOWN;
    }
    int32_t index = ErrnoBinarySearch(err);
    if (index < 0) {
        index = ErrnoScan(err);
    }
    return index < 0 ? KRV_ERR_UNKNOWN : static_cast<uint32_t>(index);
}

uint32_t KRV_EnoErrorCodeGet(uint32_t code)
{
    return code & kByteMask;
}

uint32_t KRV_EnoErrorModuleGet(uint32_t code)
{
    return (code >> kModuleShift) & kByteMask;
}

/* Neither argument is masked and the high part must be zero: callers compare whole codes. */
bool KRV_EnoErrorCodeCheck(uint32_t code, uint32_t module, uint32_t errNo)
{
    return ((module << kModuleShift) | errNo) == code;
}

/* The string function runs with the module mutex held; it is recursive, so the function may look up
 * other codes itself. */
const char *KRV_EnoErrorStrGet(uint32_t code)
{
    KrvMutex lock = krv::eno::ModuleLock();
    uint32_t module = KRV_EnoErrorModuleGet(code);
    const char *text = kUnknownText;
    for (const KrvEnoModuleRow &row : g_moduleRows) {
        if (module >= row.firstModule && module <= row.lastModule && row.strFunc != nullptr) {
            text = row.strFunc(code);
            break;
        }
    }
    KRV_OsalMutexUnLock(lock);
    return text;
}

/* The name is compared over its own length only, so any prefix of a family's name (the empty one
 * included) selects it, provided the module range is given exactly. */
uint32_t KRV_EnoErrorStrFuncRegister(const char *name, int32_t firstModule, int32_t lastModule,
                                     KrvEnoErrorStrFunc fn)
{
    KrvMutex lock = krv::eno::ModuleLock();
    uint32_t rc = KRV_ERR_INVALID;
    if (name != nullptr) {
        size_t length = std::strlen(name);
        for (KrvEnoModuleRow &row : g_moduleRows) {
            if (std::strncmp(row.name, name, length) == 0 && static_cast<int64_t>(firstModule) == row.firstModule &&
                static_cast<int64_t>(lastModule) == row.lastModule) {
                row.strFunc = fn;
                rc = KRV_OK;
                break;
            }
        }
    }
    KRV_OsalMutexUnLock(lock);
    return rc;
}

}  // extern "C"
