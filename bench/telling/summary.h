// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/board.h"
#include "bench/drive/drivefile.h"
#include "bench/judging/expectations.h"
#include "bench/telling/timeline.h"

#include "bench/telling/figure.h"

/// The figures of a drive when it is over.
struct Summary
{
    Board &board;
    const Drive &drive;
    const DriveClock &clock;
    const Timeline &timeline;
    const Expectations &expectations;
    int64_t endUs;           ///< real time since drive time 0
    int64_t worstLatenessUs; ///< real time

    /// In the order in which people read them. Samples the controller's process once more.
    QVector<Figure> figures() const;

private:
    Figure frames() const;
    Figure onTheBus() const;
    Figure pictures() const;
    QString share(const QString &picture) const;
    Figure settled() const;
    QVector<Figure> controllersFigures() const;
};
