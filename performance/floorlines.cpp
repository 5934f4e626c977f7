// SPDX-License-Identifier: MIT

// The least that a look at the board's inputs every 10 ms takes.

#include "performance/readlines.h"

#include <ctime>

int main()
{
    const timespec tick = {0, 10'000'000};
    for (;;) {
        readLines();
        nanosleep(&tick, nullptr);
    }
}
