// The offscreen panel tests count failed checks and carry on, so one run shows
// every broken habit of a panel rather than the first.
#pragma once

#include <cstdio>

inline int failures = 0;

#define CHECK(cond)                                                                       \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: CHECK failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                                   \
        }                                                                                 \
    } while (0)
