// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/drive/driveclock.h"
#include "bench/drive/tickcounts.h"

#include <QMap>
#include <QString>
#include <QTextStream>

#include <cstdint>

/**
 * Tells what happens, a line each: drive time, what, the text, and the picture routed then. Each
 * line is out before the next thing happens.
 *
 * Times come in as real microseconds since drive time 0, negative before it, and are printed as
 * drive time.
 */
class Timeline
{
public:
    Timeline(QTextStream &out, const DriveClock &clock, bool isColoured);

    void note(int64_t us, const QString &what, const QString &text, bool isBad = false);
    void take(const Fact &fact, int64_t us);

    /// Prints what was held back and has become due. Wanted several times a second.
    void advance(int64_t us);

    /// Adds up to the end of the drive. Nothing is printed after it but what the rest needs.
    void end(int64_t us);

    int switches() const { return mSwitches; }
    int commands() const { return mCommands; }
    int64_t shownUs(const QString &picture) const { return mShownUs.value(picture); }

private:
    void takeCommand(const QString &command, const QString &span, int64_t us);
    void takePicture(const QString &picture, int64_t us);
    void takeWatchdog(const QString &value, int64_t us);
    void takeRecord(const QString &field, const QString &value, int64_t us);
    void printRecord(int64_t us);
    void countPicture(int64_t us);

    QTextStream &mOut;
    const DriveClock &mClock;
    const bool mIsColoured;

    TickCounts mTickCounts;
    QString mPicture;
    int64_t mPictureSinceUs = 0;
    QMap<QString, int64_t> mShownUs; ///< real time per picture
    int mSwitches = 0;
    int mCommands = 0;

    QMap<QString, QString> mFields; ///< record fields that changed and are not printed yet
    int64_t mFieldsSinceUs = 0;
    bool mIsRecordDue = false; ///< one of them deserves a line of its own
    int64_t mRecordPrintedUs;
    int mLastSpeed = -1;

    bool mIsFlooded = false;
    bool mIsWatchdogOpen = false;
    bool mIsFed = false;
    int64_t mFedUs = 0;
};
