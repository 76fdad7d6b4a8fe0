// FUZZ_CHECK: a property every fuzz input must have, failing as a crash.
#ifndef VELM_FUZZCHECK_H
#define VELM_FUZZCHECK_H

#include <cstdio>
#include <cstdlib>

// A property every input must have. A violation prints what failed and
// aborts, which libFuzzer reports as a crash and saves the input.
#define FUZZ_CHECK(condition)                                                                     \
    do {                                                                                          \
        if (!(condition)) {                                                                       \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                         \
        }                                                                                         \
    } while (false)

#endif
