// SPDX-License-Identifier: MIT

#include "bench/board/stopsignal.h"

#include <csignal>
#include <initializer_list>

namespace {

volatile sig_atomic_t gTold = 0;

} // namespace

void stopsignal::await()
{
    struct sigaction action = {};
    action.sa_handler = [](int signal) { gTold = signal; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

int stopsignal::told()
{
    return gTold;
}
