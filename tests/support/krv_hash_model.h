// What a hash table of text keys and values should hold, for the tests and the fuzz target: the
// copy and release functions that track every copy the table owns, a hash that crowds keys into few
// buckets, and a model of the contents in iteration order.
#ifndef KRV_HASH_MODEL_H
#define KRV_HASH_MODEL_H

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "krv_hash.h"

namespace krvtest::hashmodel {

// Copies the table owns and has not released; releasing anything else counts as a foreign free.
inline std::set<uint64_t> g_live;
inline unsigned g_foreignFrees;
inline bool g_failKeyDup;
inline bool g_failValueDup;

inline uint64_t Word(const char *s) { return reinterpret_cast<uint64_t>(s); }
inline const char *Text(uint64_t w) { return reinterpret_cast<const char *>(w); }

inline uint64_t DupText(uint64_t w)
{
    size_t n = std::strlen(Text(w)) + 1;
    char *copy = new char[n];
    std::memcpy(copy, Text(w), n);
    g_live.insert(Word(copy));
    return Word(copy);
}

inline uint64_t DupKey(uint64_t w) { return g_failKeyDup ? 0 : DupText(w); }
inline uint64_t DupValue(uint64_t w) { return g_failValueDup ? 0 : DupText(w); }

inline void FreeText(uint64_t w)
{
    if (g_live.erase(w) != 1) {
        ++g_foreignFrees;
        return;
    }
    delete[] Text(w);
}

inline void ResetOwnership()
{
    g_live.clear();
    g_foreignFrees = 0;
    g_failKeyDup = false;
    g_failValueDup = false;
}

inline const KrvHashElemFuncs kKeyFuncs = {DupKey, FreeText};
inline const KrvHashElemFuncs kValueFuncs = {DupValue, FreeText};

inline bool TextEqual(uint64_t stored, uint64_t key) { return std::strcmp(Text(stored), Text(key)) == 0; }

// Crowds non-empty keys into at most five buckets; keys starting with '!' hash out of range.
inline uint64_t ClusterHash(uint64_t key, uint64_t bucketSize)
{
    const char *s = Text(key);
    if (s[0] == '!') {
        return bucketSize;
    }
    size_t n = std::strlen(s);
    return (n * 7 + static_cast<unsigned char>(s[n - 1])) % std::min<uint64_t>(bucketSize, 5);
}

// The table's contents in iteration order as "key=value".
inline std::vector<std::string> Walk(const KrvHashTable *t)
{
    std::vector<std::string> seen;
    for (const KrvHashNode *it = KRV_HashIterBegin(t); it != KRV_HashIterEnd(t); it = KRV_HashIterNext(t, it)) {
        seen.push_back(std::string(Text(KRV_HashIterKey(t, it))) + "=" + Text(KRV_HashIterValue(t, it)));
    }
    return seen;
}

// The key an iterator stands at, or "" for the end iterator.
inline std::string KeyAt(const KrvHashTable *t, const KrvHashNode *it)
{
    return it == KRV_HashIterEnd(t) ? "" : Text(KRV_HashIterKey(t, it));
}

// Values by key, and keys per bucket in insertion order, for a table using ClusterHash.
class Model {
public:
    explicit Model(uint64_t buckets) : buckets_(buckets), order_(buckets) {}

    bool Has(const std::string &k) const { return values_.count(k) != 0; }
    const std::string &ValueOf(const std::string &k) const { return values_.at(k); }
    size_t Size() const { return values_.size(); }

    // Adds k or, with overwrite, replaces its value in place; what a successful insert or put does.
    void Store(const std::string &k, const std::string &v, bool overwrite)
    {
        if (!Has(k)) {
            order_[BucketOf(k)].push_back(k);
        } else if (!overwrite) {
            return;
        }
        values_[k] = v;
    }
    void Erase(const std::string &k)
    {
        if (values_.erase(k) != 0) {
            auto &bucket = order_[BucketOf(k)];
            bucket.erase(std::find(bucket.begin(), bucket.end(), k));
        }
    }
    void Clear() { *this = Model(buckets_); }

    // The contents as Walk() should see them.
    std::vector<std::string> Expected() const
    {
        std::vector<std::string> all;
        for (const auto &bucket : order_) {
            for (const std::string &k : bucket) {
                all.push_back(k + "=" + values_.at(k));
            }
        }
        return all;
    }
    // The key following the present key k in iteration order, or "" for the end.
    std::string After(const std::string &k) const
    {
        std::vector<std::string> all = Expected();
        auto at = std::find(all.begin(), all.end(), k + "=" + values_.at(k)) + 1;
        return at == all.end() ? "" : at->substr(0, at->find('='));
    }

private:
    uint64_t BucketOf(const std::string &k) const { return ClusterHash(Word(k.c_str()), buckets_); }

    uint64_t buckets_;
    std::unordered_map<std::string, std::string> values_;
    std::vector<std::vector<std::string>> order_;
};

}  // namespace krvtest::hashmodel

#endif  // KRV_HASH_MODEL_H
