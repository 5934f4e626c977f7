#pragma once

#include "bench/board/board.h"
#include "bench/board/fact.h"
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
    struct Totals
    {
        Board::Figures figures;
        uint64_t framesInLog = 0; ///< of the chosen channel
        uint64_t framesSkipped = 0;
        uint64_t errorFrames = 0; ///< of those in the log
        int64_t endUs = 0;        ///< real time since drive time 0
        int64_t worstLatenessUs = 0;
        int held = 0;
        int failed = 0;
        int notReached = 0;
    };

    /// @p speed: drive seconds per real second.
    Timeline(QTextStream &out, double speed, bool isColoured);

    void note(int64_t us, const QString &what, const QString &text, bool isBad = false);
    void take(const Fact &fact, int64_t us);

    /// Prints what was held back and has become due. Wanted several times a second.
    void advance(int64_t us);

    void summarise(const Totals &totals);

private:
    void takeCommand(const QString &command, const QString &span, int64_t us);
    void takePicture(const QString &picture, int64_t us);
    void takeWatchdog(const QString &value, int64_t us);
    void takeRecord(const QString &field, const QString &value, int64_t us);
    void printRecord(int64_t us);
    void countPicture(int64_t us);
    void figure(const QString &name, const QString &value);
    QString shareOf(const QString &picture) const;

    QTextStream &mOut;
    const double mSpeed;
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

    bool mIsWatchdogOpen = false;
    bool mIsFed = false;
    int64_t mFedUs = 0;
};
