// Interposed malloc and pthread_create for failure injection. Linked only into binaries that use
// AllocFailure or ThreadFailure: the definitions below replace the C library's for the whole process.
#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstddef>

#include "support/krv_test_support.h"

extern "C" void *__libc_malloc(size_t size);
// Present only under AddressSanitizer, whose free must see its own chunks.
extern "C" void *__interceptor_malloc(size_t size) __attribute__((weak));

// Not instrumented: the sanitizer runtime allocates through malloc before its shadow memory exists.
#define KRV_UNINSTRUMENTED __attribute__((no_sanitize_address, no_sanitize_thread, no_sanitize_undefined))

namespace {

// Refuses the calls after the first `skip`, `remaining` times in all, while armed.
struct Countdown {
    bool armed;
    unsigned skip;
    unsigned remaining;
    unsigned failed;

    KRV_UNINSTRUMENTED bool Refuse()
    {
        if (!armed) {
            return false;
        }
        if (skip > 0) {
            --skip;
            return false;
        }
        if (remaining == 0) {
            return false;
        }
        --remaining;
        ++failed;
        return true;
    }
};

thread_local Countdown t_alloc = {false, 0, 0, 0};
thread_local Countdown t_thread = {false, 0, 0, 0};

using CreateFunc = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
// Resolved before main, so that no lookup (which may allocate) runs while a failure is armed. Under
// the sanitizers this is their runtime's pthread_create, which must see every thread start.
const CreateFunc g_nextCreate = reinterpret_cast<CreateFunc>(dlsym(RTLD_NEXT, "pthread_create"));

}  // namespace

extern "C" KRV_UNINSTRUMENTED void *malloc(size_t size)
{
    if (t_alloc.Refuse()) {
        return nullptr;
    }
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                              void *arg) noexcept
{
    return t_thread.Refuse() ? EAGAIN : g_nextCreate(thread, attr, start, arg);
}

namespace krvtest {

AllocFailure::AllocFailure(unsigned skip, unsigned count)
{
    t_alloc = {true, skip, count, 0};
}

AllocFailure::~AllocFailure()
{
    t_alloc.armed = false;
}

unsigned AllocFailure::Failed() const
{
    return t_alloc.failed;
}

ThreadFailure::ThreadFailure(unsigned skip, unsigned count)
{
    t_thread = {true, skip, count, 0};
}

ThreadFailure::~ThreadFailure()
{
    t_thread.armed = false;
}

unsigned ThreadFailure::Failed() const
{
    return t_thread.failed;
}

}  // namespace krvtest
