// SPDX-License-Identifier: MIT
//
// Makes the virtual touch screen, touches it once at 100, 200 when a line comes on standard input,
// and takes it away at the input's end.
#include "board/simutouch.h"

#include <cstdio>
#include <linux/input.h>

int main()
{
    simutouch screen(nullptr);
    char line[16];
    if (fgets(line, sizeof line, stdin) != nullptr) {
        screen.touchemit(EV_ABS, ABS_MT_TRACKING_ID, 7);
        screen.touchemit(EV_ABS, ABS_MT_POSITION_X, 100);
        screen.touchemit(EV_ABS, ABS_MT_POSITION_Y, 200);
        screen.touchemit(EV_KEY, BTN_TOUCH, 1);
        screen.touchemit(EV_SYN, SYN_REPORT, 0);
        screen.touchemit(EV_ABS, ABS_MT_TRACKING_ID, -1);
        screen.touchemit(EV_KEY, BTN_TOUCH, 0);
        screen.touchemit(EV_SYN, SYN_REPORT, 0);
    }
    while (fgets(line, sizeof line, stdin) != nullptr) {
    }
    return 0;
}
