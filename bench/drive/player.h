#pragma once

#include "bench/board/board.h"
#include "bench/drive/drivefile.h"
#include "bench/drive/expectations.h"
#include "bench/drive/timeline.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTextStream>
#include <QTimer>

class QIODevice;

/**
 * Plays a drive on a board: each frame and each statement at its deadline on the monotonic clock,
 * so that a late wake-up does not shift what follows. What is due at one wake-up goes out at once.
 */
class Player : public QObject
{
    Q_OBJECT

public:
    /// @p speed: drive seconds per real second. @p log, may be null, gets each line of the
    /// controller's output behind its drive time.
    Player(Board &board, const Drive &drive, double speed, QTextStream &out, bool isColoured,
           QIODevice *log);
    ~Player() override;

    /// Powers the board and plays as soon as it is ready. finished() or notStarted() follows.
    void run();

Q_SIGNALS:
    void finished(bool isHeld);
    void notStarted(const QString &reason); ///< one line

private:
    int64_t nowUs() const; ///< real time since drive time 0, -1 before it
    int64_t realUs(int64_t driveUs) const;
    bool isStatementNext() const;
    int64_t nextItemUs() const;

    void onReady();
    void onStartFailed(const QString &reason);
    void onHappened(const Fact &fact);
    void takeRecords();
    void onDeadline();
    void onHousekeeping();

    void playDue();
    void playItem();
    void perform(const Statement &statement);
    void setDeadline();
    void endWhenQuiet();
    void fail(const QString &reason);
    void finish();
    void writeLog(const QString &line);

    Board &mBoard;
    const Drive &mDrive;
    const double mSpeed;
    QTextStream &mOut;
    Timeline mTimeline;
    Expectations mExpectations;
    QIODevice *mLog;

    const int mTimer; ///< timerfd
    QSocketNotifier mDeadline;
    QTimer mHousekeeping;
    QTimer mRecordsDue;         ///< the burst of record fields is over
    QTimer mPowerUp;            ///< a board that lost its power gets it back
    int64_t mStartUs = -1;      ///< monotonic time of drive time 0
    std::vector<Fact> mRecords; ///< fields of one burst, told together
    size_t mNextFrame = 0;
    size_t mNextStatement = 0;
    int64_t mWorstLatenessUs = 0;
    int64_t mQuietSinceUs = -1; ///< when everything was played and settled
    bool mIsFailed = false;
    bool mIsFinished = false;
};
