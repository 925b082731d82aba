// Fuzz target: operation sequences on memory pools, checked step by step against a model of each
// pool's free list. Creations with random names, places and sizes; takes and releases, also of
// addresses that are free already, off a unit boundary or outside; headers damaged or pinned by hand.
//
// Each operation takes three bytes: the operation, then two argument bytes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "krv_log.h"
#include "krv_mempool.h"
#include "krv_tick.h"

namespace {

void IgnoreDiagnostic(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

void Check(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

constexpr uint32_t kHead = KRV_MEMPOOL_UNIT_HEAD_SIZE;
constexpr size_t kRegion = 16384;
alignas(64) uint8_t g_region[kRegion];

struct PoolModel {
    uint32_t id;
    uintptr_t start, end;
    uint32_t unitSize, units;
    std::string name;
    std::deque<uint32_t> freeList;  // front: the next unit handed out
    std::vector<uint32_t> held;     // units handed out and not taken back
    uint32_t used = 0;

    uint8_t *Unit(uint32_t i) const { return reinterpret_cast<uint8_t *>(start) + size_t{i} * unitSize; }
};

uint32_t HeadWord(const uint8_t *unit, size_t offset)
{
    uint32_t word;
    std::memcpy(&word, unit + offset, sizeof word);
    return word;
}

void SetHeadWord(uint8_t *unit, size_t offset, uint32_t word)
{
    std::memcpy(unit + offset, &word, sizeof word);
}

// The status a creation must give, in the module's order of checks; 0 when it must succeed.
uint32_t ExpectedCreate(const std::vector<PoolModel> &pools, const std::string &name, uintptr_t start,
                        uint32_t poolSize, uint32_t unitSize)
{
    if (poolSize == 0 || unitSize > poolSize || unitSize <= kHead || poolSize % unitSize != 0 || start % 4 != 0) {
        return KRV_ERR_INVALID;
    }
    if (pools.size() >= KRV_MEMPOOL_MAX_POOLS) {
        return KRV_MEMPOOL_ERR_POOL_LIMIT;
    }
    for (const PoolModel &p : pools) {
        if (p.name == name) {
            return KRV_MEMPOOL_ERR_NAME_EXISTS;
        }
    }
    for (const PoolModel &p : pools) {
        if (start < p.end && start + poolSize > p.start) {
            return KRV_MEMPOOL_ERR_OVERLAP;
        }
    }
    return 0;
}

void Create(std::vector<PoolModel> *pools, uint8_t a, uint8_t b)
{
    const std::string name = "pool" + std::to_string(a % 40);
    const uint32_t unitSize = 50 + b % 64;
    const uint32_t units = a / 40 % 6 + (b / 64 == 3 ? 0 : 1);
    const size_t offset = (size_t{a} * 67 + b) % (kRegion - 6 * 113);
    const uintptr_t start = reinterpret_cast<uintptr_t>(g_region) + offset;
    const uint32_t poolSize = units * unitSize + (b / 64 == 2 ? 1 : 0);
    const uint32_t expected = ExpectedCreate(*pools, name, start, poolSize, unitSize);
    uint32_t id = 999;
    Check(KRV_MemPoolCreate(name.c_str(), reinterpret_cast<void *>(start), poolSize, unitSize, &id) == expected);
    if (expected != 0) {
        Check(id == 999);
        return;
    }
    Check(id == pools->size());
    PoolModel p{id, start, start + poolSize, unitSize, units, name, {}, {}};
    for (uint32_t i = 0; i < units; ++i) {
        p.freeList.push_back(i);
        Check(HeadWord(p.Unit(i), 0) == KRV_MEMPOOL_UNIT_MAGIC && HeadWord(p.Unit(i), 4) == KRV_MEMPOOL_UNIT_FREE);
    }
    pools->push_back(p);
}

// A take hands out the front unit of the free list, dropping damaged ones for good.
void Alloc(PoolModel *p)
{
    void *got = KRV_MemPoolAlloc(p->id);
    uint8_t *expected = nullptr;
    while (!p->freeList.empty() && expected == nullptr) {
        const uint32_t i = p->freeList.front();
        p->freeList.pop_front();
        ++p->used;
        if (HeadWord(p->Unit(i), 0) == KRV_MEMPOOL_UNIT_MAGIC) {
            expected = p->Unit(i) + kHead;
            p->held.push_back(i);
        }
    }
    Check(got == expected);
    Check(expected == nullptr || HeadWord(expected - kHead, 4) == KRV_MEMPOOL_UNIT_USED);
}

void Free(PoolModel *p, uint8_t a, uint8_t b)
{
    const uint32_t i = a % p->units;
    uint8_t *unit = p->Unit(i);
    const auto held = std::find(p->held.begin(), p->held.end(), i);
    switch (b % 6) {
    case 0:  // a unit handed out, or one that is free or damaged
    case 1: {
        const uint32_t magic = HeadWord(unit, 0), state = HeadWord(unit, 4);
        const uint32_t expected = magic != KRV_MEMPOOL_UNIT_MAGIC          ? KRV_MEMPOOL_ERR_UNIT_DAMAGED
                                  : state == KRV_MEMPOOL_UNIT_USED         ? 0u
                                  : state == KRV_MEMPOOL_UNIT_FREE         ? KRV_MEMPOOL_ERR_UNIT_FREE
                                  : state == KRV_MEMPOOL_UNIT_PINNED       ? KRV_MEMPOOL_ERR_UNIT_STATE
                                                                           : KRV_MEMPOOL_ERR_UNIT_DAMAGED;
        Check(KRV_MemPoolFree(p->id, unit + kHead) == expected);
        if (expected == 0) {
            Check(held != p->held.end() && HeadWord(unit, 4) == KRV_MEMPOOL_UNIT_FREE);
            p->held.erase(held);
            p->freeList.push_front(i);
            --p->used;
        }
        break;
    }
    case 2:  // off a unit boundary, inside the header or the usable part
        Check(KRV_MemPoolFree(p->id, unit + kHead + 1 + b % 3) == KRV_MEMPOOL_ERR_ADDRESS ||
              HeadWord(unit + 1 + b % 3, 0) == KRV_MEMPOOL_UNIT_MAGIC);
        break;
    case 3:  // before the first usable byte or past the end
        Check(KRV_MemPoolFree(p->id, reinterpret_cast<uint8_t *>(b % 2 ? p->end : p->start + kHead - 1)) ==
              KRV_MEMPOOL_ERR_ADDRESS);
        break;
    case 4:  // damage the magic: a free unit is never handed out again, a held one never taken back
        SetHeadWord(unit, 0, HeadWord(unit, 0) ^ (1u << (b % 32)));
        break;
    default:  // pin a held unit or give it an unknown state
        if (held != p->held.end()) {
            SetHeadWord(unit, 4, b % 2 ? KRV_MEMPOOL_UNIT_PINNED : 3u + b);
        }
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool ready = KRV_LogHookReg(IgnoreDiagnostic) == 0 && KRV_TickInit() == 0;  // held for the run
    Check(ready);
    std::memset(g_region, 0, sizeof g_region);
    Check(KRV_MemPoolInit() == 0);
    std::vector<PoolModel> pools;
    for (size_t at = 0; at + 2 < size; at += 3) {
        const uint8_t op = data[at], a = data[at + 1], b = data[at + 2];
        PoolModel *p = pools.empty() ? nullptr : &pools[op / 4 % pools.size()];
        if (op % 4 == 0 || p == nullptr) {
            Create(&pools, a, b);
        } else if (op % 4 == 1) {
            Alloc(p);
        } else if (op % 4 == 2) {
            Free(p, a, b);
        } else {
            Check(KRV_MemPoolAlloc(static_cast<uint32_t>(pools.size())) == nullptr &&
                  KRV_MemPoolFree(static_cast<uint32_t>(pools.size()), g_region) == KRV_ERR_INVALID &&
                  KRV_MemUnUsedUnitGet(static_cast<uint32_t>(pools.size())) == 0);
        }
        for (const PoolModel &q : pools) {
            Check(KRV_MemUnUsedUnitGet(q.id) == q.units - q.used);
        }
    }
    Check(KRV_MemPoolFini() == 0);
    return 0;
}
