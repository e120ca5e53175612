// require.h - a check in a fuzz target.
#pragma once

#include <cstdio>
#include <cstdlib>

// Fails the run: the fuzzer keeps the input.
inline void require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}
