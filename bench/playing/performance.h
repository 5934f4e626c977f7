// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/board.h"
#include "bench/board/descriptor.h"
#include "bench/drive/drivefile.h"
#include "bench/judging/expectations.h"
#include "bench/playing/failures.h"
#include "bench/playing/player.h"
#include "bench/telling/facts.h"
#include "bench/telling/whyteller.h"

#include <QEventLoop>
#include <QSocketNotifier>
#include <QTimer>

#include <limits>
#include <vector>

/**
 * A drive on a board, wherever it comes from: what happens is told and judged, what is due goes out
 * at its deadline on the monotonic clock, so that a late wake-up does not shift what follows.
 * Times are real microseconds since drive time 0, negative before it.
 */
class Performance : public QObject
{
public:
    /// Powers the board and goes on until all is over.
    Outcome run();

    /// The number of a signal.
    void interrupt(int signal);

protected:
    static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

    /// Driven by a drive that foresees everything, or by hand.
    enum class Foresight { All, None };

    /// @p drive may grow while it is performed, but for expectations of the log.
    Performance(Board &board, const Drive &drive, const Playing &how, Foresight foresight);

    // What is played.
    virtual QString opening() const = 0; ///< of the timeline
    virtual void onReady() = 0;          ///< in each life of the board; wants startClock() in one
    virtual int64_t nextItemUs() const = 0;
    virtual void playDue(int64_t now) = 0;
    virtual bool isOver(int64_t now) const = 0; ///< but for what is still expected
    virtual QString liveText(int64_t now) const = 0;
    virtual bool isLog() const = 0;               ///< of a vehicle that no words tell of
    virtual void onTold(const Fact &, int64_t) {} ///< after it was told and judged
    virtual void onFinish(int64_t) {}             ///< before anything of the end is told

    void startClock();
    void onDeadline(); ///< plays what is due now
    void send(const BusFrame &frame, int64_t now);
    void perform(const Statement &statement);
    void fail(const QString &reason);
    void stopUnwritten(const QString &reason);
    bool isFinished() const { return mIsFinished; }
    Why why() const { return mWhyTeller.now(mClock.nowUs()); }
    int load() const { return static_cast<int>(mLoad); } ///< percent, in the last second

    Board &mBoard;
    const Drive &mDrive;
    Playing mHow;
    DriveClock mClock;
    Timeline mTimeline;
    Facts mFacts;
    Expectations mExpectations;
    int64_t mWorstLatenessUs = 0;
    QString mUnwritten; ///< what could not be written, and why

private:
    void onStartFailed(const QString &reason);
    void onHappened(const Fact &fact);
    void onHousekeeping();
    void takeRecords();
    void takeSettled(const Settled &settled);
    void lookForLoss();
    void setDeadline();
    void showLive();
    void writeLog(const QString &line);
    QString whyText() const;
    bool isOutputBroken();

    void endWhenQuiet();
    void endWithoutBoard(const QString &reason);
    void checkLost();
    void finish(int code);
    QString resultOf(int code) const;
    QString addEnd(const QVector<Figure> &figures, const QString &result, int64_t us);
    void end(int code, const QString &fault);

    const Foresight mForesight;
    Failures mFailures{mHow.name, mClock};
    WhyTeller mWhyTeller{mClock, mTimeline, mFacts};
    const Descriptor mTimer;
    QSocketNotifier mDeadline{mTimer, QSocketNotifier::Read};
    QTimer mHousekeeping;
    QTimer mRecordsDue;         ///< the burst of record fields is over
    QTimer mPowerUp;            ///< a board that lost its power gets it back
    std::vector<Fact> mRecords; ///< fields of one burst, told together
    int64_t mWireUs = 0;        ///< how long frames have kept the bus since mLoadUs
    int64_t mLoadUs = 0;
    int64_t mLoad = 0;   ///< percent
    quint64 mLost = 0;   ///< frames, at the last look
    int64_t mLostUs = 0; ///< when the first frame was lost
    bool mIsFinished = false;
    Outcome mOutcome;
    QEventLoop mLoop;
};
