// Whole-document parsing from a NUL-terminated text or from a file.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "json/krv_json_internal.h"
#include "krv_osalfs.h"
#include "krv_status.h"
#include "log/krv_diag.h"
#include "osal/krv_bounded.h"
#include "osal/krv_osal_mem.h"
#include "osal/krv_pathbuf.h"

namespace {

constexpr char kKrvSource[] = "krv_json";
constexpr uint32_t kMaxTextLen = 0x0FFFFFFF;

// What a file parse holds while it runs; allocated as one block so that the path buffer does not
// sit on the caller's stack.
struct FileWork {
    char path[krv::kPathBufSize];
    char *buffer;
    uint32_t size;
};

/* Reads the whole file at work->path into a new zero-filled buffer one byte longer than the file,
 * so the text is terminated even when the file holds no NUL. One stat, one allocation, one read. */
uint32_t FileRead(FileWork *work)
{
    struct stat info = {};
    if (stat(work->path, &info) != 0) {
        KRV_DIAG(KRV_ERR_FAILED, "stat failed, errno is :%d", errno);
        return KRV_ERR_FAILED;
    }
    // Only the low 32 bits of the size count, as they always have.
    work->size = static_cast<uint32_t>(info.st_size);
    if (info.st_size <= 0 || work->size > kMaxTextLen) {
        KRV_DIAG(KRV_ERR_FAILED, "fileSize:%u error", work->size);
        return KRV_ERR_FAILED;
    }
    work->buffer = static_cast<char *>(krv::OsalMemAlloc(static_cast<uint64_t>(work->size) + 1));
    if (work->buffer == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "Krv Json File Read malloc failed");
        return KRV_ERR_NOMEM;
    }
    krv::memset_s(work->buffer, work->size + 1, 0, work->size + 1);
    FILE *file = std::fopen(work->path, "r");
    if (file == nullptr) {
        KRV_DIAG(KRV_ERR_FAILED, "fopen failed");
        return KRV_ERR_FAILED;
    }
    size_t items = std::fread(work->buffer, work->size, 1, file);
    std::fclose(file);
    if (items != 1) {
        KRV_DIAG(KRV_ERR_FAILED, "file read failed, freadRet: %zu", items);
        return KRV_ERR_FAILED;
    }
    return KRV_OK;
}

}  // namespace

extern "C" {

/* The whole text must be one value with nothing but blanks after it; the nesting counter starts
 * afresh for every document. */
uint32_t KRV_JsonParseByString(const char *jsonStr, KrvJson **json)
{
    if (jsonStr == nullptr || json == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    size_t length = std::strlen(jsonStr);
    if (length == 0 || length > kMaxTextLen) {
        KRV_DIAG(KRV_ERR_FAILED, "jsonStrLen:%u error", static_cast<uint32_t>(length));
        return KRV_ERR_FAILED;
    }
    krv::json::NestedLayerReset();
    krv::json::Cursor cursor = {jsonStr, static_cast<uint32_t>(length) + 1, 0};
    KrvJson *root = nullptr;
    uint32_t status = krv::json::ValueParse(&cursor, &root);
    if (status == KRV_OK) {
        krv::json::SkipWhitespace(&cursor);
        if (cursor.pos < cursor.len) {
            KRV_DIAG(KRV_ERR_FAILED, "fileSize :%u, offset is :%u", cursor.len, cursor.pos);
            KRV_JsonDelete(root);
            status = KRV_ERR_FAILED;
        }
    }
    if (status != KRV_OK) {
        KRV_DIAG(status, "parse failed, jsonStr is %s", jsonStr);
        return status;
    }
    *json = root;
    return KRV_OK;
}

/* A NUL byte inside the file ends the document there; what follows it is never looked at. */
uint32_t KRV_JsonParse(const char *fileName, KrvJson **json)
{
    if (fileName == nullptr || json == nullptr) {
        KRV_DIAG(KRV_ERR_INVALID, "invaild param");
        return KRV_ERR_INVALID;
    }
    auto *work = static_cast<FileWork *>(krv::OsalMemAlloc(sizeof(FileWork)));
    if (work == nullptr) {
        KRV_DIAG(KRV_ERR_NOMEM, "mem alloc failed");
        return KRV_ERR_NOMEM;
    }
    // A path that does not exist passes the resolution with "" or the part resolved so far left in
    // the buffer; stat then refuses it.
    krv::memset_s(work, sizeof(FileWork), 0, sizeof(FileWork));
    uint32_t status = KRV_RealPath(fileName, work->path);
    if (status != KRV_OK) {
        KRV_DIAG(status, " getRealPath failed, fileName is :%s", fileName);
    } else {
        status = FileRead(work);
    }
    if (status == KRV_OK) {
        status = KRV_JsonParseByString(work->buffer, json);
        if (status != KRV_OK) {
            KRV_DIAG(status, "Json Parse By String failed, fileBuffer :%s", work->buffer);
        }
    }
    krv::OsalMemFree(work->buffer);
    krv::OsalMemFree(work);
    return status;
}

}  // extern "C"
