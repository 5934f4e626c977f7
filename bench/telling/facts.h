// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/fact.h"
#include "bench/drive/driveclock.h"
#include "bench/judging/expectations.h"
#include "bench/telling/figure.h"
#include "bench/why/whyreader.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>

class QFileDevice;

/**
 * Every fact of a drive as a JSON object, one a line; docs/drives.md tells what they hold. They are
 * written to a file as they come and kept for the report, each if it is wanted. Times come in as
 * real microseconds since drive time 0, negative before it.
 */
class Facts
{
public:
    /// @p file may be null, and has to outlive this. @p isKept: for the report.
    Facts(const DriveClock &clock, QFileDevice *file, bool isKept);

    /// One fact, with further members in @p fact. What cannot be written shows in fault().
    void add(int64_t us, const char *kind, const QString &subject, const QJsonValue &value = "",
             QJsonObject fact = {});

    /// One that the board told.
    void take(const Fact &fact, int64_t us);

    /// Why the picture is shown from then on, and why the other is not.
    void addWhy(const Why &why, int64_t us);

    /// One that ends the drive, settled before: its line in the drive, 0 for none.
    void addFailure(const QString &text, int line, int64_t settledUs, int64_t us);

    /// What each name counts, such as frames_lost.
    void addFigures(const QVector<Figure> &figures, int64_t us);

    /// The board's lines, as power-on finds or leaves them.
    void addLines();

    /// An expectation that is settled now.
    void addExpectation(const Settled &settled, int64_t us);

    /// What is known of the vehicle without a frame.
    void addCar(const QString &subject, const QString &value, int64_t us);

    /// What the vehicle tells in a frame. A value that moves is told in steps of 50 ms.
    void takeFrame(const BusFrame &frame, int64_t us);

    const QByteArray &kept() const { return mKept; } ///< all of it, but a log without end
    /// The same with the result behind it, which is not added yet.
    QByteArray keptWith(int64_t us, const QString &result) const;
    const QString &fault() const { return mFault; } ///< why the file is not whole

private:
    static constexpr int64_t kStepUs = 50'000;

    struct Told
    {
        QString value;
        int64_t us = -kStepUs;
    };

    bool isWanted() const { return mFile || mIsKept; }
    double seconds(int64_t us) const;

    const DriveClock &mClock;
    QFileDevice *mFile;
    const bool mIsKept;
    QByteArray mKept;
    qint64 mLogBytes = 0;
    QString mFault;
    QMap<QString, Told> mTold; ///< what the vehicle has told last, by subject
};
