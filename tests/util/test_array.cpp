// Suffix-array sort: results against brute force and a linear-time checker, in 32-bit and 64-bit
// words, on inputs that reach every kind of level; argument refusals; running out of memory at every
// allocation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "krv_array.h"
#include "krv_log.h"
#include "krv_status.h"
#include "support/krv_sa_check.h"
#include "support/krv_test_support.h"
#include "util/krv_array_sais.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes ToBytes(const std::string &s) { return Bytes(s.begin(), s.end()); }

// The suffix array by sorting the suffixes themselves (a proper prefix sorts first).
std::vector<size_t> BruteForce(const Bytes &s)
{
    std::vector<size_t> sa(s.size());
    std::iota(sa.begin(), sa.end(), 0);
    std::sort(sa.begin(), sa.end(), [&](size_t a, size_t b) {
        return std::lexicographical_compare(s.begin() + a, s.end(), s.begin() + b, s.end());
    });
    return sa;
}

bool IsSuffixArray(const Bytes &s, const std::vector<size_t> &sa)
{
    return sa.size() == s.size() && krvtest::IsSuffixArray(s.data(), s.size(), sa.data());
}

std::vector<size_t> Sort(const Bytes &s, uint32_t *status)
{
    std::vector<size_t> sa(s.size(), 0);
    *status = KRV_ArraySaSort(s.data(), s.size(), sa.data(), sa.size());
    return sa;
}

// The construction in 64-bit words, which KRV_ArraySaSort keeps for inputs of 2^31 bytes and more.
std::vector<size_t> SortWide(const Bytes &s)
{
    std::vector<int64_t> work(2 * (s.size() + 1));
    EXPECT_EQ(KRV_OK, krv::array::SaisBuild<int64_t>(s.data(), static_cast<int64_t>(s.size()), work.data()));
    return std::vector<size_t>(work.begin() + 1, work.begin() + 1 + static_cast<std::ptrdiff_t>(s.size()));
}

Bytes RandomBytes(size_t len, uint32_t seed)
{
    std::mt19937 rng(seed);
    Bytes s(len);
    for (uint8_t &byte : s) {
        byte = static_cast<uint8_t>(rng());
    }
    return s;
}

// a b b for random a and b: a's LMS substrings are nearly all unique and b's all occur twice, so
// the reduced strings are named sparsely (most symbols unique) and still recurse, level after level.
Bytes OnceThenTwice(size_t once, size_t twice, uint32_t seed)
{
    Bytes s = RandomBytes(once, seed);
    const Bytes b = RandomBytes(twice, seed + 1);
    s.insert(s.end(), b.begin(), b.end());
    s.insert(s.end(), b.begin(), b.end());
    return s;
}

// The Fibonacci word over {a, b} of at least len bytes, cut to len: each level of the reduction
// sees the same structure again, so it recurses about log(len) times.
Bytes Fibonacci(size_t len)
{
    std::string prev = "a";
    std::string cur = "ab";
    while (cur.size() < len) {
        std::string next = cur + prev;
        prev = std::move(cur);
        cur = std::move(next);
    }
    return ToBytes(cur.substr(0, len));
}

TEST(ArraySaSort, KnownArrays)
{
    struct Case {
        Bytes in;
        std::vector<size_t> want;
    };
    const Case cases[] = {
        {{'x'}, {0}},
        {{'a', 'b'}, {0, 1}},
        {{'b', 'a'}, {1, 0}},
        {{'a', 'a'}, {1, 0}},
        {ToBytes("banana"), {5, 3, 1, 0, 4, 2}},
        {Bytes(8, 'q'), {7, 6, 5, 4, 3, 2, 1, 0}},
        {{0xFF, 0x00, 0x80, 0x00, 0xFF}, {1, 3, 2, 4, 0}},  // 0x00 smallest, 0xFF largest
        {ToBytes("abababab"), {6, 4, 2, 0, 7, 5, 3, 1}},
    };
    for (const Case &c : cases) {
        uint32_t status = 1;
        EXPECT_EQ(c.want, Sort(c.in, &status)) << std::string(c.in.begin(), c.in.end());
        EXPECT_EQ(KRV_OK, status);
    }
}

TEST(ArraySaSort, MatchesBruteForceInBothWordWidths)
{
    std::vector<Bytes> inputs;
    std::mt19937 rng(20240601);
    for (unsigned alphabet : {1u, 2u, 4u, 256u}) {
        for (int round = 0; round < 200; ++round) {
            Bytes s(1 + rng() % 128);
            for (uint8_t &byte : s) {
                byte = static_cast<uint8_t>(alphabet == 256 ? rng() : 'a' + rng() % alphabet);
            }
            inputs.push_back(s);
        }
    }
    // Random bytes name their first reduced string sparsely without recursing further; these recurse
    // through sparse levels down to a few symbols.
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        inputs.push_back(OnceThenTwice(30 * seed, 10 * seed, seed));
    }
    inputs.push_back(OnceThenTwice(3000, 1000, 99));
    for (const Bytes &s : inputs) {
        const std::vector<size_t> want = BruteForce(s);
        uint32_t status = 1;
        ASSERT_EQ(want, Sort(s, &status)) << std::string(s.begin(), s.end());
        ASSERT_EQ(KRV_OK, status);
        ASSERT_EQ(want, SortWide(s)) << std::string(s.begin(), s.end());
    }
}

TEST(ArraySaSort, LongInputsReachEveryKindOfLevel)
{
    // Random bytes, twice over: a first reduced string of over 65,536 names, all repeated, named
    // densely with prefetched bucket pointers. Then sparse levels that recurse, and deep recursion.
    const Bytes half = RandomBytes(240000, 5);
    Bytes twice = half;
    twice.insert(twice.end(), half.begin(), half.end());
    std::vector<Bytes> inputs = {twice, OnceThenTwice(100000, 40000, 6), RandomBytes(100000, 7), Fibonacci(50000),
                                 Fibonacci(29989)};
    std::string periodic;
    for (const char *unit : {"ab", "aab", "abcabd", "a"}) {
        periodic.clear();
        while (periodic.size() < 30000) {
            periodic += unit;
        }
        inputs.push_back(ToBytes(periodic));
    }
    Bytes noisy = Fibonacci(40000);
    std::mt19937 rng(7);
    for (int i = 0; i < 20; ++i) {
        noisy[rng() % noisy.size()] = 'c';  // a few breaks in the pattern
    }
    inputs.push_back(noisy);
    for (const Bytes &s : inputs) {
        uint32_t status = 1;
        const std::vector<size_t> sa = Sort(s, &status);
        EXPECT_TRUE(IsSuffixArray(s, sa)) << "length " << s.size();
        EXPECT_EQ(KRV_OK, status);
        EXPECT_EQ(sa, SortWide(s)) << "length " << s.size();
    }
    EXPECT_FALSE(IsSuffixArray(ToBytes("abc"), {0, 2, 1})) << "the checker itself";
}

// The hook runs while mallocs fail, so it keeps its lines in fixed storage.
char g_lines[8][256];
unsigned g_count;
void Record(uint32_t code, uint32_t level, const char *file, uint32_t line, const char *msg)
{
    if (g_count < 8) {
        std::snprintf(g_lines[g_count++], sizeof(g_lines[0]), "%u %u %s %s", code, level, file, msg);
    }
    (void)line;
}

struct HookGuard {
    HookGuard()
    {
        g_count = 0;
        EXPECT_EQ(0u, KRV_LogHookReg(Record));
    }
    ~HookGuard() { KRV_LogHookUnReg(); }
    std::vector<std::string> Lines() const { return std::vector<std::string>(g_lines, g_lines + g_count); }
};

TEST(ArraySaSort, RefusedArgumentsLeaveTheArrayAlone)
{
    HookGuard hook;
    const Bytes s = ToBytes("abc");
    std::vector<size_t> sa(4, 77);
    EXPECT_EQ(KRV_ERR_INVALID, KRV_ArraySaSort(s.data(), 3, sa.data(), 4));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_ArraySaSort(s.data(), 0, sa.data(), 0));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_ArraySaSort(nullptr, 3, sa.data(), 3));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_ArraySaSort(s.data(), 3, nullptr, 3));
    EXPECT_EQ(std::vector<size_t>(4, 77), sa);
    EXPECT_EQ((std::vector<std::string>{"22 2 krv_array input para is err, len is 3, saLen is 4",
                                        "22 2 krv_array input para is err, len is 0, saLen is 0",
                                        "22 2 krv_array input para is err, len is 3, saLen is 3",
                                        "22 2 krv_array input para is err, len is 3, saLen is 3"}),
              hook.Lines());
}

// Refuses the first, second, ... allocation of sorting s until one run needs no refusal; returns the
// messages of the refused runs, each of which must fail with 12 and leave sa alone.
std::vector<std::string> FailEachAllocation(const Bytes &s)
{
    std::vector<std::string> messages;
    for (unsigned skip = 0;; ++skip) {
        std::vector<size_t> sa(s.size(), 77);
        HookGuard hook;
        uint32_t status;
        unsigned failed;
        {
            krvtest::AllocFailure fault(skip, 1);
            status = KRV_ArraySaSort(s.data(), s.size(), sa.data(), sa.size());
            failed = fault.Failed();
        }
        if (failed == 0) {
            EXPECT_EQ(KRV_OK, status);
            EXPECT_TRUE(IsSuffixArray(s, sa));
            return messages;
        }
        EXPECT_EQ(KRV_ERR_NOMEM, status) << "allocation " << skip;
        EXPECT_EQ(std::vector<size_t>(s.size(), 77), sa) << "allocation " << skip;
        const std::vector<std::string> lines = hook.Lines();
        EXPECT_EQ(1u, lines.size()) << "allocation " << skip;
        messages.insert(messages.end(), lines.begin(), lines.end());
    }
}

TEST(ArraySaSort, EveryRefusedAllocationFailsCleanly)
{
    {
        // Areas whose size does not fit in 64 bits are refused before any allocation (a wrapped size
        // would be small enough to succeed and then be overrun); nothing is read or written.
        HookGuard hook;
        const uint8_t byte = 'a';
        size_t untouched = 77;
        uint32_t status[2];
        unsigned refused;
        {
            krvtest::AllocFailure fault(0);  // any allocation attempt would show here
            status[0] = KRV_ArraySaSort(&byte, SIZE_MAX, &untouched, SIZE_MAX);
            status[1] = KRV_ArraySaSort(&byte, size_t{1} << 62, &untouched, size_t{1} << 62);
            refused = fault.Failed();
        }
        EXPECT_EQ(KRV_ERR_NOMEM, status[0]);
        EXPECT_EQ(KRV_ERR_NOMEM, status[1]);
        EXPECT_EQ(0u, refused);
        EXPECT_EQ(77u, untouched);
        EXPECT_EQ((std::vector<std::string>{"12 2 krv_array malloc err, size is 18446744073709551615",
                                            "12 2 krv_array malloc err, size is 9223372036854775810"}),
                  hook.Lines());
    }

    // The working area (in words), the byte level's buckets, then the 3-name reduced string's.
    EXPECT_EQ((std::vector<std::string>{"12 2 krv_array malloc err, size is 18",
                                        "12 2 krv_array malloc error, size is 514",
                                        "12 2 krv_array malloc error, size is 6"}),
              FailEachAllocation(ToBytes("abababab")));

    // Sparsely named levels, each with twice its name count: 1324, 425, 139, 46 and 16 names.
    EXPECT_EQ((std::vector<std::string>{"12 2 krv_array malloc err, size is 10002",
                                        "12 2 krv_array malloc error, size is 514",
                                        "12 2 krv_array malloc error, size is 2648",
                                        "12 2 krv_array malloc error, size is 850",
                                        "12 2 krv_array malloc error, size is 278",
                                        "12 2 krv_array malloc error, size is 92",
                                        "12 2 krv_array malloc error, size is 32"}),
              FailEachAllocation(OnceThenTwice(3000, 1000, 99)));

    // Each level of the Fibonacci word reduces to the same four names again, one bucket area each.
    std::vector<std::string> deep = {"12 2 krv_array malloc err, size is 10002",
                                     "12 2 krv_array malloc error, size is 514"};
    deep.resize(9, "12 2 krv_array malloc error, size is 8");
    EXPECT_EQ(deep, FailEachAllocation(Fibonacci(5000)));
}

}  // namespace
