// Runs an init with each of its allocations refused in turn.
#ifndef KRV_INIT_SWEEP_H
#define KRV_INIT_SWEEP_H

#include <cstdint>

#include "support/krv_test_support.h"

namespace krvtest {

// Calls init() with the n-th allocation refused, for n = 0, 1, ..., until a call refuses none; after
// each call fini() runs when init returned 0 (a refusal can have a fallback, as the stdio buffer
// has), then check(code). Needs a binary listed in KRV_ALLOC_FAILURE_TESTS.
template <typename Init, typename Fini, typename Check>
void InitSweep(Init init, Fini fini, Check check)
{
    for (unsigned failing = 0;; ++failing) {
        uint32_t rc;
        unsigned refused;
        {
            AllocFailure fail(failing, 1);
            rc = init();
            refused = fail.Failed();
        }
        if (rc == 0) {
            fini();
        }
        check(rc);
        if (refused == 0) {
            return;
        }
    }
}

}  // namespace krvtest

#endif  // KRV_INIT_SWEEP_H
