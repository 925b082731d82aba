// The logger registry as the logging lifecycle sees it.
#ifndef HOK_LOG_REGISTRY_H
#define HOK_LOG_REGISTRY_H

namespace krv {
namespace hoklog {

// Returns true while at least one logger is registered.
bool RegistryHoldsLoggers() noexcept;

}  // namespace hoklog
}  // namespace krv

#endif  // HOK_LOG_REGISTRY_H
