// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/language/statement.h"

#include <QByteArray>

class QFileDevice;

/**
 * The drive that comes of driving: what was done, each frame of a live bus, and for each picture
 * that came the expectation of it. It is written as it is driven, so that however the bench ends
 * there is a whole drive. Nothing is written before something was done, and what the file held is
 * gone only then.
 *
 * Times are microseconds of drive time and never run backwards.
 */
class SavedDrive
{
public:
    /// @p file may be null, and has to outlive this.
    explicit SavedDrive(QFileDevice *file) : mFile(file) {}

    /// What somebody has said, at its own time.
    void take(const Statement &statement);

    /// What a live bus has sent.
    void takeFrame(const BusFrame &frame);

    /// What has come of it. Of all that the board tells only what a drive has to expect is kept.
    void takeFact(const Fact &fact, int64_t us);

    void end(int64_t us);

    bool isBegun() const { return mIsBegun; } ///< there is something of it
    int lines() const { return mLines; }      ///< so far
    const QString &fault() const { return mFault; }

private:
    void allowLoss();
    void expect(const QString &what, int64_t us, int64_t earlyUs);
    void add(const QByteArray &line);
    void begin();
    void write(const QByteArray &bytes);

    QFileDevice *mFile;
    QByteArray mBefore; ///< lines that only count when something is done
    bool mIsBegun = false;
    bool mIsLossAllowed = false;
    int64_t mLastUs = 0; ///< of the last `at` line
    int mLines = 0;
    QString mPicture = "PVM";
    QString mFault;
};
