/* The status numbers the KRV_* functions return. Module-specific codes (composed error codes,
 * the Base64 results) are declared with their module. */
#ifndef KRV_STATUS_H
#define KRV_STATUS_H

#define KRV_OK 0u                   /* success */
#define KRV_ERR_FAILED 1u           /* generic failure */
#define KRV_ERR_BUSY 9u             /* bad descriptor, or resources still in use */
#define KRV_ERR_STOPPING 11u        /* module busy stopping */
#define KRV_ERR_NOMEM 12u           /* out of memory */
#define KRV_ERR_PLATFORM 14u        /* a platform call failed; also a timed-out wait */
#define KRV_ERR_INVALID 22u         /* invalid argument */
#define KRV_ERR_RANGE 33u           /* index out of range */
#define KRV_ERR_NOT_REGISTERED 60u  /* name not registered */
#define KRV_ERR_REGISTERED 113u     /* already registered */
#define KRV_ERR_NOT_INIT 124u       /* module not initialised */
#define KRV_ERR_UNKNOWN 255u        /* unknown */
#define KRV_ERR_POOL_IN_USE 8193u   /* timer pool handle already in use */

#endif /* KRV_STATUS_H */
