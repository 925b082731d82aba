// Chained hash table: one RawList per bucket plus one always-empty head that serves as end iterator.
#include "krv_hash.h"

#include <cstddef>

#include "krv_osal.h"
#include "krv_status.h"
#include "util/krv_rawlist.h"

// One element; the link comes first so that a list node is the element's address (its iterator).
struct KrvHashNode {
    krv::RawListNode link;
    uint64_t key;
    uint64_t value;
};

// One block: the header, then bucketSize + 1 list heads, the last of them never holding a node.
struct KrvHashTable {
    KrvHashDupFunc keyDupFunc;
    KrvHashFreeFunc keyFreeFunc;
    KrvHashDupFunc valueDupFunc;
    KrvHashFreeFunc valueFreeFunc;
    KrvHashKeyEqualFunc keyEqualFunc;
    KrvHashFunc hashFunc;
    uint64_t bucketSize;
    uint64_t count;
    krv::RawList buckets[];  // bucketSize + 1 heads
};

namespace {

static_assert(offsetof(KrvHashNode, link) == 0, "a list node must be its element's address");

constexpr size_t kHeaderBytes = offsetof(KrvHashTable, buckets);

// The element whose link is link (or, for the extra head, the end iterator).
KrvHashNode *AsNode(krv::RawListNode *link)
{
    return reinterpret_cast<KrvHashNode *>(link);
}

// The end iterator: the extra head after the last bucket.
KrvHashNode *EndOf(const KrvHashTable *table)
{
    const krv::RawList *end = &table->buckets[table->bucketSize];
    return AsNode(const_cast<krv::RawListNode *>(&end->head));
}

// The first element in the buckets from index on, or the end iterator.
KrvHashNode *FirstFrom(const KrvHashTable *table, uint64_t index)
{
    for (; index < table->bucketSize; ++index) {
        krv::RawListNode *front = krv::RawListFront(&table->buckets[index]);
        if (front != nullptr) {
            return AsNode(front);
        }
    }
    return EndOf(table);
}

// The element after node in iteration order; node's bucket is found again from its stored key.
KrvHashNode *Successor(const KrvHashTable *table, const KrvHashNode *node)
{
    uint64_t index = table->hashFunc(node->key, table->bucketSize);
    if (index >= table->bucketSize) {
        return EndOf(table);
    }
    krv::RawListNode *next = krv::RawListNext(&table->buckets[index], &node->link);
    return next != nullptr ? AsNode(next) : FirstFrom(table, index + 1);
}

// The element holding key in bucket, or null.
KrvHashNode *FindInBucket(const KrvHashTable *table, const krv::RawList *bucket, uint64_t key)
{
    for (krv::RawListNode *n = krv::RawListFront(bucket); n != nullptr; n = krv::RawListNext(bucket, n)) {
        if (table->keyEqualFunc(AsNode(n)->key, key)) {
            return AsNode(n);
        }
    }
    return nullptr;
}

// The element holding key, or null (also when key hashes out of range); *bucket receives its list.
KrvHashNode *Lookup(const KrvHashTable *table, uint64_t key, krv::RawList **bucket)
{
    uint64_t index = table->hashFunc(key, table->bucketSize);
    if (index >= table->bucketSize) {
        return nullptr;
    }
    *bucket = const_cast<krv::RawList *>(&table->buckets[index]);
    return FindInBucket(table, *bucket, key);
}

// Releases the words node owns and the node itself; node is already unlinked.
void ReleaseNode(KrvHashTable *table, KrvHashNode *node)
{
    if (table->keyFreeFunc != nullptr) {
        table->keyFreeFunc(node->key);
    }
    if (table->valueFreeFunc != nullptr) {
        table->valueFreeFunc(node->value);
    }
    KRV_OsalMemFree(node);
}

// Stores a copy of value (when copying) in node, releasing the old value; 1 when the copy fails.
uint32_t ReplaceValue(KrvHashTable *table, KrvHashNode *node, uint64_t value)
{
    if (table->valueDupFunc != nullptr) {
        value = table->valueDupFunc(value);
        if (value == 0) {
            return KRV_ERR_FAILED;
        }
    }
    if (table->valueFreeFunc != nullptr) {
        table->valueFreeFunc(node->value);
    }
    node->value = value;
    return KRV_OK;
}

// Appends a new element to bucket; 12 when the node or a copy cannot be made (nothing kept).
uint32_t AddNode(KrvHashTable *table, krv::RawList *bucket, uint64_t key, uint64_t value)
{
    auto *node = static_cast<KrvHashNode *>(KRV_OsalMemAlloc(sizeof(KrvHashNode)));
    if (node == nullptr) {
        return KRV_ERR_NOMEM;
    }
    if (table->keyDupFunc != nullptr) {
        key = table->keyDupFunc(key);
        if (key == 0) {
            KRV_OsalMemFree(node);
            return KRV_ERR_NOMEM;
        }
    }
    if (table->valueDupFunc != nullptr) {
        value = table->valueDupFunc(value);
        if (value == 0) {
            // Without a key copy this releases the caller's own key: established behaviour callers rely on.
            if (table->keyFreeFunc != nullptr) {
                table->keyFreeFunc(key);
            }
            KRV_OsalMemFree(node);
            return KRV_ERR_NOMEM;
        }
    }
    node->key = key;
    node->value = value;
    krv::RawListPushBack(bucket, &node->link);
    ++table->count;
    return KRV_OK;
}

// Insert (overwrite false) and put (overwrite true).
uint32_t Store(KrvHashTable *table, uint64_t key, uint64_t value, bool overwrite)
{
    if (table == nullptr) {
        return KRV_ERR_INVALID;
    }
    uint64_t index = table->hashFunc(key, table->bucketSize);
    if (index >= table->bucketSize) {
        return KRV_ERR_RANGE;
    }
    krv::RawList *bucket = &table->buckets[index];
    KrvHashNode *node = FindInBucket(table, bucket, key);
    if (node == nullptr) {
        return AddNode(table, bucket, key, value);
    }
    return overwrite ? ReplaceValue(table, node, value) : KRV_ERR_FAILED;
}

// True when it is an element of table, not the end iterator or null.
bool IsElement(const KrvHashTable *table, const KrvHashNode *it)
{
    return table != nullptr && it != nullptr && it != EndOf(table);
}

}  // namespace

extern "C" {

KrvHashTable *KRV_HashCreate(uint64_t bucketSize, KrvHashFunc hashFunc, KrvHashKeyEqualFunc keyEqualFunc,
                             const KrvHashElemFuncs *keyFuncs, const KrvHashElemFuncs *valueFuncs)
{
    if (bucketSize == 0 || hashFunc == nullptr || keyEqualFunc == nullptr || keyFuncs == nullptr ||
        valueFuncs == nullptr) {
        return nullptr;
    }
    constexpr uint64_t kMaxHeads = (UINT64_MAX - kHeaderBytes) / sizeof(krv::RawList);
    if (bucketSize >= kMaxHeads) {  // bucketSize + 1 heads must fit beside the header
        return nullptr;
    }
    auto *table = static_cast<KrvHashTable *>(
        KRV_OsalMemCalloc(1, kHeaderBytes + (bucketSize + 1) * sizeof(krv::RawList)));
    if (table == nullptr) {
        return nullptr;
    }
    table->keyDupFunc = keyFuncs->dupFunc;
    table->keyFreeFunc = keyFuncs->freeFunc;
    table->valueDupFunc = valueFuncs->dupFunc;
    table->valueFreeFunc = valueFuncs->freeFunc;
    table->keyEqualFunc = keyEqualFunc;
    table->hashFunc = hashFunc;
    table->bucketSize = bucketSize;
    for (uint64_t i = 0; i <= bucketSize; ++i) {
        krv::RawListInit(&table->buckets[i], nullptr);  // nodes are released here, not by the list
    }
    return table;
}

uint32_t KRV_HashInsert(KrvHashTable *table, uint64_t key, uint64_t value)
{
    return Store(table, key, value, false);
}

uint32_t KRV_HashPut(KrvHashTable *table, uint64_t key, uint64_t value)
{
    return Store(table, key, value, true);
}

KrvHashNode *KRV_HashErase(KrvHashTable *table, uint64_t key)
{
    if (table == nullptr) {
        return nullptr;
    }
    krv::RawList *bucket = nullptr;
    KrvHashNode *node = Lookup(table, key, &bucket);
    if (node == nullptr) {
        return EndOf(table);
    }
    KrvHashNode *next = Successor(table, node);  // while the node is still linked
    krv::RawListErase(bucket, &node->link);
    ReleaseNode(table, node);
    --table->count;
    return next;
}

KrvHashNode *KRV_HashFind(const KrvHashTable *table, uint64_t key)
{
    if (table == nullptr) {
        return nullptr;
    }
    krv::RawList *bucket = nullptr;
    KrvHashNode *node = Lookup(table, key, &bucket);
    return node != nullptr ? node : EndOf(table);
}

uint32_t KRV_HashAt(const KrvHashTable *table, uint64_t key, uint64_t *value)
{
    if (table == nullptr || value == nullptr) {
        return KRV_ERR_INVALID;
    }
    krv::RawList *bucket = nullptr;
    const KrvHashNode *node = Lookup(table, key, &bucket);
    if (node == nullptr) {
        return KRV_ERR_FAILED;
    }
    *value = node->value;
    return KRV_OK;
}

void KRV_HashClear(KrvHashTable *table)
{
    if (table == nullptr) {
        return;
    }
    for (uint64_t i = 0; i < table->bucketSize; ++i) {
        krv::RawList *bucket = &table->buckets[i];
        for (krv::RawListNode *n = krv::RawListFront(bucket); n != nullptr; n = krv::RawListFront(bucket)) {
            krv::RawListErase(bucket, n);
            ReleaseNode(table, AsNode(n));
        }
    }
    table->count = 0;
}

void KRV_HashDestroy(KrvHashTable *table)
{
    if (table == nullptr) {
        return;
    }
    KRV_HashClear(table);
    KRV_OsalMemFree(table);
}

uint64_t KRV_HashCountGet(const KrvHashTable *table)
{
    return table != nullptr ? table->count : 0;
}

KrvHashNode *KRV_HashIterBegin(const KrvHashTable *table)
{
    return table != nullptr ? FirstFrom(table, 0) : nullptr;
}

KrvHashNode *KRV_HashIterEnd(const KrvHashTable *table)
{
    return table != nullptr ? EndOf(table) : nullptr;
}

KrvHashNode *KRV_HashIterNext(const KrvHashTable *table, const KrvHashNode *it)
{
    if (table == nullptr || it == nullptr) {
        return nullptr;
    }
    return it == EndOf(table) ? EndOf(table) : Successor(table, it);
}

uint64_t KRV_HashIterKey(const KrvHashTable *table, const KrvHashNode *it)
{
    return IsElement(table, it) ? it->key : 0;
}

uint64_t KRV_HashIterValue(const KrvHashTable *table, const KrvHashNode *it)
{
    return IsElement(table, it) ? it->value : 0;
}

}  // extern "C"
