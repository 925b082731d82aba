// Pieces shared by the access and output sources: their status codes and the one type test that logs.
//
// Callers rely on a failed test leaving the same diagnostic (same text, same line) whether it came
// from KRV_JsonIsObject and friends or from a serialisation, so both go through TypeIs.
#ifndef KRV_JSON_TYPES_H
#define KRV_JSON_TYPES_H

#include <cstdint>

#include "krv_json.h"

namespace krv {
namespace json {

// The statuses these sources return (and log): a source takes them with one using-directive.
namespace status {
constexpr uint32_t kOk = 0;
constexpr uint32_t kFail = 1;
constexpr uint32_t kNoMem = 12;
constexpr uint32_t kInval = 22;
}  // namespace status

// Returns 1 when json is non-null and of type expected. Otherwise logs "valueType match failed,
// valueType :%u" with the expected code (status 1) and returns 0.
uint32_t TypeIs(const KrvJson *json, uint32_t expected);

}  // namespace json
}  // namespace krv

#endif  // KRV_JSON_TYPES_H
