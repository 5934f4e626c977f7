// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <cstdint>
#include <time.h>

/**
 * Real and drive time. Real time is counted in microseconds on the monotonic clock from drive time
 * 0 on, and is negative before it; a drive second lasts as long as the drive's speed asks.
 */
class DriveClock
{
public:
    /// @p speed: drive seconds per real second.
    explicit DriveClock(double speed) : mSpeed(speed) {}

    void start() { mStartUs = monotonicUs(); } ///< drive time 0
    bool isStarted() const { return mStartUs >= 0; }

    /// Real time, -1 before start().
    int64_t nowUs() const { return isStarted() ? monotonicUs() - mStartUs : -1; }
    /// A real time as the monotonic clock counts it.
    int64_t monotonicUs(int64_t realUs) const { return mStartUs + realUs; }

    // From drive time to real time and back, both in microseconds.
    int64_t realUs(int64_t driveUs) const { return int64_t(double(driveUs) / mSpeed); }
    int64_t driveUs(int64_t realUs) const { return int64_t(double(realUs) * mSpeed); }

    /// The drive time of a real one in seconds, as a column of 9 characters; "boot" before 0.
    QString column(int64_t realUs) const
    {
        return (realUs < 0 ? "boot" : seconds(driveUs(realUs))).rightJustified(9);
    }

    /// Microseconds as seconds, with so many digits behind the point.
    static QString seconds(int64_t us, int digits = 3)
    {
        return QString::number(static_cast<double>(us) / 1e6, 'f', digits);
    }

private:
    static int64_t monotonicUs()
    {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
    }

    double mSpeed;
    int64_t mStartUs = -1;
};
