// SPDX-License-Identifier: MIT

#include "bench/drive/timeline.h"

#include "bench/board/boardlines.h"
#include "bench/board/printable.h"

#include <algorithm>

namespace {

constexpr int64_t kUnfedUs = 2'500'000;     ///< feeds come each second
constexpr int64_t kRecordGapUs = 1'000'000; ///< between lines for angle and radar alone
constexpr int kSpeedLimit = 15;             ///< above it the picture is left

QString lineName(const QString &number)
{
    const BoardLine *line = boardlines::find(number.toInt());
    return line == nullptr ? QStringLiteral("line") : QLatin1String(line->name);
}

} // namespace

Timeline::Timeline(QTextStream &out, const DriveClock &clock, bool isColoured)
    : mOut(out),
      mClock(clock),
      mIsColoured(isColoured),
      mPicture(QStringLiteral("PVM")),
      mRecordPrintedUs(-kRecordGapUs)
{}

void Timeline::note(int64_t us, const QString &what, const QString &text, bool isBad)
{
    printRecord(us);
    const QString line = QStringLiteral("%1  %2 %3 %4")
                             .arg(mClock.column(us))
                             .arg(what, -9)
                             .arg(printable(text), -64)
                             .arg(mPicture);
    if (isBad && mIsColoured)
        mOut << "\033[31m" << line << "\033[0m\n";
    else
        mOut << line << '\n';
    mOut.flush();
}

void Timeline::take(const Fact &fact, int64_t us)
{
    const QString span = mTickCounts.take(fact, us);
    switch (fact.kind) {
    case Fact::Kind::Command:
        takeCommand(fact.subject, span, us);
        break;
    case Fact::Kind::Picture:
        takePicture(fact.value, us);
        break;
    case Fact::Kind::Gpio:
        note(us, QStringLiteral("gpio"),
             QStringLiteral("%1 (%2) = %3%4")
                 .arg(lineName(fact.subject), fact.subject, fact.value, span));
        break;
    case Fact::Kind::Watchdog:
        takeWatchdog(fact.value, us);
        break;
    case Fact::Kind::Record:
        takeRecord(fact.subject, fact.value, us);
        break;
    case Fact::Kind::Bus:
        note(us, QStringLiteral("bus"), fact.value);
        break;
    case Fact::Kind::Renderer:
        note(us, QStringLiteral("renderer"), fact.value);
        break;
    case Fact::Kind::Power:
        mIsWatchdogOpen = false;
        note(us, QStringLiteral("board"),
             fact.subject.isEmpty()
                 ? QStringLiteral("power %1").arg(fact.value)
                 : QStringLiteral("power %1 (%2)").arg(fact.value, fact.subject));
        if (fact.value == QLatin1String("on"))
            takePicture(QStringLiteral("PVM"), us);
        break;
    case Fact::Kind::Input:
        note(us, QStringLiteral("input"), fact.subject + QLatin1Char(' ') + fact.value);
        break;
    case Fact::Kind::Frames:
        note(us, QStringLiteral("bus"), QStringLiteral("frames are lost"));
        break;
    case Fact::Kind::Controller:
        if (!mIsFlooded)
            note(us, QStringLiteral("log"),
                 QStringLiteral("a line without end; such lines come in pieces"));
        mIsFlooded = true;
        break;
    case Fact::Kind::Log:
        if (!span.isEmpty())
            note(us, QStringLiteral("log"), fact.subject + span);
        break;
    }
}

void Timeline::advance(int64_t us)
{
    if (!mIsRecordDue && !mFields.isEmpty() && us - mRecordPrintedUs >= kRecordGapUs) {
        mIsRecordDue = true;
        mFieldsSinceUs = us;
    }
    printRecord(us);
    if (mIsWatchdogOpen && mIsFed && us >= 0 && us - mFedUs >= kUnfedUs) {
        mIsFed = false;
        note(us, QStringLiteral("watchdog"), QStringLiteral("no longer fed"));
    }
}

void Timeline::takeCommand(const QString &command, const QString &span, int64_t us)
{
    if (us >= 0)
        ++mCommands;
    QString what = QStringLiteral("command");
    if (command.startsWith(QLatin1String("date ")))
        what = QStringLiteral("clock");
    else if (command.startsWith(QLatin1String("/etc/")))
        what = QStringLiteral("script");
    note(us, what, command + span);
}

void Timeline::takePicture(const QString &picture, int64_t us)
{
    if (picture == mPicture)
        return;
    countPicture(us);
    mPicture = picture;
    if (us >= 0)
        ++mSwitches;
    note(us, QStringLiteral("picture"), QStringLiteral("is now ") + picture);
}

void Timeline::countPicture(int64_t us)
{
    const int64_t now = std::max<int64_t>(us, 0);
    mShownUs[mPicture] += now - mPictureSinceUs;
    mPictureSinceUs = now;
}

void Timeline::takeWatchdog(const QString &value, int64_t us)
{
    if (value != QLatin1String("fed")) {
        mIsWatchdogOpen = value == QLatin1String("opened");
        mIsFed = false;
        note(us, QStringLiteral("watchdog"), value);
        return;
    }
    mFedUs = us;
    if (!mIsFed)
        note(us, QStringLiteral("watchdog"), QStringLiteral("fed"));
    mIsFed = true;
}

void Timeline::takeRecord(const QString &field, const QString &value, int64_t us)
{
    if (field == QLatin1String("speed")) {
        const int speed = value.toInt();
        const bool isCrossing =
            mLastSpeed < 0 || (speed > kSpeedLimit) != (mLastSpeed > kSpeedLimit);
        mLastSpeed = speed;
        if (!isCrossing)
            return;
    }
    const bool isSpeed = field == QLatin1String("speed");
    mFields[field] = !isSpeed                   ? value
                     : mLastSpeed > kSpeedLimit ? value + QStringLiteral(" (above the limit)")
                                                : value + QStringLiteral(" (within the limit)");
    if (mIsRecordDue || field == QLatin1String("angle") || field == QLatin1String("radar"))
        return;
    mIsRecordDue = true;
    mFieldsSinceUs = us;
}

void Timeline::printRecord(int64_t us)
{
    if (!mIsRecordDue)
        return;
    QStringList texts;
    for (auto field = mFields.cbegin(); field != mFields.cend(); ++field)
        texts << field.key() + QLatin1Char(' ') + field.value();
    mIsRecordDue = false;
    mFields.clear();
    mRecordPrintedUs = us;
    note(mFieldsSinceUs, QStringLiteral("record"), texts.join(QStringLiteral(", ")));
}

void Timeline::end(int64_t us)
{
    advance(us);
    countPicture(us);
}
