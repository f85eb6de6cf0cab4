#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program when the library and its model disagree: the fuzzer keeps the input.
inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::fflush(stderr);
        std::abort();
    }
}
