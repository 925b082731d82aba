/* libhokkrv: every public C interface of the library. */
#ifndef KRV_H
#define KRV_H

#include "krv_status.h"
#include "krv_osal.h"
#include "krv_osalsync.h"
#include "krv_osalfs.h"
#include "krv_osaleno.h"
#include "krv_reltmr.h"
#include "krv_time.h"
#include "krv_nolocktime.h"
#include "krv_json.h"
#include "krv_hash.h"
#include "krv_base64.h"
#include "krv_strlib.h"
#include "krv_log.h"
#include "krv_log_ops.h"
#include "krv_stream.h"
#include "krv_crc.h"
#include "krv_arith.h"
#include "krv_cputick.h"
#include "krv_sleep.h"
#include "krv_tick.h"
#include "krv_mempool.h"
#include "krv_array.h"

#endif /* KRV_H */
