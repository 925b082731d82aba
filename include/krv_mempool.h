/* Fixed-unit memory pools over caller-supplied regions, with lock-free allocation and release. */
#ifndef KRV_MEMPOOL_H
#define KRV_MEMPOOL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes besides KRV_OK, KRV_ERR_NOMEM, KRV_ERR_INVALID and KRV_ERR_NOT_INIT. */
#define KRV_MEMPOOL_ERR_UNIT_FREE 0x21301002u      /* release of a unit that is already free */
#define KRV_MEMPOOL_ERR_POOL_LIMIT 0x21301003u     /* no more pools can be created */
#define KRV_MEMPOOL_ERR_NAME_EXISTS 0x21301004u    /* a pool of that name exists */
#define KRV_MEMPOOL_ERR_UNIT_DAMAGED 0x21301007u   /* the unit's header is damaged, or its state is above 2 */
#define KRV_MEMPOOL_ERR_UNIT_STATE 0x21301008u     /* release of a unit whose state is 2 */
#define KRV_MEMPOOL_ERR_OVERLAP 0x21301009u        /* the region overlaps an existing pool */
#define KRV_MEMPOOL_ERR_ADDRESS 0x2130100Au        /* outside the pool or not at a unit boundary */
#define KRV_MEMPOOL_ERR_UNIT_NUM 0x2130100Bu       /* more than 65535 units */

#define KRV_MEMPOOL_MAX_POOLS 32u
#define KRV_MEMPOOL_MAX_UNITS 65535u
#define KRV_MEMPOOL_NAME_SIZE 32u       /* names keep at most 31 characters */
#define KRV_MEMPOOL_UNIT_HEAD_SIZE 56u  /* a unit offers unitSize - 56 usable bytes */
#define KRV_MEMPOOL_UNIT_MAGIC 0xC5C5C5C5u

/* Unit states. State 2 is never set by the library; a release of such a unit is refused with
   KRV_MEMPOOL_ERR_UNIT_STATE, so callers may use it to pin a unit. */
#define KRV_MEMPOOL_UNIT_FREE 0u
#define KRV_MEMPOOL_UNIT_USED 1u
#define KRV_MEMPOOL_UNIT_PINNED 2u

/* The first 56 bytes of every unit, in the caller's region, just before the address handed out.
   Units lie unitSize bytes apart, so a header is 4-byte aligned only when unitSize is a multiple of 4. */
typedef struct KrvMemUnitHead {
    uint32_t magic;          /* KRV_MEMPOOL_UNIT_MAGIC while intact */
    uint32_t state;          /* KRV_MEMPOOL_UNIT_* */
    uint8_t reserved1[24];   /* zero */
    uint32_t allocTickHigh;  /* system tick (KRV_TickGet) at the last allocation, high and low halves */
    uint32_t allocTickLow;
    uint32_t freeTickHigh;   /* system tick at the last release */
    uint32_t freeTickLow;
    uint8_t reserved2[8];    /* zero */
} KrvMemUnitHead;

/* Starts the module (and the system tick) or counts one more user; returns KRV_OK, KRV_ERR_NOMEM,
   the code of KRV_TickInit or of the mutex creation. Call from one thread at a time. */
uint32_t KRV_MemPoolInit(void);
/* Counts one user out; the last one frees every pool's bookkeeping (not the caller's regions) and
   the system tick. Returns KRV_OK. */
uint32_t KRV_MemPoolFini(void);
/* Carves the caller's region [startAddr, startAddr + poolSize) (4-byte aligned) into units of
   unitSize bytes (57 or more, dividing poolSize) and stores the new pool's id in *poolId. The region
   stays the caller's and must outlive the module. Returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID, KRV_ERR_NOMEM or a
   KRV_MEMPOOL_ERR_* code. */
uint32_t KRV_MemPoolCreate(const char *name, void *startAddr, uint32_t poolSize, uint32_t unitSize,
                           uint32_t *poolId);
/* Returns the usable part of a free unit of poolId (units in address order at first, then the one
   released last), or null when none is free (not logged) or on a bad id (logged). Lock-free. */
void *KRV_MemPoolAlloc(uint32_t poolId);
/* Returns the unit at memUnit (an address from KRV_MemPoolAlloc) to poolId; returns KRV_OK, KRV_ERR_NOT_INIT,
   KRV_ERR_INVALID or a KRV_MEMPOOL_ERR_* code (these last ones not logged). Lock-free. */
uint32_t KRV_MemPoolFree(uint32_t poolId, void *memUnit);
/* Returns the number of units of poolId not handed out, or 0 on a bad id or without the module. */
uint32_t KRV_MemUnUsedUnitGet(uint32_t poolId);

#ifdef __cplusplus
}
#endif

#endif /* KRV_MEMPOOL_H */
