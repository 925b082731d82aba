/* Calendar time: the current time, broken-down dates, their check, conversions and comparison. */
#ifndef KRV_TIME_H
#define KRV_TIME_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A broken-down date and time; the ranges are those KRV_DateTimeCheck accepts. */
typedef struct KrvDateTime {
    uint16_t year;        /* 1970 .. 65535 */
    uint8_t month;        /* 1 .. 12 */
    uint8_t day;          /* 1 .. length of the month */
    uint8_t hour;         /* 0 .. 23 */
    uint8_t minute;       /* 0 .. 59 */
    uint8_t second;       /* 0 .. 59, no leap second */
    uint32_t millisecond; /* 0 .. 999 */
    uint32_t microsecond; /* 0 .. 999, the microseconds within the millisecond */
} KrvDateTime;

/* Source of the current time: seconds since 1970. */
typedef int64_t (*KrvSysTimeFunc)(void);

/* Bytes KRV_DateToStrConvert writes, terminating zero included. */
#define KRV_DATE_STR_LEN 26u
/* Largest value KRV_UtcTimeToDateConvert accepts: 31 December 65535 23:59:59. */
#define KRV_UTC_TIME_MAX 2005949145599LL

/* Results of KRV_DateTimeCompare. */
#define KRV_DATE_CMP_FAILED 0u  /* a null or invalid date */
#define KRV_DATE_CMP_EQUAL 1u
#define KRV_DATE_CMP_EARLIER 2u /* a is earlier than b */
#define KRV_DATE_CMP_LATER 3u   /* a is later than b */

/* Makes func the source of KRV_CurrentSysTimeGet, replacing any earlier one; a null func is ignored.
   Meant for start-up: there is no way back to the system clock. */
void KRV_SysTimeFuncReg(KrvSysTimeFunc func);
/* Returns seconds since 1970: the registered function's value, else time(NULL). */
int64_t KRV_CurrentSysTimeGet(void);
/* Returns whether year is a Gregorian leap year. */
bool KRV_IsLeapYear(uint32_t year);
/* Returns true when date is not null and every field is in range. */
bool KRV_DateTimeCheck(const KrvDateTime *date);
/* Writes date as "Sun Mar  1 00:00:00 1972\n" (always Sunday) into buf (KRV_DATE_STR_LEN bytes, caller's);
   returns 0, or 1 for a null argument, an invalid date or a year the form cannot hold, buf unchanged. */
uint32_t KRV_DateToStrConvert(const KrvDateTime *date, char *buf);
/* Stores the seconds since 1970 of date taken as UTC (sub-second fields ignored) in *utc; returns 0,
   or 1 for a null argument or an invalid date (*utc unchanged), or 1 with *utc = -1 for a negative result
   (which no valid date gives). */
uint32_t KRV_DateToUtcTimeConvert(const KrvDateTime *date, int64_t *utc);
/* Compares a with b to the second, storing a - b in *diff when diff is not null; returns
   KRV_DATE_CMP_EQUAL, _EARLIER or _LATER, or KRV_DATE_CMP_FAILED for a null or invalid date. */
uint32_t KRV_DateTimeCompare(const KrvDateTime *a, const KrvDateTime *b, int64_t *diff);
/* Breaks utc down as UTC into *date (sub-second fields 0); returns 0, or 22 when utc > KRV_UTC_TIME_MAX,
   date is null, or the year falls outside 0 .. 65535 or cannot be computed (*date unchanged). */
uint32_t KRV_UtcTimeToDateConvert(int64_t utc, KrvDateTime *date);
/* Stores the current local standard time (daylight saving not applied) in *date, the sub-second part
   from the system clock; returns 0, 22 when the current time reads 0, else KRV_UtcTimeToDateConvert's code. */
uint32_t KRV_SysTimeGet(KrvDateTime *date);

#ifdef __cplusplus
}
#endif

#endif /* KRV_TIME_H */
