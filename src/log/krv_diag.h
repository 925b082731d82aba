// The one way a library module reports a diagnostic.
//
// Each source file defines, in an anonymous namespace, `constexpr char kKrvSource[] = "krv_<module>";`
// (its bare source name), then reports with KRV_DIAG (error level, the real source line) or one of the
// variants below. The message text is a printf format handed to KRV_LogWrite unchanged.
#ifndef KRV_DIAG_H
#define KRV_DIAG_H

#include "krv_log.h"

namespace krv {
constexpr unsigned kLevelError = 2;
constexpr unsigned kLevelWarning = 3;
constexpr unsigned kLevelInfo = 4;
}  // namespace krv

// Error-level diagnostic carrying the status `code`, this file's name and the current line.
#define KRV_DIAG(code, ...) KRV_LogWrite((code), ::krv::kLevelError, kKrvSource, __LINE__, __VA_ARGS__)
// Diagnostic at an explicit level.
#define KRV_DIAG_LEVEL(code, level, ...) KRV_LogWrite((code), (level), kKrvSource, __LINE__, __VA_ARGS__)
// Diagnostic whose line number is part of the interface and must not follow the source.
#define KRV_DIAG_AT(line, code, level, ...) KRV_LogWrite((code), (level), kKrvSource, (line), __VA_ARGS__)

#endif  // KRV_DIAG_H
