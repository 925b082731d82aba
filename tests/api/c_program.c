/* A C11 program calling through the public headers, as a procedural caller would. */
#include <stdio.h>
#include <string.h>

#include "krv.h"

static unsigned g_hookCalls;

static uint64_t IdentityHash(uint64_t key, uint64_t bucketSize)
{
    return key % bucketSize;
}

static bool SameWord(uint64_t storedKey, uint64_t key)
{
    return storedKey == key;
}

static void CountingHook(uint32_t errCode, uint32_t level, const char *fileName, uint32_t line, const char *msg)
{
    (void)errCode; (void)level; (void)fileName; (void)line; (void)msg;
    ++g_hookCalls;
}

int main(void)
{
    if (strcmp(KRV_VersionGet(), "Merilux_2.22.0.104-build.0100") != 0) {
        return 1;
    }
    char *block = KRV_OsalMemAlloc(16);
    if (block == NULL) {
        return 2;
    }
    KRV_OsalMemFree(block);
    KrvMutex mutex = NULL;
    if (KRV_OsalMutexCreate(&mutex) != KRV_OK || KRV_OsalMutexDestroy(&mutex) != KRV_OK || mutex != NULL ||
        KRV_OsalMutexDestroy(&mutex) != KRV_ERR_INVALID) {
        return 3;
    }
    if (KRV_LogHookReg(CountingHook) != 0) {
        return 4;
    }
    KRV_LogWrite(0, 6, "c_program", __LINE__, "hello %d", 1);
    KRV_LogHookUnReg();
    if (g_hookCalls != 1) {
        return 5;
    }
    if (KRV_LogOpsDropCountGet() != 0 || KRV_LogOpsFlush(0) != KRV_ERR_NOT_INIT) {
        return 6;
    }
    const uint8_t text[] = {'b', 'a', 'n', 'a', 'n', 'a'};
    size_t sa[6] = {0};
    if (KRV_ArraySaSort(text, 6, sa, 6) != KRV_OK || sa[0] != 5 || sa[5] != 2) {
        return 7;
    }
    uint8_t be[4];
    uint32_t crc = 0xFFFFFFFFu;
    if (KRV_StreamUint32ToByte(0x31323334u, be, sizeof be) != KRV_OK || KRV_Crc32bitMake(be, sizeof be, &crc) != KRV_OK ||
        KRV_StreamHostToNetUint16(0x0102) != 0x0201 || KRV_CpuTickJiffiesToMS(3) != 30 || KRV_CpuTick2Ns(5) != 0) {
        return 8;
    }
    KrvDateTime leapDay = {1972, 3, 1, 0, 0, 0, 0, 0};
    int64_t utc = 0;
    if (!KRV_IsLeapYear(1972) || KRV_DateToUtcTimeConvert(&leapDay, &utc) != 0 || utc != 68256000) {
        return 9;
    }
    KrvHashElemFuncs plain = {NULL, NULL};
    KrvHashTable *table = KRV_HashCreate(8, IdentityHash, SameWord, &plain, &plain);
    uint64_t value = 0;
    if (table == NULL || KRV_HashInsert(table, 3, 30) != KRV_OK || KRV_HashAt(table, 3, &value) != KRV_OK ||
        value != 30 || KRV_HashCountGet(table) != 1) {
        return 10;
    }
    KRV_HashDestroy(table);
    char *encoded = NULL;
    if (KRV_Base64Encode((const uint8_t *)"foo", 3, &encoded) != KRV_OK || strcmp(encoded, "Zm9v") != 0) {
        return 11;
    }
    KRV_OsalMemFree(encoded);
    size_t trimmed = 0;
    char out[8];
    if (KRV_StrlibSpaceDeleteEx(" ab ", 4, out, &trimmed) != KRV_OK || trimmed != 2 || !KRV_StrIsDecDigit("42")) {
        return 12;
    }
    KrvJson *root = NULL;
    double number = 0;
    if (KRV_JsonParseByString("{\"n\": 2.5}", &root) != KRV_OK || KRV_JsonNumberValueGet(root, "n", &number) != KRV_OK ||
        number != 2.5) {
        return 13;
    }
    KRV_JsonDelete(root);
    puts("c program ok");
    return 0;
}
