// SPDX-License-Identifier: MIT

#pragma once

#include "bench/playing/player.h"

class Console;

/// What drives, and what becomes of it. Descriptors are -1 without.
struct Driving
{
    int words = -1;             ///< lines, unless there is a console
    Console *console = nullptr; ///< on which words are typed; null for a pipe
    int frames = -1; ///< lines as candump -L writes them; without, the vehicle is made of words
    QString channel; ///< of the frames, empty for that of the first
    QFileDevice *saved = nullptr; ///< gets the drive
    bool hasStandIn = true;       ///< the renderer is the bench's own
};

/// Powers the board and does what is said as it is said, until somebody ends it.
Outcome driveByHand(Board &board, const Driving &driving, const Playing &how,
                    sandbox::Inside &inside);
