// Hash table: insert, find and erase of 1,000,000 distinct random 64-bit keys beside
// std::unordered_map with the same bucket count (the prime the map picks when reserving room for the
// keys) and the same bucket function (key modulo bucket count; std::hash of an integer is the
// integer). Our table is used through the shared object, as a caller would.
//
// Insert times the insertions into an empty table created beforehand; erase times erasing every key
// (in another order) from a full table built beforehand; find looks every key up in a full table.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "krv_hash.h"

namespace {

constexpr size_t kKeys = 1000000;

using StdMap = std::unordered_map<uint64_t, uint64_t>;

struct Workload {
    std::vector<uint64_t> keys;  // insertion order
    std::vector<uint64_t> probe; // the same keys, another order
    uint64_t buckets;
};

const Workload &Keys()
{
    static const Workload w = [] {
        Workload w;
        std::mt19937_64 rng(99);
        while (w.keys.size() < kKeys) {
            w.keys.push_back(rng());
        }
        std::sort(w.keys.begin(), w.keys.end());
        w.keys.erase(std::unique(w.keys.begin(), w.keys.end()), w.keys.end());
        while (w.keys.size() < kKeys) {  // practically never: replace duplicates
            w.keys.push_back(rng() | 1);
        }
        std::shuffle(w.keys.begin(), w.keys.end(), rng);
        w.probe = w.keys;
        std::shuffle(w.probe.begin(), w.probe.end(), rng);
        StdMap m;
        m.reserve(kKeys);
        w.buckets = m.bucket_count();
        return w;
    }();
    return w;
}

uint64_t ModHash(uint64_t key, uint64_t bucketSize) { return key % bucketSize; }
bool SameKey(uint64_t stored, uint64_t key) { return stored == key; }

struct TableDeleter {
    void operator()(KrvHashTable *t) const { KRV_HashDestroy(t); }
};
using Table = std::unique_ptr<KrvHashTable, TableDeleter>;

Table NewTable()
{
    static const KrvHashElemFuncs plain = {nullptr, nullptr};
    return Table(KRV_HashCreate(Keys().buckets, ModHash, SameKey, &plain, &plain));
}

std::unique_ptr<StdMap> NewMap()
{
    auto m = std::make_unique<StdMap>();
    m->reserve(kKeys);
    return m;
}

// Value stored for a key: anything derived from it, so a find can be checked.
uint64_t ValueOf(uint64_t key) { return key * 3 + 1; }

Table FullTable()
{
    Table t = NewTable();
    for (uint64_t k : Keys().keys) {
        KRV_HashInsert(t.get(), k, ValueOf(k));
    }
    return t;
}

std::unique_ptr<StdMap> FullMap()
{
    auto m = NewMap();
    for (uint64_t k : Keys().keys) {
        m->emplace(k, ValueOf(k));
    }
    return m;
}

// Both containers must agree before anything is timed: same bucket count, every key in the same
// bucket, the same value for every key, and both empty after erasing every key.
void CheckAgainstPeer()
{
    static bool checked = false;
    if (checked) {
        return;
    }
    Table t = FullTable();
    auto m = FullMap();
    bool same = m->bucket_count() == Keys().buckets && KRV_HashCountGet(t.get()) == m->size();
    for (uint64_t k : Keys().probe) {
        uint64_t v = 0;
        same = same && KRV_HashAt(t.get(), k, &v) == 0 && v == m->at(k);
    }
    uint64_t ours = 0;
    for (KrvHashNode *it = KRV_HashIterBegin(t.get()); it != KRV_HashIterEnd(t.get());
         it = KRV_HashIterNext(t.get(), it)) {
        ++ours;
        same = same && m->bucket(KRV_HashIterKey(t.get(), it)) == ModHash(KRV_HashIterKey(t.get(), it), Keys().buckets);
    }
    for (uint64_t k : Keys().probe) {
        KRV_HashErase(t.get(), k);
        m->erase(k);
    }
    same = same && ours == kKeys && KRV_HashCountGet(t.get()) == 0 && m->empty();
    if (!same) {
        std::fprintf(stderr, "hash table and std::unordered_map disagree\n");
        std::abort();
    }
    checked = true;
}

// The two containers behind one interface, so every case runs the same loop for both.
struct Krv {
    using Container = Table;
    static Table Empty() { return NewTable(); }
    static Table Full() { return FullTable(); }
    static void Insert(const Table &t, uint64_t k) { KRV_HashInsert(t.get(), k, ValueOf(k)); }
    static uint64_t Find(const Table &t, uint64_t k) { return KRV_HashIterValue(t.get(), KRV_HashFind(t.get(), k)); }
    static void Erase(const Table &t, uint64_t k) { benchmark::DoNotOptimize(KRV_HashErase(t.get(), k)); }
};

struct Std {
    using Container = std::unique_ptr<StdMap>;
    static Container Empty() { return NewMap(); }
    static Container Full() { return FullMap(); }
    static void Insert(const Container &m, uint64_t k) { m->emplace(k, ValueOf(k)); }
    static uint64_t Find(const Container &m, uint64_t k) { return m->find(k)->second; }
    static void Erase(const Container &m, uint64_t k) { benchmark::DoNotOptimize(m->erase(k)); }
};

// For reference only: the map calling its hash and equality through function pointers, as our
// table must call the caller's functions.
uint64_t Identity(uint64_t key) { return key; }
struct PointerHash {
    uint64_t (*volatile func)(uint64_t) = Identity;  // volatile: the call stays indirect
    size_t operator()(uint64_t k) const { return func(k); }
};
struct PointerEqual {
    bool (*volatile func)(uint64_t, uint64_t) = SameKey;
    bool operator()(uint64_t a, uint64_t b) const { return func(a, b); }
};
using PointerMap = std::unordered_map<uint64_t, uint64_t, PointerHash, PointerEqual>;

struct StdPointers {
    using Container = std::unique_ptr<PointerMap>;
    static Container Empty()
    {
        auto m = std::make_unique<PointerMap>();
        m->reserve(kKeys);
        return m;
    }
    static Container Full()
    {
        Container m = Empty();
        for (uint64_t k : Keys().keys) {
            m->emplace(k, ValueOf(k));
        }
        return m;
    }
    static void Insert(const Container &m, uint64_t k) { m->emplace(k, ValueOf(k)); }
    static uint64_t Find(const Container &m, uint64_t k) { return m->find(k)->second; }
    static void Erase(const Container &m, uint64_t k) { benchmark::DoNotOptimize(m->erase(k)); }
};

// Times op over every key of order on a container made (and afterwards destroyed) outside the timing.
template <typename C, typename Make, typename Op>
void TimeOnFresh(benchmark::State &state, Make make, const std::vector<uint64_t> &order, Op op)
{
    CheckAgainstPeer();
    for (auto _ : state) {
        state.PauseTiming();
        typename C::Container c = make();
        state.ResumeTiming();
        for (uint64_t k : order) {
            op(c, k);
        }
        state.PauseTiming();
        c.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

template <typename C>
void BM_Insert(benchmark::State &state)
{
    // Lambdas, not function pointers, so that the std::unordered_map calls are inlined as usual.
    TimeOnFresh<C>(state, [] { return C::Empty(); }, Keys().keys, [](const auto &c, uint64_t k) { C::Insert(c, k); });
}

template <typename C>
void BM_Erase(benchmark::State &state)
{
    TimeOnFresh<C>(state, [] { return C::Full(); }, Keys().probe, [](const auto &c, uint64_t k) { C::Erase(c, k); });
}

template <typename C>
void BM_Find(benchmark::State &state)
{
    CheckAgainstPeer();
    typename C::Container c = C::Full();
    for (auto _ : state) {
        uint64_t sum = 0;
        for (uint64_t k : Keys().probe) {
            sum += C::Find(c, k);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

BENCHMARK_TEMPLATE(BM_Insert, Krv)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Insert, Std)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Insert, StdPointers)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Find, Krv)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Find, Std)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Find, StdPointers)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Erase, Krv)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Erase, Std)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Erase, StdPointers)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
