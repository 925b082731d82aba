/* Chained hash table of 64-bit key and value words with caller-supplied hash, equality, copy and
 * release functions. The bucket count is fixed at creation; there is no rehashing. No lock: callers
 * serialise access to one table. */
#ifndef KRV_HASH_H
#define KRV_HASH_H

#include <stdbool.h>
#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the bucket index of key; anything not below bucketSize makes the key unstorable (33). */
typedef uint64_t (*KrvHashFunc)(uint64_t key, uint64_t bucketSize);
/* Returns true when the stored key equals the searched key. */
typedef bool (*KrvHashKeyEqualFunc)(uint64_t storedKey, uint64_t key);
/* Returns the word to store for word (the table then owns it); 0 means the copy failed. */
typedef uint64_t (*KrvHashDupFunc)(uint64_t word);
/* Releases a word the table owns. */
typedef void (*KrvHashFreeFunc)(uint64_t word);

/* Copy and release functions for keys or for values; either may be null (words stored as given). */
typedef struct KrvHashElemFuncs {
    KrvHashDupFunc dupFunc;
    KrvHashFreeFunc freeFunc;
} KrvHashElemFuncs;

typedef struct KrvHashTable KrvHashTable;
/* An iterator: an element's node, or the table's end iterator. Valid until that element is erased. */
typedef struct KrvHashNode KrvHashNode;

/* Returns a new caller-owned table of bucketSize buckets, or null (0 buckets, a null function or pair
   address, size overflow, no memory). The pairs are copied; the functions inside may be null. */
KrvHashTable *KRV_HashCreate(uint64_t bucketSize, KrvHashFunc hashFunc, KrvHashKeyEqualFunc keyEqualFunc,
                             const KrvHashElemFuncs *keyFuncs, const KrvHashElemFuncs *valueFuncs);
/* Result codes (krv_status.h): KRV_OK; KRV_ERR_FAILED (1) for a present key on insert, a failed value copy
   on put and an absent key in KRV_HashAt; KRV_ERR_NOMEM (12) for no memory or a failed copy of a new
   element; KRV_ERR_INVALID (22) for a null argument; KRV_ERR_RANGE (33) when hashFunc returns an index
   not below bucketSize. A failed insert or put leaves the table unchanged. */

/* Adds key -> value unless key is present; returns 0, 1 (present, nothing changed), 12, 22 or 33. When the
   value copy fails the key is handed to the key free function, even the caller's own key (then 12). */
uint32_t KRV_HashInsert(KrvHashTable *table, uint64_t key, uint64_t value);
/* Replaces the value of a present key (stored key kept, old value released) or adds key -> value as
   KRV_HashInsert does; returns 0, 1 (present key, value copy failed, nothing changed), 12, 22 or 33. */
uint32_t KRV_HashPut(KrvHashTable *table, uint64_t key, uint64_t value);
/* Removes key, releasing its words; returns the following element, the end iterator (also when key is
   absent), or null for a null table. */
KrvHashNode *KRV_HashErase(KrvHashTable *table, uint64_t key);
/* Returns key's element, the end iterator when absent, or null for a null table. */
KrvHashNode *KRV_HashFind(const KrvHashTable *table, uint64_t key);
/* Stores key's value in *value; returns 0, 1 (absent, *value untouched) or 22 (null argument). */
uint32_t KRV_HashAt(const KrvHashTable *table, uint64_t key, uint64_t *value);
/* Removes and releases every element; the table stays usable. Null is ignored. */
void KRV_HashClear(KrvHashTable *table);
/* Clears and frees table; null is ignored. */
void KRV_HashDestroy(KrvHashTable *table);
/* Returns the number of stored elements, 0 for a null table. */
uint64_t KRV_HashCountGet(const KrvHashTable *table);

/* Returns the first element (lowest bucket, earliest inserted), the end iterator when empty, or null. */
KrvHashNode *KRV_HashIterBegin(const KrvHashTable *table);
/* Returns the end iterator of table, or null for a null table. */
KrvHashNode *KRV_HashIterEnd(const KrvHashTable *table);
/* Returns the element after it, the end iterator (also when given it), or null when either is null. */
KrvHashNode *KRV_HashIterNext(const KrvHashTable *table, const KrvHashNode *it);
/* Returns the stored key of it, or 0 for the end iterator or a null argument. */
uint64_t KRV_HashIterKey(const KrvHashTable *table, const KrvHashNode *it);
/* Returns the stored value of it, or 0 for the end iterator or a null argument. */
uint64_t KRV_HashIterValue(const KrvHashTable *table, const KrvHashNode *it);

#ifdef __cplusplus
}
#endif

#endif /* KRV_HASH_H */
