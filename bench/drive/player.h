// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/board.h"
#include "bench/board/descriptor.h"
#include "bench/drive/drivefile.h"
#include "bench/drive/expectations.h"
#include "bench/drive/timeline.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTextStream>
#include <QTimer>

class QFileDevice;

/**
 * Plays a drive on a board: each frame and each statement at its deadline on the monotonic clock,
 * so that a late wake-up does not shift what follows. What is due at one wake-up goes out at once.
 */
class Player : public QObject
{
    Q_OBJECT

public:
    enum class Verdict { Held, NothingExpected, Failed, Interrupted };
    Q_ENUM(Verdict)

    /// @p speed: drive seconds per real second. @p log, may be null, gets each line of the
    /// controller's output behind its drive time.
    Player(Board &board, const Drive &drive, double speed, QTextStream &out, bool isColoured,
           QFileDevice *log);

    /// Powers the board and plays as soon as it is ready. finished() or broken() follows.
    void run();

    void interrupt(); ///< finished() follows, with the figures so far

Q_SIGNALS:
    void finished(Player::Verdict verdict);
    /// The board did not start, or nobody can read what is told; one line.
    void broken(const QString &reason, bool isBoard);

private:
    bool isStatementNext() const;
    int64_t nextItemUs() const;

    void onReady();
    void onStartFailed(const QString &reason);
    void onHappened(const Fact &fact);
    void takeRecords();
    void onDeadline();
    void onHousekeeping();

    void playDue();
    void perform(const Statement &statement);
    void setDeadline();
    void endWhenQuiet();
    void fail(const QString &reason);
    void checkLost();
    void finish(Verdict verdict);
    void tellFailure();
    bool isOutputBroken();
    void writeLog(const QString &line);

    Board &mBoard;
    const Drive &mDrive;
    DriveClock mClock;
    QTextStream &mOut;
    Timeline mTimeline;
    Expectations mExpectations;
    QFileDevice *mLog;

    const Descriptor mTimer; ///< timerfd
    QSocketNotifier mDeadline;
    QTimer mHousekeeping;
    QTimer mRecordsDue;         ///< the burst of record fields is over
    QTimer mPowerUp;            ///< a board that lost its power gets it back
    std::vector<Fact> mRecords; ///< fields of one burst, told together
    size_t mNextFrame = 0;
    size_t mNextStatement = 0;
    int64_t mWorstLatenessUs = 0;
    int64_t mQuietSinceUs = -1; ///< when everything was played and settled
    QStringList mFailures;      ///< beside the expectations'
    bool mIsFinished = false;
};
