/* Relative timers on a 4096-bucket timing wheel driven by one trigger thread. */
#ifndef KRV_RELTMR_H
#define KRV_RELTMR_H

#include <stdbool.h>
#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* initFlag of a live pool or group; its bitwise complement (0xFFFFED01) marks a freed one. */
#define KRV_RELTMR_INIT_FLAG 4862u

/* Timer modes (only the low 8 bits of a mode argument are looked at). */
#define KRV_RELTMR_MODE_ONESHOT 0u
#define KRV_RELTMR_MODE_PERIODIC 1u

/* Node states. */
#define KRV_RELTMR_STATUS_IDLE 0x5Au    /* in its pool's free list */
#define KRV_RELTMR_STATUS_RUNNING 0xA5u /* armed in the wheel */
#define KRV_RELTMR_STATUS_TIMEOUT 0xAAu /* expired, waiting for or inside its callback */
#define KRV_RELTMR_STATUS_STOPPED 0x55u /* stopped while expired; the trigger thread finishes it */

/* Timer callback, run on the trigger thread with (arg, param) of the start call. */
typedef void (*KrvRelTmrCallBack)(uint64_t arg, uint32_t param);

typedef struct KrvRelTmrNode KrvRelTmrNode;
typedef struct KrvRelTmrPool KrvRelTmrPool;

/* A timer node; callers hold pointers to it (timer handles) but never change it. */
struct KrvRelTmrNode {
    KrvRelTmrNode *next;       /* free list, bucket list or expired list */
    KrvRelTmrNode *prev;       /* bucket list or expired list */
    KrvRelTmrNode **handleSlot; /* the caller's handle variable referring to this node, or null */
    KrvRelTmrPool *pool;       /* owning pool */
    KrvRelTmrCallBack callback;
    uint64_t arg;
    uint32_t interval; /* period in 10 ms ticks */
    uint32_t key;      /* bucket index (low 12 bits) and revolutions (high 20 bits) */
    uint32_t param;
    uint8_t listKind; /* 0 short list, 1 long list */
    uint8_t mode;     /* bit 0 set: periodic */
    uint8_t status;   /* KRV_RELTMR_STATUS_* */
};

/* A timer pool: maxTimer usable nodes (plus one kept back in the free list). */
struct KrvRelTmrPool {
    uint32_t initFlag;  /* KRV_RELTMR_INIT_FLAG while valid */
    uint32_t usedCount; /* nodes taken from the free list */
    uint32_t grpCount;  /* live groups created on this pool */
    KrvRelTmrNode *nodes;
    KrvRelTmrNode *freeHead;
    KrvRelTmrNode *freeTail;
};

/* What a start runs: callback (not null) called with (arg, param). */
typedef struct KrvRelTmrFuncInfo {
    KrvRelTmrCallBack callback;
    uint64_t arg;
    uint32_t param;
} KrvRelTmrFuncInfo;

/* A timer group: timerCount timers of one pool sharing one callback, addressed by serial number. */
typedef struct KrvRelTmrGrpInfo {
    uint64_t timerCount;
    uint32_t initFlag;
    KrvRelTmrPool *pool;
    KrvRelTmrCallBack callback; /* called with (tmrSn, param of the start) */
    KrvRelTmrNode *handles[];   /* handle of serial number tmrSn */
} KrvRelTmrGrpInfo;

/* Creates a pool of maxTimer timers into *pool (the module and its thread on first use); returns KRV_OK,
   KRV_ERR_STOPPING, KRV_ERR_POOL_IN_USE, KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_FAILED.
   The caller owns the pool until KRV_RelTimerFini; *pool must hold null or a live pool. */
uint32_t KRV_RelTimerInit(uint32_t maxTimer, KrvRelTmrPool **pool);
/* Destroys pool (the module and its thread with the last pool); returns KRV_OK, KRV_ERR_NOT_INIT or
   KRV_ERR_BUSY (timers or groups left). */
uint32_t KRV_RelTimerFini(KrvRelTmrPool *pool);

/* Starts (or restarts over *handle) a timer of intervalMs from pool; returns KRV_OK, KRV_ERR_NOT_INIT,
   KRV_ERR_INVALID or KRV_ERR_NOMEM (pool exhausted).
   *handle (caller-owned, may be null for one-shots) receives the node and is cleared when the timer ends. */
uint32_t KRV_CallBackRelTimerStart(KrvRelTmrNode **handle, KrvRelTmrPool *pool, uint32_t intervalMs, uint32_t mode,
                                   const KrvRelTmrFuncInfo *funcInfo);
/* Stops the timer *handle refers to and clears *handle; returns KRV_OK (also for an empty handle),
   KRV_ERR_NOT_INIT or KRV_ERR_INVALID. */
uint32_t KRV_RelTimerStop(KrvRelTmrNode **handle);

/* Creates a group of maxTimer timers of pool into *timerGrp, owned by the caller until KRV_RelTimerGrpFree;
   returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID or KRV_ERR_NOMEM. */
uint32_t KRV_RelTimerGrpCreate(KrvRelTmrGrpInfo **timerGrp, KrvRelTmrPool *pool, uint64_t maxTimer,
                               KrvRelTmrCallBack callback);
/* Stops every timer of timerGrp and frees it; returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID or the failing
   stop's status (group kept). */
uint32_t KRV_RelTimerGrpFree(KrvRelTmrGrpInfo *timerGrp);
/* Starts (or restarts) timer tmrSn of timerGrp; returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID or KRV_ERR_NOMEM. */
uint32_t KRV_RelTimerofGrpStart(KrvRelTmrGrpInfo *timerGrp, uint64_t tmrSn, uint32_t intervalMs, uint32_t param,
                                uint32_t mode);
/* Stops timer tmrSn of timerGrp (nothing to do is success); returns KRV_OK, KRV_ERR_NOT_INIT, KRV_ERR_INVALID or
   the stop's status. */
uint32_t KRV_RelTimerofGrpStop(KrvRelTmrGrpInfo *timerGrp, uint64_t tmrSn);

#ifdef __cplusplus
}
#endif

#endif /* KRV_RELTMR_H */
