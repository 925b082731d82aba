// How the logging classes report: plain lines on the standard output stream, never through
// KRV_LogWrite, so that a report about logging cannot loop back into logging.
#ifndef HOK_LOG_REPORT_H
#define HOK_LOG_REPORT_H

#include <iostream>

namespace krv {
namespace hoklog {

// Writes the parts one after another, then a newline, and flushes. A stream set up by the
// application to throw loses the report rather than its caller.
template <typename... Parts>
void Report(const Parts &...parts) noexcept
{
    try {
        (std::cout << ... << parts) << std::endl;
    } catch (...) {
    }
}

}  // namespace hoklog
}  // namespace krv

#endif  // HOK_LOG_REPORT_H
