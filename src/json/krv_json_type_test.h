// The one type test that logs, shared by the access and serialiser sources.
//
// Callers rely on a failed test leaving the same diagnostic (same text, same line) whether it came
// from KRV_JsonIsObject and friends or from a serialisation, so both go through TypeIs.
#ifndef KRV_JSON_TYPE_TEST_H
#define KRV_JSON_TYPE_TEST_H

#include <cstdint>

#include "krv_json.h"

namespace krv {
namespace json {

// Returns 1 when json is non-null and of type expected. Otherwise logs "valueType match failed,
// valueType :%u" with the expected code (KRV_ERR_FAILED) and returns 0.
uint32_t TypeIs(const KrvJson *json, uint32_t expected);

}  // namespace json
}  // namespace krv

#endif  // KRV_JSON_TYPE_TEST_H
