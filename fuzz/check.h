// SPDX-License-Identifier: MIT

#pragma once

#include <cstdio>
#include <cstdlib>

/// What must hold, whatever the input. The fuzzer keeps the input that ends the process.
inline void check(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "does not hold: %s\n", what);
    abort();
}
