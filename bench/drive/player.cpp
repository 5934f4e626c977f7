// SPDX-License-Identifier: MIT

#include "bench/drive/player.h"

#include "bench/board/printable.h"
#include "bench/drive/summary.h"

#include <QFileDevice>
#include <QMap>

#include <algorithm>
#include <limits>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr int kHousekeepingMs = 100;
constexpr int64_t kQuietWithinUs = 5'000'000; ///< for the last frames to be taken
constexpr int kLogLinesShown = 20;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

int milliseconds(int64_t us)
{
    return static_cast<int>(std::min<int64_t>(us / 1000, std::numeric_limits<int>::max()));
}

} // namespace

Player::Player(Board &board, const Drive &drive, double speed, QTextStream &out, bool isColoured,
               QFileDevice *log)
    : mBoard(board),
      mDrive(drive),
      mClock(speed),
      mOut(out),
      mTimeline(out, mClock, isColoured),
      mExpectations(mClock, drive.statements,
                    [this](const QString &text, bool held) {
                        mTimeline.note(mClock.nowUs(), QStringLiteral("expect"), text, !held);
                    }),
      mLog(log),
      mTimer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      mDeadline(mTimer, QSocketNotifier::Read)
{
    connect(&mBoard, &Board::ready, this, &Player::onReady);
    connect(&mBoard, &Board::startFailed, this, &Player::onStartFailed);
    connect(&mBoard, &Board::happened, this, &Player::onHappened);
    connect(&mBoard, &Board::controllerLost, this, &Player::fail);
    connect(&mDeadline, &QSocketNotifier::activated, this, &Player::onDeadline);
    for (QTimer *timer : {&mRecordsDue, &mPowerUp})
        timer->setSingleShot(true);
    connect(&mRecordsDue, &QTimer::timeout, this, &Player::takeRecords);
    connect(&mPowerUp, &QTimer::timeout, &mBoard, &Board::powerOn);
    connect(&mHousekeeping, &QTimer::timeout, this, &Player::onHousekeeping);
    mHousekeeping.start(kHousekeepingMs);
}

void Player::run()
{
    mTimeline.note(-1, QStringLiteral("drive"),
                   QStringLiteral("lasts %1 s and has %2 frames")
                       .arg(DriveClock::seconds(mDrive.endUs, 1))
                       .arg(mDrive.frames.size()));
    for (const QString &remark : mDrive.remarks)
        mTimeline.note(-1, QStringLiteral("drive"), remark);
    mTimeline.note(-1, QStringLiteral("board"),
                   QStringLiteral("powered, waiting for the controller"));
    mBoard.powerOn();
}

bool Player::isStatementNext() const
{
    if (mNextStatement == mDrive.statements.size())
        return false;
    return mNextFrame == mDrive.frames.size() ||
           mDrive.statements[mNextStatement].atUs <= mDrive.timeOf(mDrive.frames[mNextFrame]);
}

int64_t Player::nextItemUs() const
{
    if (isStatementNext())
        return mClock.realUs(mDrive.statements[mNextStatement].atUs);
    if (mNextFrame < mDrive.frames.size())
        return mClock.realUs(mDrive.timeOf(mDrive.frames[mNextFrame]));
    return kNever;
}

void Player::onReady()
{
    if (mClock.isStarted())
        return; // another life of the board
    mClock.start();
    onDeadline();
}

void Player::onStartFailed(const QString &reason)
{
    if (mClock.isStarted())
        fail(reason);
    else
        Q_EMIT broken(reason, true);
}

void Player::onHappened(const Fact &fact)
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
    if (mIsFinished)
        return;
    const int64_t now = mClock.nowUs();
    const bool isOff = fact.kind == Fact::Kind::Power && fact.value == QLatin1String("off");
    const bool isForeseen = mExpectations.isAwaited(fact.kind, fact.value);
    mTimeline.take(fact, now);
    mExpectations.take(fact, now);
    if (isOff && !isForeseen)
        fail(QStringLiteral("power off was not expected"));
    else if (isOff)
        mPowerUp.start(0);
    else if (now >= 0)
        setDeadline();
}

void Player::takeRecords()
{
    if (mRecords.empty() || mIsFinished)
        return;
    const int64_t now = mClock.nowUs();
    for (const Fact &fact : mRecords)
        mTimeline.take(fact, now);
    for (const Fact &fact : mRecords)
        mExpectations.take(fact, now);
    mRecords.clear();
    if (now >= 0)
        setDeadline();
}

void Player::onDeadline()
{
    uint64_t expirations = 0;
    [[maybe_unused]] const ssize_t ignored = read(mTimer, &expirations, sizeof expirations);
    if (mIsFinished)
        return;
    playDue();
    mExpectations.advance(mClock.nowUs());
    setDeadline();
}

void Player::onHousekeeping()
{
    if (mIsFinished || isOutputBroken() || !mClock.isStarted())
        return;
    mTimeline.advance(mClock.nowUs());
    mExpectations.advance(mClock.nowUs());
    endWhenQuiet();
}

/// A full disk, or a reader that has left.
bool Player::isOutputBroken()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    const bool isLeft = poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
    if (!isLeft && mOut.status() == QTextStream::Ok)
        return false;
    mIsFinished = true;
    Q_EMIT broken(
        QStringLiteral("standard output: ") +
            (isLeft ? QStringLiteral("nobody reads it any more") : mOut.device()->errorString()),
        false);
    return true;
}

void Player::playDue()
{
    int64_t now = mClock.nowUs();
    for (int64_t due = nextItemUs(); due <= now && !mIsFinished; due = nextItemUs()) {
        mWorstLatenessUs = std::max(mWorstLatenessUs, now - due);
        if (isStatementNext())
            perform(mDrive.statements[mNextStatement++]);
        else
            mBoard.sendFrame(mDrive.frames[mNextFrame++]);
        if (nextItemUs() > now)
            now = mClock.nowUs();
    }
}

void Player::perform(const Statement &statement)
{
    const QString &value = statement.value;
    const bool isOn = value == QLatin1String("on");
    switch (statement.verb) {
    case Verb::StartRenderer:
        mBoard.renderer().start();
        break;
    case Verb::KillRenderer:
        mBoard.renderer().kill();
        break;
    case Verb::SetRendererFlag:
        mBoard.renderer().setFlag(statement.subject, isOn);
        break;
    case Verb::SetBus:
        mBoard.setBusUp(value == QLatin1String("up"));
        break;
    case Verb::PressSwitch:
        mBoard.inputs().pressSwitch(value == QLatin1String("press"));
        break;
    case Verb::ClickSwitch:
        mBoard.inputs().clickSwitch(milliseconds(statement.spanUs));
        break;
    case Verb::BounceSwitch:
        mBoard.inputs().bounceSwitch(milliseconds(statement.spanUs));
        break;
    case Verb::SetLine:
        mBoard.inputs().set(statement.subject, isOn);
        break;
    case Verb::SetReadable:
        mBoard.inputs().setReadable(statement.subject, value == QLatin1String("readable"));
        break;
    case Verb::SlowScripts:
    case Verb::SetScripts:
        mBoard.setScripts(milliseconds(statement.spanUs), value == QLatin1String("failing"));
        break;
    case Verb::OmitWatchdog: // was built so
    case Verb::Pace:
    case Verb::End:
        break;
    default:
        if (statement.isExpectation())
            mExpectations.ask(statement, mClock.nowUs());
        else // of the vehicle; its frames are made already
            mTimeline.note(mClock.nowUs(), QStringLiteral("car"), statement.text);
    }
}

void Player::setDeadline()
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

void Player::endWhenQuiet()
{
    const int64_t now = mClock.nowUs();
    if (mIsFinished || nextItemUs() != kNever || now < mClock.realUs(mDrive.endUs) ||
        mExpectations.isWaiting())
        return;
    if (mQuietSinceUs < 0 || mBoard.isCommandRunning())
        mQuietSinceUs = now;
    if (mBoard.bus().waiting() == 0)
        finish(mExpectations.asked() == 0 ? Verdict::NothingExpected : Verdict::Held);
    else if (now - mQuietSinceUs > kQuietWithinUs)
        fail(QStringLiteral("the controller hangs: it has not read the bus to its end"));
}

void Player::interrupt()
{
    if (mIsFinished)
        return;
    mTimeline.note(mClock.nowUs(), QStringLiteral("board"), QStringLiteral("interrupted"), true);
    finish(Verdict::Interrupted);
}

void Player::fail(const QString &reason)
{
    if (mIsFinished)
        return;
    mTimeline.note(mClock.nowUs(), QStringLiteral("board"), reason, true);
    mFailures << QStringLiteral("FAILED: ") + reason;
    finish(Verdict::Failed);
}

void Player::checkLost()
{
    const bool isExpected =
        std::any_of(mDrive.statements.begin(), mDrive.statements.end(),
                    [](const Statement &s) { return s.kind == Fact::Kind::Frames; });
    if (mBoard.bus().lost() > 0 && !isExpected)
        mFailures << QStringLiteral("FAILED: %1 frames were lost, which the drive does not expect")
                         .arg(mBoard.bus().lost());
}

void Player::finish(Verdict verdict)
{
    mIsFinished = true;
    mPowerUp.stop();
    mDeadline.setEnabled(false);
    checkLost();
    const int64_t endUs = mClock.nowUs();
    mTimeline.end(endUs);
    Summary{mBoard, mDrive, mClock, mTimeline, mExpectations, endUs, mWorstLatenessUs}.print(mOut);

    mFailures = mExpectations.failures() + mFailures;
    if (!mFailures.isEmpty())
        tellFailure();
    if (verdict != Verdict::Interrupted && !mFailures.isEmpty())
        verdict = Verdict::Failed;
    static const QMap<Verdict, const char *> words{
        {Verdict::Held, "held"},
        {Verdict::NothingExpected, "played; nothing was expected of it"},
        {Verdict::Failed, "FAILED"},
        {Verdict::Interrupted, "interrupted"}};
    mOut << "\ndrive " << words[verdict] << '\n';
    mOut.flush();
    // Nobody may take a run for held whose report was lost.
    if (!isOutputBroken())
        Q_EMIT finished(verdict);
}

void Player::tellFailure()
{
    mOut << "\nThe last lines of the controller's log:\n";
    for (const QString &line : mBoard.controller().lastLines(kLogLinesShown))
        mOut << "  " << printable(line) << '\n';
    mOut << '\n';
    for (const QString &failure : mFailures)
        mOut << printable(failure, 1000) << '\n';
}

void Player::writeLog(const QString &line)
{
    if (!mLog)
        return;
    const QByteArray text =
        QStringLiteral("%1  %2\n").arg(mClock.column(mClock.nowUs()), line).toUtf8();
    if (mLog->write(text) == text.size())
        return;
    const QString error = mLog->errorString();
    mLog = nullptr;
    fail(QStringLiteral("the log: ") + error);
}
