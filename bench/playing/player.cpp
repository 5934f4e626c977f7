// SPDX-License-Identifier: MIT

#include "bench/playing/player.h"

#include "bench/board/descriptor.h"
#include "bench/board/printable.h"
#include "bench/car/vehicle.h"
#include "bench/drive/driveclock.h"
#include "bench/judging/expectations.h"
#include "bench/playing/failures.h"
#include "bench/report/report.h"
#include "bench/telling/facts.h"
#include "bench/telling/summary.h"
#include "bench/telling/whyteller.h"

#include <QEventLoop>
#include <QFileDevice>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <limits>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int kHousekeepingMs = 100;
constexpr int kPowerOffMs = 100;  ///< of a board that loses its power
constexpr int kSchemaVersion = 2; ///< of the facts
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

int milliseconds(int64_t us)
{
    return static_cast<int>(std::min<int64_t>(us / 1000, std::numeric_limits<int>::max()));
}

/// Plays each frame and each statement at its deadline on the monotonic clock, so that a late
/// wake-up does not shift what follows. What is due at one wake-up goes out at once.
class Player : public QObject
{
public:
    Player(Board &board, const Drive &drive, const Playing &how)
        : mBoard(board),
          mDrive(drive),
          mHow(how),
          mClock(how.speed),
          mTimeline(how.out, mClock, how.style),
          mFacts(mClock, how.json, how.report != nullptr),
          mIsLog(std::none_of(drive.statements.begin(), drive.statements.end(),
                              [](const Statement &s) { return s.isOfVehicle(); })),
          mExpectations(mClock, drive.statements,
                        [this](const Settled &settled) { takeSettled(settled); })
    {
        connect(&mBoard, &Board::ready, this, &Player::onReady);
        connect(&mBoard, &Board::startFailed, this, &Player::onStartFailed);
        connect(&mBoard, &Board::happened, this, &Player::onHappened);
        connect(&mBoard, &Board::failed, this, &Player::fail);
        connect(&mDeadline, &QSocketNotifier::activated, this, &Player::onDeadline);
        for (QTimer *timer : {&mRecordsDue, &mPowerUp})
            timer->setSingleShot(true);
        connect(&mRecordsDue, &QTimer::timeout, this, &Player::takeRecords);
        connect(&mPowerUp, &QTimer::timeout, &mBoard, &Board::powerOn);
        connect(&mHousekeeping, &QTimer::timeout, this, &Player::onHousekeeping);
        mHousekeeping.start(kHousekeepingMs);
    }

    Outcome run()
    {
        mTimeline.note(-1, "drive",
                       QStringLiteral("lasts %1 s and has %2 frames")
                           .arg(DriveClock::seconds(mDrive.endUs, 1))
                           .arg(mDrive.frames.size()));
        mFacts.add(-1, "run", mHow.run["version"].toString(), kSchemaVersion, mHow.run);
        mFacts.add(-1, "drive", mHow.name, double(mDrive.endUs) / 1e6);
        mFacts.addLines();
        for (const QString &remark : mDrive.remarks) {
            mTimeline.note(-1, "drive", remark);
            mFacts.add(-1, "remark", remark);
        }
        mBoard.powerOn();
        if (!mIsFinished)
            mLoop.exec();
        return mOutcome;
    }

    void interrupt(int signal)
    {
        if (mIsFinished)
            return;
        mTimeline.note(mClock.nowUs(), "board", "interrupted", true);
        finish(128 + signal);
    }

private:
    bool isStatementNext() const
    {
        if (mNextStatement == mDrive.statements.size())
            return false;
        return mNextFrame == mDrive.frames.size() ||
               mDrive.statements[mNextStatement].atUs <= mDrive.timeOf(mDrive.frames[mNextFrame]);
    }

    int64_t nextItemUs() const
    {
        if (isStatementNext())
            return mClock.realUs(mDrive.statements[mNextStatement].atUs);
        if (mNextFrame < mDrive.frames.size())
            return mClock.realUs(mDrive.timeOf(mDrive.frames[mNextFrame]));
        return kNever;
    }

    void onReady()
    {
        if (mClock.isStarted())
            return; // another life of the board
        mClock.start();
        mWhyTeller.tellNow(0); // as it is at the start
        onDeadline();
    }

    void onStartFailed(const QString &reason)
    {
        if (mClock.isStarted())
            fail(reason);
        else
            endWithoutBoard(reason);
    }

    /// Of a real bus only the kernel knows, whom it would cost too much to ask for each frame.
    void lookForLoss()
    {
        const quint64 lost = mBoard.bus().lost();
        if (lost != std::exchange(mLost, lost))
            mWhyTeller.takeLoss(mClock.nowUs());
    }

    void endWithoutBoard(const QString &reason)
    {
        mFacts.add(-1, "result", {}, "did not start: " + reason);
        end(kNoBoard, reason);
    }

    void onHappened(const Fact &fact)
    {
        if (mIsFinished)
            return;
        if (fact.kind == Fact::Kind::Record) {
            mRecordsDue.start(0);
            mRecords.push_back(fact);
            return;
        }
        takeRecords();
        if (fact.kind == Fact::Kind::Log)
            writeLog(fact.subject);
        else if (fact.kind == Fact::Kind::Renderer && !fact.subject.isEmpty())
            writeLog("renderer: " + fact.subject);
        if (mIsFinished)
            return;
        const int64_t now = mClock.nowUs();
        const bool isOff = fact.kind == Fact::Kind::Power && fact.value == "off";
        if (fact.kind == Fact::Kind::Frames)
            mLostUs = now;
        const bool isForeseen = mExpectations.isAwaited(fact.kind, fact.value);
        const QString because = mWhyTeller.take(fact, now);
        mFacts.take(fact, now);
        mTimeline.take(fact, now, because);
        mWhyTeller.follow(now);
        mExpectations.take(fact, now);
        if (isOff && !isForeseen)
            fail("power off was not expected");
        else if (isOff)
            mPowerUp.start(kPowerOffMs);
        else if (now >= 0)
            setDeadline();
    }

    void takeRecords()
    {
        if (mRecords.empty() || mIsFinished)
            return;
        const int64_t now = mClock.nowUs();
        for (const Fact &fact : mRecords) {
            mFacts.take(fact, now);
            mTimeline.take(fact, now, {});
        }
        for (const Fact &fact : mRecords)
            mExpectations.take(fact, now);
        mRecords.clear();
        if (now >= 0)
            setDeadline();
    }

    void onDeadline()
    {
        if (mIsFinished)
            return;
        // One look at the clock for all of it: virtual time makes a system call of each.
        const int64_t now = mClock.nowUs();
        playDue(now);
        mExpectations.advance(now);
        setDeadline(); // and the timer is no longer readable
    }

    void onHousekeeping()
    {
        if (mIsFinished || isOutputBroken() || !mClock.isStarted())
            return;
        lookForLoss();
        mWhyTeller.follow(mClock.nowUs());
        mTimeline.advance(mClock.nowUs());
        mExpectations.advance(mClock.nowUs());
        showLive();
        if (!mFacts.fault().isEmpty())
            stopUnwritten("the facts: " + mFacts.fault());
        endWhenQuiet();
    }

    void playDue(int64_t now)
    {
        for (int64_t due = nextItemUs(); due <= now && !mIsFinished; due = nextItemUs()) {
            mWorstLatenessUs = std::max(mWorstLatenessUs, now - due);
            if (isStatementNext())
                perform(mDrive.statements[mNextStatement++]);
            else
                send(mDrive.frames[mNextFrame++], now);
        }
    }

    void send(const BusFrame &frame, int64_t now)
    {
        mBoard.sendFrame(frame);
        mFacts.takeFrame(frame, now);
        if (mIsLog)
            mTimeline.takeFrame(frame, now);
        mWhyTeller.takeFrame(frame, now);
        mWireUs += vehicle::wireUs(frame);
    }

    void perform(const Statement &statement)
    {
        if (!statement.isExpectation())
            mFacts.add(mClock.nowUs(), "do", statement.text, "", {{"line", statement.line}});
        const QString &value = statement.value;
        const bool isOn = value == "on";
        switch (statement.verb) {
        case Verb::StartRenderer:
            return mBoard.renderer().start();
        case Verb::KillRenderer:
            return mBoard.renderer().kill();
        case Verb::HoldLink:
            return mBoard.renderer().holdLink(value == "holds");
        case Verb::SetRendererFlag:
            return mBoard.renderer().setFlag(statement.subject, isOn);
        case Verb::SetHeartbeat:
            return mBoard.renderer().setHeartbeatPeriod(milliseconds(statement.spanUs));
        case Verb::SetBus:
            return mBoard.setBusUp(value == "up");
        case Verb::PressSwitch:
            return mBoard.inputs().pressSwitch(value == "press");
        case Verb::ClickSwitch:
            return mBoard.inputs().clickSwitch(milliseconds(statement.spanUs));
        case Verb::BounceSwitch:
            return mBoard.inputs().bounceSwitch(milliseconds(statement.spanUs));
        case Verb::SetLine:
            return mBoard.inputs().set(statement.subject, isOn);
        case Verb::SetReadable:
            return mBoard.inputs().setReadable(statement.subject, value == "readable");
        case Verb::SlowScripts:
        case Verb::SetScripts:
            return mBoard.setScripts(milliseconds(statement.spanUs), value == "failing");
        case Verb::RunCommand:
            mTimeline.note(mClock.nowUs(), "board", statement.text);
            return mBoard.run(value);
        case Verb::OmitWatchdog: // was built so
        case Verb::RestartController:
        case Verb::AllowLoss:
        case Verb::Pace:
        case Verb::End:
            break;
        default:
            if (statement.isExpectation())
                mExpectations.ask(statement, mClock.nowUs());
            else // of the vehicle; its frames are made already
                mTimeline.note(mClock.nowUs(), "car", statement.text);
        }
    }

    void setDeadline()
    {
        const int64_t next = std::min(nextItemUs(), mExpectations.nextDueUs());
        itimerspec deadline = {};
        if (next != kNever) {
            const int64_t us = mClock.monotonicUs(next);
            deadline.it_value.tv_sec = us / 1'000'000;
            deadline.it_value.tv_nsec = us % 1'000'000 * 1000;
        }
        timerfd_settime(mTimer, TFD_TIMER_ABSTIME, &deadline, nullptr);
    }

    /// The bus as it was loaded in the last second.
    void showLive()
    {
        const int64_t now = mClock.nowUs();
        if (now - mLoadUs >= 1'000'000) {
            mLoad = 100 * std::exchange(mWireUs, 0) / mClock.driveUs(now - mLoadUs);
            mLoadUs = now;
            mFacts.add(now, "load", {}, double(mLoad));
        }
        mTimeline.showLive(
            QStringLiteral("%1%2 of %3 s, bus %4 %, %5 of %6 expectations held, %7 failed")
                .arg(mTimeline.picture(), -3)
                .arg(mClock.column(now), DriveClock::seconds(mDrive.endUs, 1))
                .arg(mLoad)
                .arg(mExpectations.held())
                .arg(mExpectations.asked())
                .arg(mExpectations.failed()));
    }

    void endWhenQuiet()
    {
        const int64_t now = mClock.nowUs();
        if (mIsFinished || nextItemUs() != kNever || now < mClock.realUs(mDrive.endUs) ||
            mExpectations.isWaiting())
            return;
        // The board finds out when the controller does not take the rest.
        if (mBoard.bus().waiting() == 0)
            finish(kHeld);
    }

    void fail(const QString &reason)
    {
        if (mIsFinished)
            return;
        mTimeline.note(mClock.nowUs(), "board", reason, true);
        mFailures.add(reason, 0, mClock.nowUs());
        finish(kFailed);
    }

    void checkLost()
    {
        const bool isExpected =
            std::any_of(mDrive.statements.begin(), mDrive.statements.end(),
                        [](const Statement &s) { return s.kind == Fact::Kind::Frames; });
        if (mBoard.bus().lost() == 0 || isExpected)
            return;
        QString text = "%1 frames were lost, which the drive does not expect";
        if (mHow.speed > 1)
            text += "; at --speed above 1 a controller may be too slow for the drive";
        mFailures.add(text.arg(mBoard.bus().lost()), 0, mLostUs);
    }

    void finish(int code)
    {
        mIsFinished = true;
        mPowerUp.stop();
        mDeadline.setEnabled(false);
        checkLost();
        const int64_t endUs = mClock.nowUs();
        mWhyTeller.tellNow(endUs);
        mTimeline.end(endUs);
        mTimeline.showLive({});
        const QVector<Figure> figures =
            Summary{mBoard, mDrive, mClock, mTimeline, mExpectations, endUs, mWorstLatenessUs}
                .figures();
        if (code <= 128 && !mFailures.all().empty())
            code = kFailed;
        QString fault = addEnd(figures, resultOf(code), endUs);
        if (!fault.isEmpty())
            code = kUnwritten;

        mHow.out << '\n';
        for (const Figure &figure : figures)
            mHow.out << QStringLiteral("  %1 %2\n").arg(figure.what, -22).arg(figure.text);
        if (!mFailures.all().empty())
            mFailures.tell(mHow.out, mTimeline);
        mHow.out << "\ndrive " << resultOf(code);
        if (code == kFailed && mHow.report)
            mHow.out << "; to look at it: " << mHow.reportName;
        mHow.out << '\n';
        mHow.out.flush();
        // Nobody may take a run for held whose report was lost.
        if (!isOutputBroken())
            end(code, fault);
    }

    QString resultOf(int code) const
    {
        return code > 128           ? "interrupted"
               : code == kUnwritten ? "played; not all of it could be written"
               : code == kFailed || !mFailures.all().empty() ? "FAILED"
               : mExpectations.asked() > 0                   ? "held"
                                                             : "played; nothing was expected of it";
    }

    /// What is known only now ends the facts, and the report is made of them. The result comes
    /// last: it is another one if something could not be written, which is returned.
    QString addEnd(const QVector<Figure> &figures, const QString &result, int64_t us)
    {
        mFacts.addFigures(figures, us);
        for (const Failures::Failure &failure : mFailures.all())
            mFacts.addFailure(failure.text, failure.line, failure.us, us);
        if (mUnwritten.isEmpty() && mHow.report) {
            const QByteArray page = reportPage(mFacts.keptWith(us, result));
            if (mHow.report->write(page) != page.size()) {
                mUnwritten = mHow.reportName + ": " + mHow.report->errorString();
                mHow.report->resize(0); // half a page is none
            }
        }
        mFacts.add(us, "result", {}, mUnwritten.isEmpty() ? result : resultOf(kUnwritten));
        if (mUnwritten.isEmpty() && !mFacts.fault().isEmpty())
            mUnwritten = "the facts: " + mFacts.fault();
        return mUnwritten;
    }

    void end(int code, const QString &fault)
    {
        mIsFinished = true;
        mOutcome = {code, fault};
        mLoop.quit();
    }

    void takeSettled(const Settled &settled)
    {
        const int64_t now = mClock.nowUs();
        mFacts.addExpectation(settled, now);
        // A request for a picture is the controller's, and has its reasons too.
        const bool isOfPicture =
            settled.kind == Fact::Kind::Picture || settled.what.contains("toSwitchVideo");
        if (!settled.isHeld)
            mFailures.add(settled.text + (isOfPicture ? whyText() : QString()) +
                              (settled.comment.isEmpty() ? QString() : "; " + settled.comment),
                          settled.line, now);
        if (!settled.isHeld || mHow.style.isVerbose)
            mTimeline.note(
                now, "expect",
                settled.isHeld
                    ? settled.text
                    : QStringLiteral("FAILED (line %1): %2").arg(settled.line).arg(settled.text),
                !settled.isHeld);
    }

    /// Of the moment.
    QString whyText() const
    {
        const Why why = mWhyTeller.now(mClock.nowUs());
        return QStringLiteral(" (%1)%2").arg(
            why.because, why.unmet.isEmpty() ? QString() : ", and the other is not: " + why.unmet);
    }

    /// A full disk, or a reader that has left.
    bool isOutputBroken()
    {
        pollfd output{STDOUT_FILENO, 0, 0};
        const bool isLeft = poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
        if (!isLeft && mHow.out.status() == QTextStream::Ok)
            return false;
        end(kUnwritten, "standard output: " + (isLeft ? "nobody reads it any more"
                                                      : mHow.out.device()->errorString()));
        return true;
    }

    void writeLog(const QString &line)
    {
        const int64_t now = mClock.nowUs();
        mFailures.takeLine(line, now);
        if (!mHow.log)
            return;
        const QByteArray text = QStringLiteral("%1  %2\n").arg(mClock.column(now), line).toUtf8();
        if (mHow.log->write(text) == text.size())
            return;
        const QString error = mHow.log->errorString();
        mHow.log = nullptr;
        stopUnwritten("the log: " + error);
    }

    /// What cannot be written ends the drive, whose verdict nobody would know.
    void stopUnwritten(const QString &reason)
    {
        if (mIsFinished)
            return;
        mUnwritten = reason;
        finish(kUnwritten);
    }

    Board &mBoard;
    const Drive &mDrive;
    Playing mHow;
    DriveClock mClock;
    Timeline mTimeline;
    Facts mFacts;
    const bool mIsLog; ///< of a vehicle that no words tell of
    Expectations mExpectations;
    Failures mFailures{mHow.name, mClock};
    WhyTeller mWhyTeller{mClock, mTimeline, mFacts};
    const Descriptor mTimer{timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)};
    QSocketNotifier mDeadline{mTimer, QSocketNotifier::Read};
    QTimer mHousekeeping;
    QTimer mRecordsDue;         ///< the burst of record fields is over
    QTimer mPowerUp;            ///< a board that lost its power gets it back
    std::vector<Fact> mRecords; ///< fields of one burst, told together
    size_t mNextFrame = 0;
    size_t mNextStatement = 0;
    int64_t mWorstLatenessUs = 0;
    int64_t mWireUs = 0; ///< how long frames have kept the bus since mLoadUs
    int64_t mLoadUs = 0;
    int64_t mLoad = 0;   ///< percent
    quint64 mLost = 0;   ///< frames, at the last look
    int64_t mLostUs = 0; ///< when the first frame was lost
    QString mUnwritten;  ///< what could not be written, and why
    bool mIsFinished = false;
    Outcome mOutcome;
    QEventLoop mLoop;
};

} // namespace

Outcome playDrive(Board &board, const Drive &drive, const Playing &how, sandbox::Inside &inside)
{
    Player player(board, drive, how);
    inside.watch([&player](int signal) { player.interrupt(signal); });
    return player.run();
}
