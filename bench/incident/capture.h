// SPDX-License-Identifier: MIT

#pragma once

#include "bench/incident/journal.h"

#include <QStringList>

#include <limits>

class QTextStream;

/// `pvm-bench capture` with these arguments: writes a drive that repeats what a journal and a log
/// of the bus tell. Returns the exit status.
int capture(const QStringList &arguments);

/// What is captured of what, and the names of both files.
struct CaptureOptions
{
    QString journal;
    QString can;
    QString channel = "can0";
    int64_t fromUs = 0; ///< the journal's times
    int64_t toUs = std::numeric_limits<int64_t>::max();
    bool isWithoutClock = false; ///< and without whatever else tells the day
};

/// Writes the drive of a journal that has lines, and of frames on its clock, if there are any.
/// Returns what is wrong, or an empty text.
QString writeDrive(Journal journal, std::vector<BusFrame> frames, const CaptureOptions &options,
                   QTextStream &out);
