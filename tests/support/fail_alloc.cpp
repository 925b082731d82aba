// Interposed malloc for failure injection. Linked only into binaries that use AllocFailure: the
// definition below replaces the C library's malloc for the whole test process.
#include <cstddef>

#include "support/krv_test_support.h"

extern "C" void *__libc_malloc(size_t size);
// Present only under AddressSanitizer, whose free must see its own chunks.
extern "C" void *__interceptor_malloc(size_t size) __attribute__((weak));

namespace {

struct FaultState {
    bool armed;
    unsigned skip;
    unsigned remaining;
    unsigned failed;
};

thread_local FaultState t_fault = {false, 0, 0, 0};

}  // namespace

// Not instrumented: the sanitizer runtime allocates through here before its shadow memory exists.
extern "C" __attribute__((no_sanitize_address, no_sanitize_thread, no_sanitize_undefined)) void *malloc(size_t size)
{
    FaultState &f = t_fault;
    if (f.armed) {
        if (f.skip > 0) {
            --f.skip;
        } else if (f.remaining > 0) {
            --f.remaining;
            ++f.failed;
            return nullptr;
        }
    }
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

namespace krvtest {

AllocFailure::AllocFailure(unsigned skip, unsigned count)
{
    t_fault = {true, skip, count, 0};
}

AllocFailure::~AllocFailure()
{
    t_fault.armed = false;
}

unsigned AllocFailure::Failed() const
{
    return t_fault.failed;
}

}  // namespace krvtest
