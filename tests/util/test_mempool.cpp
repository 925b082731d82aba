// Memory pools through the exported functions, over a fake CPU counter so that stamps are known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "krv_mempool.h"
#include "krv_tick.h"
#include "support/krv_test_support.h"
#include "time/fake_cputick.h"
#include "time/init_sweep.h"
#include "time/krv_cputick_internal.h"
#include "util/krv_mempool_internal.h"

namespace {

using Line = std::tuple<uint32_t, uint32_t, uint32_t, std::string>;  // (code, level, line, message)

std::vector<Line> Take(krvtest::DiagCapture &diags)
{
    std::vector<Line> lines;
    for (const krvtest::Diag &d : diags.Take()) {
        if (d.file == "krv_mempool") {
            lines.emplace_back(d.code, d.level, d.line, d.msg);
        }
    }
    return lines;
}

Line Error(uint32_t code, uint32_t line, const std::string &msg) { return {code, 2, line, msg}; }

const std::string kNotInit = "krv_mempool module has not been initialized!";

// Regions for the pools, 4-byte aligned.
alignas(64) uint8_t g_region[64 * 1024];

KrvMemUnitHead Head(const void *user)
{
    KrvMemUnitHead head;
    std::memcpy(&head, static_cast<const uint8_t *>(user) - KRV_MEMPOOL_UNIT_HEAD_SIZE, sizeof head);
    return head;
}

void HeadStateSet(void *user, uint32_t state)
{
    std::memcpy(static_cast<uint8_t *>(user) - KRV_MEMPOOL_UNIT_HEAD_SIZE + 4, &state, sizeof state);
}

TEST(MemPool, WithoutTheModuleEveryCallIsRefused)
{
    krvtest::DiagCapture diags;
    uint32_t id = 0;
    EXPECT_EQ(124u, KRV_MemPoolCreate("p", g_region, 570, 57, &id));
    EXPECT_EQ(nullptr, KRV_MemPoolAlloc(0));
    EXPECT_EQ(124u, KRV_MemPoolFree(0, g_region + 56));
    EXPECT_EQ(0u, KRV_MemUnUsedUnitGet(0));
    EXPECT_EQ(0u, KRV_MemPoolFini());
    EXPECT_EQ((std::vector<Line>{Error(124, 482, kNotInit), Error(124, 526, "mempool module is not initialized!"),
                                 Error(124, 601, kNotInit), Error(124, 658, kNotInit)}),
              Take(diags));
}

TEST(MemPool, InitIsCountedAndAFailedInitLeavesNothing)
{
    krvtest::DiagCapture diags;
    krvtest::FakeCpuTick::Set(1000);  // a failing open of /proc/cpuinfo then calibrates to base 0
    std::vector<uint32_t> lines;
    krvtest::InitSweep(KRV_MemPoolInit, KRV_MemPoolFini, [&](uint32_t rc) {
        for (const Line &line : Take(diags)) {
            lines.push_back(std::get<2>(line));
            EXPECT_EQ(rc, std::get<0>(line)) << std::get<3>(line);
        }
        uint32_t id = 0;
        EXPECT_EQ(124u, KRV_MemPoolCreate("p", g_region, 570, 57, &id));
        EXPECT_EQ(nullptr, krv::cputick::StateGet()) << "the tick was released";
        Take(diags);
    });
    for (uint32_t line : {126u, 133u, 144u, 154u}) {
        EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), line)) << line;
    }

    ASSERT_EQ(0u, KRV_MemPoolInit());
    ASSERT_EQ(0u, KRV_MemPoolInit());
    EXPECT_EQ((std::vector<Line>{{0, 4, 119, "krv_mempool module has already been initialized!"}}), Take(diags));
    EXPECT_EQ(0u, KRV_MemPoolFini());
    uint32_t id = 9;
    EXPECT_EQ(0u, KRV_MemPoolCreate("still", g_region, 570, 57, &id)) << "one user is left";
    EXPECT_EQ(0u, id);
    EXPECT_EQ(0u, KRV_MemPoolFini());
    EXPECT_EQ(124u, KRV_MemPoolCreate("gone", g_region, 570, 57, &id));
    EXPECT_EQ(nullptr, krv::cputick::StateGet());
}

TEST(MemPool, CreationChecksRunInOrder)
{
    krvtest::FakeCpuTick::Set(1000);
    ASSERT_EQ(0u, KRV_MemPoolInit());
    krvtest::DiagCapture diags;
    uint32_t id = 99;
    uint8_t *r = g_region;
    auto *nearTop = reinterpret_cast<uint8_t *>(UINTPTR_MAX - 100);  // odd as well: the wrap is found first
    const std::string sizes = "The param poolSize or unitSize is invalid, poolSize:";
    const std::string nullParam = "The param pscName or pStartAddr or puiPoolId is null.";
    const std::tuple<const char *, uint8_t *, uint32_t, uint32_t, uint32_t *, Line> refusals[] = {
        {nullptr, r, 570, 57, &id, Error(22, 488, nullParam)},
        {"a", nullptr, 570, 57, &id, Error(22, 488, nullParam)},
        {"a", r, 570, 57, nullptr, Error(22, 488, nullParam)},
        {"a", r, 570, 0, &id, Error(22, 488, nullParam)},
        {"a", r, 0, 57, &id, Error(22, 420, sizes + "0, unitSize:57")},
        {"a", r, 57, 114, &id, Error(22, 420, sizes + "57, unitSize:114")},
        {"a", r, 560, 56, &id, Error(22, 420, sizes + "560, unitSize:56")},
        {"a", r, 100, 60, &id, Error(22, 420, sizes + "100, unitSize:60")},
        {"a", nearTop, 570, 57, &id, Error(22, 423, "The poolSize is too large, poolSize is 570")},
        {"a", r + 2, 570, 57, &id, Error(22, 428, "The Param startAddr must be 4 bytes aligned!")},
        {"a", reinterpret_cast<uint8_t *>(0x100000), 57 * 65536, 57, &id,
         Error(0x2130100B, 246, "Unit number[65536] overflow.")},  // the region is never touched
    };
    for (const auto &[name, start, poolSize, unitSize, out, line] : refusals) {
        EXPECT_NE(0u, KRV_MemPoolCreate(name, start, poolSize, unitSize, out));
        EXPECT_EQ(std::vector<Line>{line}, Take(diags));
    }
    {
        krvtest::AllocFailure fail(0, 1);
        EXPECT_EQ(12u, KRV_MemPoolCreate("a", r, 570, 57, &id));
    }
    EXPECT_EQ(std::vector<Line>{Error(12, 253, "alloc fail, size:160")}, Take(diags));
    EXPECT_EQ(99u, id) << "no refusal hands out an id";

    // Names: whole texts compared with the stored (at most 31 characters) ones. Regions may touch.
    const std::string longName(40, 'n');
    const std::string stored = longName.substr(0, 31);
    ASSERT_EQ(0u, KRV_MemPoolCreate(longName.c_str(), r + 1000, 600, 60, &id));  // [1000, 1600)
    EXPECT_EQ(0u, id);
    EXPECT_EQ(0x21301004u, KRV_MemPoolCreate(stored.c_str(), r + 3000, 600, 60, &id));
    EXPECT_EQ(0x21301004u, KRV_MemPoolCreate(stored.c_str(), r + 1000, 600, 60, &id)) << "names first";
    EXPECT_EQ(0x21301009u, KRV_MemPoolCreate("b", r + 404, 600, 60, &id)) << "ends inside";
    EXPECT_EQ(0x21301009u, KRV_MemPoolCreate("b", r + 1540, 600, 60, &id)) << "starts inside";
    EXPECT_EQ(0u, KRV_MemPoolCreate("b", r + 400, 600, 60, &id)) << "touches the start";
    EXPECT_EQ(0u, KRV_MemPoolCreate("c", r + 1600, 600, 60, &id)) << "touches the end";
    EXPECT_EQ(0u, KRV_MemPoolCreate(longName.c_str(), r + 2200, 600, 60, &id)) << "40 characters are not the stored 31";
    EXPECT_EQ(3u, id);
    const Line sameName = Error(0x21301004, 462, "there's same memory pool now, poolName:" + stored);
    const Line overlap = Error(0x21301009, 469, "Pool address overlapped!");
    EXPECT_EQ((std::vector<Line>{sameName, sameName, overlap, overlap}), Take(diags));
    for (uint32_t n = 4; n < 32; ++n) {
        ASSERT_EQ(0u, KRV_MemPoolCreate(("p" + std::to_string(n)).c_str(), r + 4096 + n * 60, 60, 60, &id));
    }
    EXPECT_EQ(0x21301003u, KRV_MemPoolCreate("last", r + 8192, 60, 60, &id));
    EXPECT_EQ(std::vector<Line>{Error(0x21301003, 454, "Can't create more memory pool, currentPoolNum:32")},
              Take(diags));
    EXPECT_EQ(0u, KRV_MemPoolFini());
}

TEST(MemPool, UnitsGoOutInAddressOrderAndComeBackLastInFirstOut)
{
    krvtest::FakeCpuTick::Set(1000);
    ASSERT_EQ(0u, KRV_MemPoolInit());
    uint32_t base = 0;
    ASSERT_EQ(0u, KRV_CpuTickBaseGet(&base));
    krvtest::DiagCapture diags;
    uint32_t tiny = 0, pool = 0;
    ASSERT_EQ(0u, KRV_MemPoolCreate("tiny", g_region, 570, 57, &tiny));
    std::vector<uint8_t *> units;
    for (uint8_t *u; (u = static_cast<uint8_t *>(KRV_MemPoolAlloc(tiny))) != nullptr;) {
        units.push_back(u);
    }
    ASSERT_EQ(10u, units.size()) << "10 units of 1 usable byte";
    for (size_t i = 0; i < units.size(); ++i) {
        EXPECT_EQ(g_region + 56 + 57 * i, units[i]);
    }
    EXPECT_EQ(0u, KRV_MemUnUsedUnitGet(tiny));
    EXPECT_EQ(0u, KRV_MemPoolFree(tiny, units[3]));
    EXPECT_EQ(0u, KRV_MemPoolFree(tiny, units[7]));  // headers at odd addresses work alike
    EXPECT_EQ(2u, KRV_MemUnUsedUnitGet(tiny));
    EXPECT_EQ(units[7], KRV_MemPoolAlloc(tiny));
    EXPECT_EQ(units[3], KRV_MemPoolAlloc(tiny));
    EXPECT_TRUE(Take(diags).empty()) << "an exhausted pool is no error";

    // Stamps and header contents, with the tick at 2^32 + 2 and later 2^32 + 5.
    ASSERT_EQ(0u, KRV_MemPoolCreate("pool", g_region + 1024, 120 * 4, 120, &pool));
    const uint64_t start = krvtest::FakeCpuTick::Now();
    krvtest::FakeCpuTick::Set(start + ((1ull << 32) + 2) * base);
    auto *a = static_cast<uint8_t *>(KRV_MemPoolAlloc(pool));
    ASSERT_EQ(g_region + 1024 + 56, a);
    KrvMemUnitHead h = Head(a);
    const KrvMemUnitHead zeros = {};
    EXPECT_TRUE(h.magic == KRV_MEMPOOL_UNIT_MAGIC && h.state == 1 && h.allocTickHigh == 1 && h.allocTickLow == 2 &&
                h.freeTickHigh == 0 && h.freeTickLow == 0);
    EXPECT_TRUE(std::memcmp(h.reserved1, zeros.reserved1, 24) == 0 &&
                std::memcmp(h.reserved2, zeros.reserved2, 8) == 0);
    krvtest::FakeCpuTick::Advance(3ull * base);
    EXPECT_EQ(0u, KRV_MemPoolFree(pool, a));
    h = Head(a);
    EXPECT_TRUE(h.state == 0 && h.allocTickLow == 2 && h.freeTickHigh == 1 && h.freeTickLow == 5);
    EXPECT_EQ(0x21301002u, KRV_MemPoolFree(pool, a)) << "already free";

    // Refused releases: none is logged, none changes the free list.
    a = static_cast<uint8_t *>(KRV_MemPoolAlloc(pool));
    auto *b = static_cast<uint8_t *>(KRV_MemPoolAlloc(pool));
    auto *c = static_cast<uint8_t *>(KRV_MemPoolAlloc(pool));
    const KrvMemUnitHead fakeHead = {KRV_MEMPOOL_UNIT_MAGIC, 1, {}, 0, 0, 0, 0, {}};
    std::memcpy(b + 4, &fakeHead, sizeof fakeHead);  // caller data that looks like a header
    const std::tuple<void *, uint32_t> refusals[] = {
        {a - 1, 0x2130100A},           // inside the first header
        {g_region + 1024 + 480, 0x2130100A},  // the end of the region
        {a + 4, 0x2130100A},           // no magic there, and not on a unit boundary
        {b + 4 + 56, 0x2130100A},      // a magic, but not on a unit boundary
    };
    for (auto [address, code] : refusals) {
        EXPECT_EQ(code, KRV_MemPoolFree(pool, address));
    }
    HeadStateSet(b, 2);
    EXPECT_EQ(0x21301008u, KRV_MemPoolFree(pool, b));
    HeadStateSet(b, 3);
    EXPECT_EQ(0x21301007u, KRV_MemPoolFree(pool, b));
    HeadStateSet(b, 1);
    std::memset(c - 56, 0, 4);  // damaged magic on a unit boundary
    EXPECT_EQ(0x21301007u, KRV_MemPoolFree(pool, c));
    EXPECT_EQ(1u, KRV_MemUnUsedUnitGet(pool));
    EXPECT_TRUE(Take(diags).empty());

    // A free unit whose magic is damaged is skipped, dropped for good and stays counted as used.
    EXPECT_EQ(0u, KRV_MemPoolFree(pool, a));
    EXPECT_EQ(0u, KRV_MemPoolFree(pool, b));
    std::memset(b - 56, 0xEE, 4);
    EXPECT_EQ(a, KRV_MemPoolAlloc(pool));
    EXPECT_EQ(1u, KRV_MemUnUsedUnitGet(pool));  // c (damaged, in use), b (dropped), a out; one left
    EXPECT_NE(nullptr, KRV_MemPoolAlloc(pool));
    EXPECT_EQ(nullptr, KRV_MemPoolAlloc(pool));

    EXPECT_EQ(nullptr, KRV_MemPoolAlloc(2));
    EXPECT_EQ(22u, KRV_MemPoolFree(2, a));
    EXPECT_EQ(22u, KRV_MemPoolFree(pool, nullptr));
    EXPECT_EQ(0u, KRV_MemUnUsedUnitGet(7));
    EXPECT_EQ((std::vector<Line>{Error(22, 529, "mempool alloc param is error, pooId:2"),
                                 Error(22, 607, "The param poolId or memUnit is error."),
                                 Error(22, 607, "The param poolId or memUnit is error."),
                                 Error(22, 655, "The param poolId[7] is error.")}),
              Take(diags));
    EXPECT_EQ(0u, KRV_MemPoolFini());
}

// The interleaving that breaks a free list whose head is swapped as a bare index: thread A reads
// head 0 and its successor 1; thread B takes 0 and 1 and gives 0 back; A's swap must now fail,
// or the list would start at 1, which B holds.
TEST(MemPoolFreeList, AStaleViewOfAReturnedHeadCannotTakeIt)
{
    KrvMemUnitEntry table[3] = {};
    KrvMemPoolDesc pool = {};
    pool.unitTable = table;
    pool.freeList = kKrvMemNoUnit;
    for (uint32_t index : {2u, 1u, 0u}) {
        krv::mempool::FreeListPush(&pool, index);
    }
    krv::mempool::FreeListView stale = krv::mempool::FreeListRead(&pool);
    ASSERT_EQ(0u, krv::mempool::FreeListHead(stale.word));
    ASSERT_EQ(1u, stale.next);
    uint32_t first = 9, second = 9;
    ASSERT_TRUE(krv::mempool::FreeListPop(&pool, &first));
    ASSERT_TRUE(krv::mempool::FreeListPop(&pool, &second));
    krv::mempool::FreeListPush(&pool, first);
    EXPECT_EQ(0u, krv::mempool::FreeListHead(pool.freeList));
    EXPECT_FALSE(krv::mempool::FreeListTake(&pool, &stale));
    EXPECT_EQ(2u, stale.next) << "the view is read afresh";
    EXPECT_TRUE(krv::mempool::FreeListTake(&pool, &stale));
    uint32_t last = 9;
    EXPECT_TRUE(krv::mempool::FreeListPop(&pool, &last));
    EXPECT_EQ(2u, last) << "unit 1 is still held and never handed out";
    EXPECT_FALSE(krv::mempool::FreeListPop(&pool, &last));
}

}  // namespace
