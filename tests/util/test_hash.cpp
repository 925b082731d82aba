// Hash table: random operation sequences against a model (contents, iteration order, successors,
// ownership of copied keys and values), failed copies and allocations, refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "krv_hash.h"
#include "krv_status.h"
#include "support/krv_hash_model.h"
#include "support/krv_test_support.h"

namespace {

using namespace krvtest::hashmodel;

std::vector<uint64_t> g_keyFrees;  // words given to the plain counting key release

void CountKeyFree(uint64_t w) { g_keyFrees.push_back(w); }
uint64_t ModHash(uint64_t key, uint64_t bucketSize) { return key % bucketSize; }
bool WordEqual(uint64_t stored, uint64_t key) { return stored == key; }

const KrvHashElemFuncs kNoFuncs = {nullptr, nullptr};

TEST(Hash, RandomOperationsMatchAModelWithClusteredKeys)
{
    ResetOwnership();
    std::mt19937 rng(4242);
    for (uint64_t buckets : {1u, 2u, 3u, 7u, 64u}) {
        KrvHashTable *t = KRV_HashCreate(buckets, ClusterHash, TextEqual, &kKeyFuncs, &kValueFuncs);
        ASSERT_NE(nullptr, t);
        Model model(buckets);
        for (int step = 0; step < 4000; ++step) {
            std::string key = (rng() % 25 == 0 ? "!" : "k") + std::to_string(rng() % 40);
            std::string value = "v" + std::to_string(step);
            bool present = model.Has(key);
            bool inRange = key[0] != '!';
            switch (rng() % 8) {
            case 0:
            case 1:
            case 2:
            case 3: {
                bool put = rng() % 2 != 0;
                uint32_t expected = !inRange ? KRV_ERR_RANGE : present && !put ? KRV_ERR_FAILED : KRV_OK;
                uint32_t rc = put ? KRV_HashPut(t, Word(key.c_str()), Word(value.c_str()))
                                  : KRV_HashInsert(t, Word(key.c_str()), Word(value.c_str()));
                ASSERT_EQ(expected, rc) << key << (put ? " put" : " insert");
                if (rc == KRV_OK) {
                    model.Store(key, value, put);
                }
                break;
            }
            case 4: {
                std::string after = present ? model.After(key) : "";
                ASSERT_EQ(after, KeyAt(t, KRV_HashErase(t, Word(key.c_str())))) << key;
                model.Erase(key);
                break;
            }
            case 5: {
                KrvHashNode *it = KRV_HashFind(t, Word(key.c_str()));
                uint64_t got = 0;
                ASSERT_EQ(present ? KRV_OK : KRV_ERR_FAILED, KRV_HashAt(t, Word(key.c_str()), &got));
                ASSERT_EQ(present ? key : "", KeyAt(t, it));
                if (present) {
                    ASSERT_EQ(model.ValueOf(key), Text(got));
                    ASSERT_EQ(got, KRV_HashIterValue(t, it));
                } else {
                    ASSERT_EQ(0u, got);
                }
                break;
            }
            case 6:
                ASSERT_EQ(model.Expected(), Walk(t));
                break;
            default:
                if (rng() % 50 == 0) {
                    KRV_HashClear(t);
                    model.Clear();
                }
                break;
            }
            ASSERT_EQ(model.Size(), KRV_HashCountGet(t));
            ASSERT_EQ(2 * model.Size(), g_live.size()) << "one key and one value copy per element";
        }
        ASSERT_EQ(model.Expected(), Walk(t));
        KRV_HashDestroy(t);
        EXPECT_TRUE(g_live.empty()) << g_live.size() << " copies leaked";
        EXPECT_EQ(0u, g_foreignFrees);
    }
}

TEST(Hash, FailedCopiesAndAllocationsChangeNothing)
{
    ResetOwnership();
    KrvHashTable *t = KRV_HashCreate(3, ClusterHash, TextEqual, &kKeyFuncs, &kValueFuncs);
    ASSERT_NE(nullptr, t);
    ASSERT_EQ(KRV_OK, KRV_HashInsert(t, Word("a"), Word("1")));
    g_failKeyDup = true;
    EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashInsert(t, Word("b"), Word("2")));
    EXPECT_EQ(KRV_OK, KRV_HashPut(t, Word("a"), Word("3"))) << "a present key is not copied again";
    g_failKeyDup = false;
    g_failValueDup = true;
    EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashInsert(t, Word("b"), Word("2")));
    EXPECT_EQ(KRV_ERR_FAILED, KRV_HashPut(t, Word("a"), Word("4")));
    g_failValueDup = false;
    {
        krvtest::AllocFailure fault(0);
        EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashPut(t, Word("c"), Word("5")));
        EXPECT_EQ(nullptr, KRV_HashCreate(8, ModHash, WordEqual, &kNoFuncs, &kNoFuncs));
    }
    EXPECT_EQ((std::vector<std::string>{"a=3"}), Walk(t));
    EXPECT_EQ(2u, g_live.size());
    KRV_HashDestroy(t);
    EXPECT_TRUE(g_live.empty() && g_foreignFrees == 0);

    // Without a key copy, a failed value copy hands the caller's own key to the key release.
    g_keyFrees.clear();
    const KrvHashElemFuncs keyFreeOnly = {nullptr, CountKeyFree};
    t = KRV_HashCreate(3, ModHash, WordEqual, &keyFreeOnly, &kValueFuncs);
    ASSERT_NE(nullptr, t);
    g_failValueDup = true;
    EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashInsert(t, 7, Word("x")));
    g_failValueDup = false;
    ASSERT_EQ(KRV_OK, KRV_HashInsert(t, 8, Word("y")));
    EXPECT_EQ(1u, KRV_HashCountGet(t));
    KRV_HashDestroy(t);
    EXPECT_EQ((std::vector<uint64_t>{7, 8}), g_keyFrees);
    EXPECT_TRUE(g_live.empty());
}

TEST(Hash, RefusalsNullArgumentsAndTheEndIterator)
{
    EXPECT_EQ(nullptr, KRV_HashCreate(0, ModHash, WordEqual, &kNoFuncs, &kNoFuncs));
    EXPECT_EQ(nullptr, KRV_HashCreate(4, nullptr, WordEqual, &kNoFuncs, &kNoFuncs));
    EXPECT_EQ(nullptr, KRV_HashCreate(4, ModHash, nullptr, &kNoFuncs, &kNoFuncs));
    EXPECT_EQ(nullptr, KRV_HashCreate(4, ModHash, WordEqual, nullptr, &kNoFuncs));
    EXPECT_EQ(nullptr, KRV_HashCreate(4, ModHash, WordEqual, &kNoFuncs, nullptr));
    // Eight header words and bucketSize + 1 heads of three words must not overflow; the largest size that
    // fits is asked of the allocator, which refuses it.
    const uint64_t maxBuckets = (UINT64_MAX - 64) / 24 - 1;
    for (auto [buckets, asked] : std::vector<std::pair<uint64_t, unsigned>>{
             {UINT64_MAX, 0}, {maxBuckets + 1, 0}, {maxBuckets, 1}}) {
        krvtest::AllocFailure fault(0, 1);
        EXPECT_EQ(nullptr, KRV_HashCreate(buckets, ModHash, WordEqual, &kNoFuncs, &kNoFuncs));
        EXPECT_EQ(asked, fault.Failed()) << buckets;
    }

    uint64_t value = 3;
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashInsert(nullptr, 1, 1));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashPut(nullptr, 1, 1));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashAt(nullptr, 1, &value));
    EXPECT_TRUE(KRV_HashErase(nullptr, 1) == nullptr && KRV_HashFind(nullptr, 1) == nullptr &&
                KRV_HashIterBegin(nullptr) == nullptr && KRV_HashIterEnd(nullptr) == nullptr);
    EXPECT_EQ(0u, KRV_HashCountGet(nullptr));
    KRV_HashClear(nullptr);
    KRV_HashDestroy(nullptr);

    // A hash at or beyond bucketSize: unstorable, and absent for every lookup.
    KrvHashTable *t = KRV_HashCreate(3, [](uint64_t k, uint64_t n) { return k == 1 ? n : 0; }, WordEqual,
                                     &kNoFuncs, &kNoFuncs);
    ASSERT_NE(nullptr, t);
    KrvHashNode *end = KRV_HashIterEnd(t);
    EXPECT_EQ(end, KRV_HashIterBegin(t));
    EXPECT_EQ(KRV_ERR_RANGE, KRV_HashInsert(t, 1, 1));
    EXPECT_EQ(KRV_ERR_RANGE, KRV_HashPut(t, 1, 1));
    EXPECT_TRUE(KRV_HashFind(t, 1) == end && KRV_HashErase(t, 1) == end);
    EXPECT_EQ(KRV_ERR_FAILED, KRV_HashAt(t, 1, &value));
    EXPECT_EQ(3u, value);
    ASSERT_EQ(KRV_OK, KRV_HashInsert(t, 2, 5));
    KrvHashNode *it = KRV_HashFind(t, 2);
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashAt(t, 2, nullptr));
    EXPECT_TRUE(KRV_HashIterNext(nullptr, it) == nullptr && KRV_HashIterNext(t, nullptr) == nullptr);
    EXPECT_TRUE(KRV_HashIterKey(nullptr, it) == 0 && KRV_HashIterValue(t, nullptr) == 0);
    EXPECT_TRUE(KRV_HashIterNext(t, it) == end && KRV_HashIterNext(t, end) == end);
    EXPECT_TRUE(KRV_HashIterKey(t, end) == 0 && KRV_HashIterValue(t, end) == 0);
    KRV_HashDestroy(t);
}

}  // namespace
