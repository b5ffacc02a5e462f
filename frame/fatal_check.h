// Identity checks that must stop the process in every build type.
#pragma once

#include <cstdio>
#include <cstdlib>

#define TIKRON_FATAL_CHECK(expr)                                                          \
    do {                                                                                  \
        if (!(expr)) {                                                                    \
            fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", __FILE__, __LINE__,   \
                    __func__, #expr);                                                     \
            fflush(stderr);                                                               \
            abort();                                                                      \
        }                                                                                 \
    } while (0)
