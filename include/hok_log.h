// Hok::Log: the class interface of the logging layer (named loggers and stream-style log lines).
#ifndef HOK_LOG_H
#define HOK_LOG_H

namespace Hok {
namespace Log {
}  // namespace Log
}  // namespace Hok

#endif  // HOK_LOG_H
