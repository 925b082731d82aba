// The heap block of KRV_OsalMemAlloc, defined once and inline.
//
// KRV_OsalMemAlloc and KRV_OsalMemFree are these two functions. Library code that allocates in
// bulk (the JSON parser makes two or three blocks per value) calls them directly, which saves the
// exported call and its PLT hop per block; the blocks are the same either way and callers release
// them with KRV_OsalMemFree.
#ifndef KRV_OSAL_MEM_H
#define KRV_OSAL_MEM_H

#include <cstdint>
#include <cstdlib>

namespace krv {

// Every block is preceded by one word holding the byte count obtained from malloc: size + 8.
constexpr uint64_t kMemHeaderSize = 8;
// 2^64 - 9: a larger size would wrap when the header is added.
constexpr uint64_t kMemMaxSize = UINT64_MAX - kMemHeaderSize;

/* Returns size bytes behind the header word, or null for 0, an oversize or a refusal of malloc. */
inline void *OsalMemAlloc(uint64_t size)
{
    if (size == 0 || size > kMemMaxSize) {
        return nullptr;
    }
    auto *block = static_cast<uint64_t *>(std::malloc(size + kMemHeaderSize));
    if (block == nullptr) {
        return nullptr;
    }
    block[0] = size + kMemHeaderSize;
    return block + 1;
}

/* Addresses up to 8 cannot come from OsalMemAlloc; they are ignored rather than corrupting the heap. */
inline void OsalMemFree(void *ptr)
{
    if (reinterpret_cast<uintptr_t>(ptr) > kMemHeaderSize) {
        std::free(static_cast<uint64_t *>(ptr) - 1);
    }
}

}  // namespace krv

#endif  // KRV_OSAL_MEM_H
