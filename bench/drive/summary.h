// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/board.h"
#include "bench/drive/drivefile.h"
#include "bench/drive/expectations.h"
#include "bench/drive/timeline.h"

#include <QTextStream>

/// The figures of a drive, printed when it is over.
struct Summary
{
    Board &board;
    const Drive &drive;
    const DriveClock &clock;
    const Timeline &timeline;
    const Expectations &expectations;
    int64_t endUs;           ///< real time since drive time 0
    int64_t worstLatenessUs; ///< real time

    void print(QTextStream &out) const;
};
