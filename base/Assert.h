#pragma once

#include <cstdio>
#include <cstdlib>

/// Checks an invariant of our own code (never input). Active unless NDEBUG is set without
/// LUMENAR_KEEP_ASSERTS; a failure prints where it happened and aborts.
#if !defined(NDEBUG) || defined(LUMENAR_KEEP_ASSERTS)
#define LUM_ASSERT(cond, message)                                                                            \
    do {                                                                                                     \
        if (!(cond)) {                                                                                       \
            std::fprintf(stderr, "%s:%d: assertion failed: %s (%s)\n", __FILE__, __LINE__, #cond, message);  \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
#else
#define LUM_ASSERT(cond, message) ((void)0)
#endif
