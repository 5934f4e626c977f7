#include "bench/drive/player.h"

#include <QIODevice>

#include <algorithm>
#include <limits>
#include <linux/can.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int kHousekeepingMs = 100;
constexpr int64_t kQuietWithinUs = 5'000'000; ///< for the last frames to be taken
constexpr int kLogLinesShown = 20;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

int64_t monotonicUs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

int milliseconds(const Statement &statement)
{
    return static_cast<int>(
        std::min<int64_t>(statement.spanUs / 1000, std::numeric_limits<int>::max()));
}

/// Of a line's name, or of "lock NAME".
Inputs::Line inputOf(const Statement &statement)
{
    for (const QString &word : statement.words) {
        if (word == QLatin1String("switch"))
            return Inputs::Line::Switch;
        if (word == QLatin1String("acc"))
            return Inputs::Line::Acc;
        if (word.startsWith(QLatin1String("deserializer")))
            return Inputs::Line::DeserializerLock;
    }
    return Inputs::Line::SerializerLock;
}

} // namespace

Player::Player(Board &board, const Drive &drive, double speed, QTextStream &out, bool isColoured,
               QIODevice *log)
    : mBoard(board),
      mDrive(drive),
      mSpeed(speed),
      mOut(out),
      mTimeline(out, speed, isColoured),
      mExpectations(speed,
                    [this](const QString &text, bool held) {
                        mTimeline.note(nowUs(), QStringLiteral("expect"), text, !held);
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
}

Player::~Player()
{
    mDeadline.setEnabled(false);
    close(mTimer);
}

void Player::run()
{
    if (mDrive.skipped)
        mTimeline.note(nowUs(), QStringLiteral("board"),
                       QStringLiteral("%1 CAN FD and remote frames of the log are skipped")
                           .arg(mDrive.skipped));
    if (mDrive.elsewhere)
        mTimeline.note(
            nowUs(), QStringLiteral("board"),
            QStringLiteral("%1 frames of other channels are left out").arg(mDrive.elsewhere));
    mTimeline.note(nowUs(), QStringLiteral("board"),
                   QStringLiteral("powered, waiting for the controller"));
    mBoard.powerOn();
}

int64_t Player::nowUs() const
{
    return mStartUs < 0 ? -1 : monotonicUs() - mStartUs;
}

int64_t Player::realUs(int64_t driveUs) const
{
    return static_cast<int64_t>(static_cast<double>(driveUs) / mSpeed);
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
        return realUs(mDrive.statements[mNextStatement].atUs);
    if (mNextFrame < mDrive.frames.size())
        return realUs(mDrive.timeOf(mDrive.frames[mNextFrame]));
    return kNever;
}

void Player::onReady()
{
    if (mStartUs >= 0)
        return; // another life of the board
    mStartUs = monotonicUs();
    mHousekeeping.start(kHousekeepingMs);
    onDeadline();
}

void Player::onStartFailed(const QString &reason)
{
    if (mStartUs >= 0)
        fail(reason);
    else
        Q_EMIT notStarted(reason);
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
    const int64_t now = nowUs();
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
    const int64_t now = nowUs();
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
    while (read(mTimer, &expirations, sizeof expirations) > 0) {
    }
    if (mIsFinished)
        return;
    playDue();
    mExpectations.advance(nowUs());
    setDeadline();
}

void Player::onHousekeeping()
{
    mTimeline.advance(nowUs());
    mExpectations.advance(nowUs());
    endWhenQuiet();
}

void Player::playDue()
{
    int64_t now = nowUs();
    for (int64_t due = nextItemUs(); due <= now; due = nextItemUs()) {
        mWorstLatenessUs = std::max(mWorstLatenessUs, now - due);
        playItem();
        if (nextItemUs() > now)
            now = nowUs();
    }
}

void Player::playItem()
{
    if (isStatementNext())
        perform(mDrive.statements[mNextStatement++]);
    else
        mBoard.sendFrame(mDrive.frames[mNextFrame++]);
}

void Player::perform(const Statement &statement)
{
    const QString last = statement.words.last();
    switch (statement.verb) {
    case Verb::StartRenderer:
        mBoard.startRenderer();
        break;
    case Verb::KillRenderer:
        mBoard.killRenderer();
        break;
    case Verb::SetRendererFlag:
        mBoard.setRendererFlag(statement.words[1], last == QLatin1String("on"));
        break;
    case Verb::SetBus:
        mBoard.setBusUp(last == QLatin1String("up"));
        break;
    case Verb::SetSwitch:
        if (last == QLatin1String("click"))
            mBoard.inputs().clickSwitch(milliseconds(statement));
        else
            mBoard.inputs().set(Inputs::Line::Switch, last == QLatin1String("press"));
        break;
    case Verb::BounceSwitch:
        mBoard.inputs().bounceSwitch(milliseconds(statement));
        break;
    case Verb::SetLine:
        mBoard.inputs().set(inputOf(statement), last == QLatin1String("on"));
        break;
    case Verb::SetReadable:
        mBoard.inputs().setReadable(inputOf(statement), last == QLatin1String("readable"));
        break;
    case Verb::SetScripts:
        mBoard.setScripts(milliseconds(statement), last == QLatin1String("failing"));
        break;
    case Verb::OmitWatchdog: // was built so
    case Verb::End:
        break;
    default:
        mExpectations.ask(statement, nowUs());
    }
}

void Player::setDeadline()
{
    const int64_t next = std::min(nextItemUs(), mExpectations.nextDueUs());
    itimerspec deadline = {};
    if (next != kNever) {
        const int64_t us = mStartUs + next;
        deadline.it_value.tv_sec = us / 1'000'000;
        deadline.it_value.tv_nsec = us % 1'000'000 * 1000;
    }
    timerfd_settime(mTimer, TFD_TIMER_ABSTIME, &deadline, nullptr);
}

void Player::endWhenQuiet()
{
    const int64_t now = nowUs();
    if (mIsFinished || nextItemUs() != kNever || now < realUs(mDrive.endUs) ||
        mExpectations.waiting() > 0)
        return;
    if (mQuietSinceUs < 0 || mBoard.isCommandRunning())
        mQuietSinceUs = now;
    if (mBoard.isBusQuiet())
        finish();
    else if (now - mQuietSinceUs > kQuietWithinUs)
        fail(QStringLiteral("the controller hangs: it has not read the bus to its end"));
}

void Player::fail(const QString &reason)
{
    if (mIsFinished)
        return;
    mTimeline.note(nowUs(), QStringLiteral("board"), reason, true);
    mIsFailed = true;
    finish();
}

void Player::finish()
{
    mIsFinished = true;
    mHousekeeping.stop();
    mPowerUp.stop();
    mDeadline.setEnabled(false);
    Timeline::Totals totals;
    totals.figures = mBoard.figures();
    totals.framesInLog = mDrive.frames.size() + mDrive.skipped;
    totals.framesSkipped = mDrive.skipped;
    totals.errorFrames = static_cast<uint64_t>(
        std::count_if(mDrive.frames.begin(), mDrive.frames.end(),
                      [](const BusFrame &frame) { return (frame.id & CAN_ERR_FLAG) != 0; }));
    totals.endUs = nowUs();
    totals.worstLatenessUs = mWorstLatenessUs;
    totals.held = mExpectations.held();
    totals.failed = mExpectations.failed();
    const auto asked =
        std::count_if(mDrive.statements.begin(), mDrive.statements.end(),
                      [](const Statement &s) { return s.words[0] == QLatin1String("expect"); });
    totals.notReached = static_cast<int>(asked) - totals.held - totals.failed;
    mTimeline.summarise(totals);

    // Nobody may take a run for held whose report was lost.
    const bool isHeld = !mIsFailed && totals.failed == 0 && mOut.status() == QTextStream::Ok;
    if (!isHeld) {
        mOut << "\nThe last lines of the controller's log:\n";
        for (const QString &line : mBoard.lastLogLines(kLogLinesShown))
            mOut << "  " << printable(line) << '\n';
    }
    mOut << "\ndrive " << (isHeld ? "held" : "FAILED") << '\n';
    mOut.flush();
    Q_EMIT finished(isHeld);
}

void Player::writeLog(const QString &line)
{
    if (!mLog)
        return;
    const int64_t now = nowUs();
    const QString time = now < 0 ? QStringLiteral("boot")
                                 : QString::number(static_cast<double>(now) / 1e6 * mSpeed, 'f', 3);
    mLog->write(QStringLiteral("%1  %2\n").arg(time, 9).arg(line).toUtf8());
}
