#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process where a condition does not hold, also in builds without
/// assertions; the fuzzer keeps the input then.
#define FUZZ_CHECK(condition)                                                                      \
    do                                                                                             \
    {                                                                                              \
        if (!(condition))                                                                          \
        {                                                                                          \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);    \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)
