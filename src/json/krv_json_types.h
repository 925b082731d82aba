// The one type test that logs, shared by the access and output sources.
//
// Callers rely on a failed test leaving the same diagnostic (same text, same line) whether it came
// from KRV_JsonIsObject and friends or from a serialisation, so both go through TypeIs.
#ifndef KRV_JSON_TYPES_H
#define KRV_JSON_TYPES_H

#include <cstdint>

#include "krv_json.h"
#include "krv_status.h"

namespace krv {
namespace json {

// Returns 1 when json is non-null and of type expected. Otherwise logs "valueType match failed,
// valueType :%u" with the expected code (status 1) and returns 0.
uint32_t TypeIs(const KrvJson *json, uint32_t expected);

}  // namespace json
}  // namespace krv

#endif  // KRV_JSON_TYPES_H
