// SPDX-License-Identifier: MIT

#pragma once

#include "bench/drive/driveclock.h"
#include "bench/telling/timeline.h"

#include <QPair>
#include <QString>
#include <QTextStream>

#include <deque>
#include <vector>

/// What made a drive fail, and the controller's log around the first of it. Times are real
/// microseconds since drive time 0.
class Failures
{
public:
    struct Failure
    {
        QString text; ///< with file, line and drive time in front
        int line;     ///< in the drive, 0 for none
        int64_t us;
    };

    /// @p name: the drive's file.
    Failures(const QString &name, const DriveClock &clock) : mName(name), mClock(clock) {}

    void add(const QString &text, int line, int64_t us);

    /// A line of the log.
    void takeLine(const QString &line, int64_t us);

    const std::vector<Failure> &all() const { return mAll; }

    /// The log around the first one, then all of them.
    void tell(QTextStream &out, const Timeline &timeline) const;

private:
    const QString mName;
    const DriveClock &mClock;
    std::vector<Failure> mAll;
    std::deque<QPair<int64_t, QString>>
        mLines;         ///< the last ones, or those around the first failure
    size_t mWanted = 0; ///< how many, once there is a failure
};
