// SPDX-License-Identifier: MIT

#include "bench/playing/performance.h"

#include "bench/car/vehicle.h"
#include "bench/report/report.h"
#include "bench/telling/summary.h"

#include <QFileDevice>

#include <algorithm>
#include <limits>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kHousekeepingMs = 100;
constexpr int kPowerOffMs = 100;  ///< of a board that loses its power
constexpr int kSchemaVersion = 2; ///< of the facts

int milliseconds(int64_t us)
{
    return static_cast<int>(std::min<int64_t>(us / 1000, std::numeric_limits<int>::max()));
}

} // namespace

Performance::Performance(Board &board, const Drive &drive, const Playing &how, Foresight foresight)
    : mBoard(board),
      mDrive(drive),
      mHow(how),
      mClock(how.speed),
      mTimeline(how.out, mClock, how.style),
      mFacts(mClock, how.json, how.report != nullptr),
      mExpectations(mClock, drive.statements,
                    [this](const Settled &settled) { takeSettled(settled); }),
      mForesight(foresight),
      mTimer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC))
{
    connect(&mBoard, &Board::ready, this, [this] { onReady(); });
    connect(&mBoard, &Board::startFailed, this, &Performance::onStartFailed);
    connect(&mBoard, &Board::happened, this, &Performance::onHappened);
    connect(&mBoard, &Board::failed, this, &Performance::fail);
    connect(&mDeadline, &QSocketNotifier::activated, this, &Performance::onDeadline);
    for (QTimer *timer : {&mRecordsDue, &mPowerUp})
        timer->setSingleShot(true);
    connect(&mRecordsDue, &QTimer::timeout, this, &Performance::takeRecords);
    connect(&mPowerUp, &QTimer::timeout, &mBoard, &Board::powerOn);
    connect(&mHousekeeping, &QTimer::timeout, this, &Performance::onHousekeeping);
    mHousekeeping.start(kHousekeepingMs);
}

Outcome Performance::run()
{
    mTimeline.note(-1, "drive", opening());
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

void Performance::interrupt(int signal)
{
    if (mIsFinished)
        return;
    mTimeline.note(mClock.nowUs(), "board", "interrupted", true);
    finish(128 + signal);
}

void Performance::startClock()
{
    mClock.start();
    mWhyTeller.tellNow(0); // as it is at the start
    onDeadline();
}

void Performance::onStartFailed(const QString &reason)
{
    if (mClock.isStarted())
        fail(reason);
    else
        endWithoutBoard(reason);
}

/// Of a real bus only the kernel knows, whom it would cost too much to ask for each frame.
void Performance::lookForLoss()
{
    const quint64 lost = mBoard.bus().lost();
    if (lost != std::exchange(mLost, lost))
        mWhyTeller.takeLoss(mClock.nowUs());
}

void Performance::endWithoutBoard(const QString &reason)
{
    mFacts.add(-1, "result", {}, "did not start: " + reason);
    end(kNoBoard, reason);
}

void Performance::onHappened(const Fact &fact)
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
    const bool isForeseen =
        mForesight == Foresight::None || mExpectations.isAwaited(fact.kind, fact.value);
    const QString because = mWhyTeller.take(fact, now);
    mFacts.take(fact, now);
    mTimeline.take(fact, now, because);
    mWhyTeller.follow(now);
    mExpectations.take(fact, now);
    onTold(fact, now);
    if (isOff && !isForeseen)
        fail("power off was not expected");
    else if (isOff)
        mPowerUp.start(kPowerOffMs);
    else if (now >= 0)
        setDeadline();
}

void Performance::takeRecords()
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

void Performance::onDeadline()
{
    if (mIsFinished)
        return;
    // One look at the clock for all of it: virtual time makes a system call of each.
    const int64_t now = mClock.nowUs();
    playDue(now);
    mExpectations.advance(now);
    setDeadline(); // and the timer is no longer readable
}

void Performance::onHousekeeping()
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

void Performance::send(const BusFrame &frame, int64_t now)
{
    mBoard.sendFrame(frame);
    mFacts.takeFrame(frame, now);
    if (isLog())
        mTimeline.takeFrame(frame, now);
    mWhyTeller.takeFrame(frame, now);
    mWireUs += vehicle::wireUs(frame);
}

void Performance::perform(const Statement &statement)
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

void Performance::setDeadline()
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
void Performance::showLive()
{
    const int64_t now = mClock.nowUs();
    if (now - mLoadUs >= 1'000'000) {
        mLoad = 100 * std::exchange(mWireUs, 0) / mClock.driveUs(now - mLoadUs);
        mLoadUs = now;
        mFacts.add(now, "load", {}, double(mLoad));
    }
    mTimeline.showLive(liveText(now));
}

void Performance::endWhenQuiet()
{
    const int64_t now = mClock.nowUs();
    if (mIsFinished || !isOver(now) || mExpectations.isWaiting())
        return;
    // The board finds out when the controller does not take the rest.
    if (mBoard.bus().waiting() == 0)
        finish(kHeld);
}

void Performance::fail(const QString &reason)
{
    if (mIsFinished)
        return;
    mTimeline.note(mClock.nowUs(), "board", reason, true);
    mFailures.add(reason, 0, mClock.nowUs());
    finish(kFailed);
}

void Performance::checkLost()
{
    const bool isExpected =
        std::any_of(mDrive.statements.begin(), mDrive.statements.end(),
                    [](const Statement &s) { return s.kind == Fact::Kind::Frames; });
    if (mBoard.bus().lost() == 0 || isExpected || mForesight == Foresight::None)
        return;
    QString text = "%1 frames were lost, which the drive does not expect";
    if (mHow.speed > 1)
        text += "; at --speed above 1 a controller may be too slow for the drive";
    mFailures.add(text.arg(mBoard.bus().lost()), 0, mLostUs);
}

void Performance::finish(int code)
{
    mIsFinished = true;
    mPowerUp.stop();
    mDeadline.setEnabled(false);
    checkLost();
    const int64_t endUs = mClock.nowUs();
    onFinish(endUs);
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

QString Performance::resultOf(int code) const
{
    return code > 128                                    ? "interrupted"
           : code == kUnwritten                          ? "played; not all of it could be written"
           : code == kFailed || !mFailures.all().empty() ? "FAILED"
           : mExpectations.asked() > 0                   ? "held"
                                                         : "played; nothing was expected of it";
}

/// What is known only now ends the facts, and the report is made of them. The result comes
/// last: it is another one if something could not be written, which is returned.
QString Performance::addEnd(const QVector<Figure> &figures, const QString &result, int64_t us)
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

void Performance::end(int code, const QString &fault)
{
    mIsFinished = true;
    mOutcome = {code, fault};
    mLoop.quit();
}

void Performance::takeSettled(const Settled &settled)
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
QString Performance::whyText() const
{
    const Why reasons = why();
    return QStringLiteral(" (%1)%2").arg(
        reasons.because,
        reasons.unmet.isEmpty() ? QString() : ", and the other is not: " + reasons.unmet);
}

/// A full disk, or a reader that has left.
bool Performance::isOutputBroken()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    const bool isLeft = poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
    if (!isLeft && mHow.out.status() == QTextStream::Ok)
        return false;
    end(kUnwritten, "standard output: " +
                        (isLeft ? "nobody reads it any more" : mHow.out.device()->errorString()));
    return true;
}

void Performance::writeLog(const QString &line)
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
void Performance::stopUnwritten(const QString &reason)
{
    if (mIsFinished)
        return;
    mUnwritten = reason;
    finish(kUnwritten);
}
