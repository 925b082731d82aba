// Hash table: random operation sequences against a model, ownership of copied keys and values, the
// iteration order, refusals and allocation failure.
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

TEST(Hash, IterationOrderAndSuccessors)
{
    KrvHashTable *t = KRV_HashCreate(4, ModHash, WordEqual, &kNoFuncs, &kNoFuncs);
    ASSERT_NE(nullptr, t);
    EXPECT_EQ(KRV_HashIterEnd(t), KRV_HashIterBegin(t));
    for (uint64_t k : {5, 1, 4, 9, 2}) {
        ASSERT_EQ(KRV_OK, KRV_HashInsert(t, k, k * 10));
    }
    EXPECT_EQ(KRV_OK, KRV_HashPut(t, 1, 11));  // replaced in place
    std::vector<std::pair<uint64_t, uint64_t>> seen;
    for (KrvHashNode *it = KRV_HashIterBegin(t); it != KRV_HashIterEnd(t); it = KRV_HashIterNext(t, it)) {
        seen.emplace_back(KRV_HashIterKey(t, it), KRV_HashIterValue(t, it));
    }
    EXPECT_EQ((std::vector<std::pair<uint64_t, uint64_t>>{{4, 40}, {5, 50}, {1, 11}, {9, 90}, {2, 20}}), seen);
    KrvHashNode *end = KRV_HashIterEnd(t);
    EXPECT_EQ(end, KRV_HashIterNext(t, end));
    EXPECT_EQ(0u, KRV_HashIterKey(t, end));
    EXPECT_EQ(0u, KRV_HashIterValue(t, end));
    EXPECT_EQ(2u, KRV_HashIterKey(t, KRV_HashErase(t, 9)));   // next bucket's front
    EXPECT_EQ(1u, KRV_HashIterKey(t, KRV_HashErase(t, 5)));  // same bucket's next
    EXPECT_EQ(end, KRV_HashErase(t, 2));                     // last of the last non-empty bucket
    EXPECT_EQ(end, KRV_HashErase(t, 77));                    // absent
    uint64_t value = 3;
    EXPECT_EQ(KRV_ERR_FAILED, KRV_HashAt(t, 5, &value));
    EXPECT_EQ(3u, value);
    EXPECT_EQ(2u, KRV_HashCountGet(t));
    KRV_HashDestroy(t);
}

TEST(Hash, FailedCopiesChangeNothingAndReleaseTheKeyAsEstablished)
{
    ResetOwnership();
    g_keyFrees.clear();
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
    EXPECT_EQ(KRV_ERR_FAILED, KRV_HashInsert(t, Word("a"), Word("4")));
    g_failValueDup = false;
    EXPECT_EQ((std::vector<std::string>{"a=3"}), Walk(t));
    EXPECT_EQ(2u, g_live.size());
    EXPECT_EQ(0u, g_foreignFrees);
    KRV_HashDestroy(t);
    EXPECT_TRUE(g_live.empty());

    // Without a key copy, a failed value copy hands the caller's own key to the key release.
    const KrvHashElemFuncs keyFreeOnly = {nullptr, CountKeyFree};
    t = KRV_HashCreate(3, ModHash, WordEqual, &keyFreeOnly, &kValueFuncs);
    ASSERT_NE(nullptr, t);
    g_failValueDup = true;
    EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashInsert(t, 7, Word("x")));
    g_failValueDup = false;
    EXPECT_EQ((std::vector<uint64_t>{7}), g_keyFrees);
    EXPECT_EQ(0u, KRV_HashCountGet(t));
    ASSERT_EQ(KRV_OK, KRV_HashInsert(t, 8, Word("y")));
    KRV_HashDestroy(t);
    EXPECT_EQ((std::vector<uint64_t>{7, 8}), g_keyFrees);
    EXPECT_TRUE(g_live.empty());
}

TEST(Hash, RefusalsAndNullArguments)
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

    uint64_t value = 0;
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashInsert(nullptr, 1, 1));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashPut(nullptr, 1, 1));
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashAt(nullptr, 1, &value));
    EXPECT_EQ(nullptr, KRV_HashErase(nullptr, 1));
    EXPECT_EQ(nullptr, KRV_HashFind(nullptr, 1));
    EXPECT_EQ(nullptr, KRV_HashIterBegin(nullptr));
    EXPECT_EQ(nullptr, KRV_HashIterEnd(nullptr));
    EXPECT_EQ(0u, KRV_HashCountGet(nullptr));
    KRV_HashClear(nullptr);
    KRV_HashDestroy(nullptr);

    KrvHashTable *t = KRV_HashCreate(2, ModHash, WordEqual, &kNoFuncs, &kNoFuncs);
    ASSERT_NE(nullptr, t);
    ASSERT_EQ(KRV_OK, KRV_HashInsert(t, 1, 5));
    KrvHashNode *it = KRV_HashFind(t, 1);
    EXPECT_EQ(KRV_ERR_INVALID, KRV_HashAt(t, 1, nullptr));
    EXPECT_EQ(nullptr, KRV_HashIterNext(nullptr, it));
    EXPECT_EQ(nullptr, KRV_HashIterNext(t, nullptr));
    EXPECT_EQ(0u, KRV_HashIterKey(nullptr, it));
    EXPECT_EQ(0u, KRV_HashIterValue(t, nullptr));
    // A hash at or beyond bucketSize: unstorable, and absent for every lookup.
    KrvHashTable *off = KRV_HashCreate(3, [](uint64_t, uint64_t n) { return n; }, WordEqual, &kNoFuncs, &kNoFuncs);
    ASSERT_NE(nullptr, off);
    EXPECT_EQ(KRV_ERR_RANGE, KRV_HashInsert(off, 1, 1));
    EXPECT_EQ(KRV_ERR_RANGE, KRV_HashPut(off, 1, 1));
    EXPECT_EQ(KRV_HashIterEnd(off), KRV_HashFind(off, 1));
    EXPECT_EQ(KRV_HashIterEnd(off), KRV_HashErase(off, 1));
    EXPECT_EQ(KRV_ERR_FAILED, KRV_HashAt(off, 1, &value));
    KRV_HashDestroy(off);
    KRV_HashDestroy(t);
}

TEST(Hash, AllocationFailureLeavesTheTableAsItWas)
{
    {
        krvtest::AllocFailure fault(0);
        EXPECT_EQ(nullptr, KRV_HashCreate(8, ModHash, WordEqual, &kNoFuncs, &kNoFuncs));
        EXPECT_EQ(1u, fault.Failed());
    }
    ResetOwnership();
    KrvHashTable *t = KRV_HashCreate(8, ModHash, WordEqual, &kNoFuncs, &kValueFuncs);
    ASSERT_NE(nullptr, t);
    ASSERT_EQ(KRV_OK, KRV_HashInsert(t, 1, Word("one")));
    {
        krvtest::AllocFailure fault(0);
        EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashInsert(t, 2, Word("two")));
        EXPECT_EQ(KRV_ERR_NOMEM, KRV_HashPut(t, 3, Word("three")));
        EXPECT_EQ(2u, fault.Failed());
    }
    EXPECT_EQ(1u, KRV_HashCountGet(t));
    EXPECT_EQ(1u, g_live.size()) << "no value copied for a node that could not be allocated";
    KRV_HashDestroy(t);
    EXPECT_TRUE(g_live.empty());
}

}  // namespace
