/* JSON: a restricted dialect parsed into a tree of KrvJson nodes, typed access, setters and compact output. */
#ifndef KRV_JSON_H
#define KRV_JSON_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "krv_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Value type codes stored in KrvJson.valueType. */
#define KRV_JSON_NULL 0u
#define KRV_JSON_TRUE 1u
#define KRV_JSON_FALSE 2u
#define KRV_JSON_NUMBER 3u
#define KRV_JSON_STRING 4u
#define KRV_JSON_ARRAY 5u
#define KRV_JSON_OBJECT 6u
#define KRV_JSON_TYPE_NONE 7u /* arrType of an array without elements */

#define KRV_JSON_KEY_LEN 32u

struct KrvJsonChild;

/* One node; the root handed out by a parse is owned by the caller until KRV_JsonDelete. */
typedef struct KrvJson {
    char key[KRV_JSON_KEY_LEN]; /* member name, empty for roots and array elements */
#if defined(__cplusplus) && defined(__GNUC__)
    __extension__
#endif
    union {
        double numberValue; /* KRV_JSON_NUMBER */
        char *stringValue;  /* KRV_JSON_STRING: owned, NUL-terminated */
#if defined(__cplusplus) && defined(__GNUC__)
        __extension__
#endif
        struct {
            uint32_t arrType; /* KRV_JSON_ARRAY: type shared by every element */
            uint32_t arrLen;  /* KRV_JSON_ARRAY: element count */
        };
    };
    struct KrvJsonChild *child; /* children in document order, or null */
    uint32_t valueType;         /* KRV_JSON_* */
} KrvJson;

/* Link of a node's child list; owns its item. */
typedef struct KrvJsonChild {
    KrvJson *item;
    struct KrvJsonChild *next;
} KrvJsonChild;

/* Parses the file at fileName; returns KRV_OK with a caller-owned root in *json, or KRV_ERR_INVALID,
   KRV_ERR_NOMEM, KRV_ERR_FAILED. */
uint32_t KRV_JsonParse(const char *fileName, KrvJson **json);
/* Parses the NUL-terminated jsonStr; returns KRV_OK with a caller-owned root in *json, or KRV_ERR_INVALID,
   KRV_ERR_NOMEM, KRV_ERR_FAILED. */
uint32_t KRV_JsonParseByString(const char *jsonStr, KrvJson **json);
/* Frees a whole tree; pass only roots; null is ignored. */
void KRV_JsonDelete(KrvJson *json);

/* Type tests: each returns 1 when json is of the named type, else 0, and a 0 also logs
   "valueType match failed, valueType :%u" with the expected code (level 2), a null json included. */
uint32_t KRV_JsonIsNull(const KrvJson *json);   /* 1 for null */
uint32_t KRV_JsonIsTrue(const KrvJson *json);   /* 1 for true */
uint32_t KRV_JsonIsFalse(const KrvJson *json);  /* 1 for false */
uint32_t KRV_JsonIsBool(const KrvJson *json);   /* 1 for true or false (false logs the failed true test) */
uint32_t KRV_JsonIsNumber(const KrvJson *json); /* 1 for a number */
uint32_t KRV_JsonIsString(const KrvJson *json); /* 1 for a string */
uint32_t KRV_JsonIsArray(const KrvJson *json);  /* 1 for an array */
uint32_t KRV_JsonIsObject(const KrvJson *json); /* 1 for an object */

/* Finds the direct member key of object json; returns KRV_OK with a borrowed node in *item, or
   KRV_ERR_INVALID, KRV_ERR_FAILED. */
uint32_t KRV_JsonItemGet(KrvJson *json, const char *key, KrvJson **item);
/* Reads a boolean member into *boolVal (1 true, 0 false); returns KRV_OK, KRV_ERR_INVALID or KRV_ERR_FAILED. */
uint32_t KRV_JsonBoolValueGet(KrvJson *json, const char *key, uint8_t *boolVal);
/* Reads a number member into *val; returns KRV_OK, KRV_ERR_INVALID or KRV_ERR_FAILED. */
uint32_t KRV_JsonNumberValueGet(KrvJson *json, const char *key, double *val);
/* Copies a string member into a new block *str (free with KRV_JsonStringValueFree); returns KRV_OK,
   KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_FAILED. */
uint32_t KRV_JsonStringValueGet(KrvJson *json, const char *key, char **str);
/* As KRV_JsonStringValueGet, also storing the copy's length in *size. */
uint32_t KRV_JsonStringValueAndSizeGet(KrvJson *json, const char *key, char **str, size_t *size);
/* Releases a string handed out by this module; null is passed on harmlessly. */
void KRV_JsonStringValueFree(char *str);
/* Finds an array member; returns KRV_OK with a borrowed node in *jsonArrPtr, or KRV_ERR_INVALID, KRV_ERR_FAILED. */
uint32_t KRV_JsonArrayGet(KrvJson *json, const char *key, KrvJson **jsonArrPtr);
/* Returns true when object json has the member key. */
bool KRV_JsonIsKeyExist(KrvJson *json, const char *key);
/* Stores the element count of arr in *size; returns KRV_OK or KRV_ERR_INVALID. */
uint32_t KRV_JsonArraySizeGet(KrvJson *arr, uint32_t *size);
/* Stores the borrowed element index of arr in *item; returns KRV_OK, KRV_ERR_INVALID or KRV_ERR_FAILED. */
uint32_t KRV_JsonArrayItemGet(KrvJson *arr, uint32_t index, KrvJson **item);
/* Copies string element index into a new block *str (free with KRV_JsonStringValueFree); returns KRV_OK,
   KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_FAILED. */
uint32_t KRV_JsonArrayStringValueGet(KrvJson *arr, uint32_t index, char **str);
/* Reads number element index into *val; returns KRV_OK, KRV_ERR_INVALID (not a number array) or
   KRV_ERR_FAILED (bad index). */
uint32_t KRV_JsonArrayNumberValueGet(KrvJson *arr, uint32_t index, double *val);

/* Writes a tree of objects, arrays and strings as compact, unescaped text into a new block *jsonStr (free with
   KRV_JsonStringValueFree), length in *len; returns KRV_OK, KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_FAILED
   (other types, more than 50 children). */
uint32_t KRV_JsonSerializesToString(KrvJson *json, char **jsonStr, size_t *len);
/* Sets (or appends) the string member key of json to a copy of str; returns KRV_OK, KRV_ERR_INVALID,
   KRV_ERR_NOMEM or KRV_ERR_FAILED. */
uint32_t KRV_JsonStringValueSet(KrvJson *json, const char *key, const char *str);
/* Parses the array text str (continuing the parser's nesting count) and puts it under key in json, replacing a
   same-named member in place; returns KRV_OK, KRV_ERR_INVALID, KRV_ERR_NOMEM or KRV_ERR_FAILED. */
uint32_t KRV_JsonArrayValueSet(KrvJson *json, const char *key, const char *str);

#ifdef __cplusplus
}
#endif

#endif /* KRV_JSON_H */
