// SPDX-License-Identifier: MIT

#include "bench/telling/timeline.h"

#include "bench/board/boardlines.h"
#include "bench/board/printable.h"
#include "bench/car/vehicle.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr int64_t kUnfedUs = 2'500'000; ///< feeds come each second
constexpr int kSpeedLimit = 15;         ///< above it the picture is left
constexpr int64_t kSentGapUs = 1'000'000;
constexpr int kTextColumns = 57; ///< of 80
constexpr char kPlain[] = "";
constexpr char kReverse[] = "\033[7m";
constexpr char kRed[] = "\033[31m";
const QRegularExpression kFrame{"^=+ *"}; ///< around many lines of the log

QString lineName(const QString &number)
{
    const BoardLine *line = boardlines::find(number.toInt());
    return line == nullptr ? "line" : line->name;
}

} // namespace

Timeline::Timeline(QTextStream &out, const DriveClock &clock, const Style &style)
    : mOut(out), mClock(clock), mStyle(style)
{}

void Timeline::note(int64_t us, const QString &what, const QString &text, bool isBad)
{
    printRecord(us);
    showLive({});
    mOut << coloured(mPicture == "PVM" ? kReverse : kPlain, mPicture.leftJustified(3))
         << coloured(isBad ? kRed : kPlain, QStringLiteral("%1  %2 %3")
                                                .arg(mClock.column(us))
                                                .arg(what, -8)
                                                .arg(fitting(text, kTextColumns)))
         << '\n';
    mOut.flush();
}

QString Timeline::fitting(const QString &text, int columns) const
{
    return printable(text, mStyle.isVerbose || text.size() <= columns
                               ? std::numeric_limits<int>::max()
                               : columns - 3);
}

void Timeline::showLive(const QString &text)
{
    if (!mStyle.isTerminal)
        return;
    mOut << "\r\033[K" << text;
    mOut.flush();
}

void Timeline::take(const Fact &fact, int64_t us, const QString &because)
{
    const QString span = mTickCounts.take(fact, us);
    switch (fact.kind) {
    case Fact::Kind::Command:
        return takeCommand(fact.subject, span, us);
    case Fact::Kind::Exit:
        if (fact.value != "0")
            note(us, "script", fact.subject + " failed, status " + fact.value);
        return;
    case Fact::Kind::Picture:
        return takePicture(fact.value, us, because);
    case Fact::Kind::Gpio:
        return note(us, "gpio",
                    QStringLiteral("%1 (%2) = %3%4")
                        .arg(lineName(fact.subject), fact.subject, fact.value, span));
    case Fact::Kind::Watchdog:
        return takeWatchdog(fact.value, us);
    case Fact::Kind::Record:
        return takeRecord(fact.subject, fact.value, us);
    case Fact::Kind::Bus:
        return note(us, "bus", fact.value);
    case Fact::Kind::Renderer:
        return note(us, "renderer", fact.subject.isEmpty() ? fact.value : fact.subject);
    case Fact::Kind::Power:
        return takePower(fact.value, fact.subject, us);
    case Fact::Kind::Input:
        return note(us, "input", fact.subject + ' ' + fact.value);
    case Fact::Kind::Frames:
        return note(us, "bus", "frames are lost");
    case Fact::Kind::Controller:
        if (fact.value != "flooding")
            note(us, "board", "the controller " + fact.value);
        else if (!std::exchange(mIsFlooded, true))
            note(us, "log", "a line without end; such lines come in pieces");
        return;
    case Fact::Kind::Log:
        if (!span.isEmpty())
            note(us, "log", QString(fact.subject).remove(kFrame) + span);
        return;
    }
}

void Timeline::tellUnmet(const Why &why, int64_t us)
{
    if (why.unmet == std::exchange(mUnmet, why.unmet) || why.unmet.isEmpty())
        return;
    noteWhole(us, "why", (why.picture == "PVM" ? "not DA: " : "not PVM: ") + why.unmet);
}

void Timeline::noteWhole(int64_t us, const QString &what, const QString &text)
{
    QString line;
    for (const QString &word : text.split(' ')) {
        if (!mStyle.isVerbose && line.size() + 1 + word.size() > kTextColumns) {
            note(us, what, line);
            line = "  ";
        }
        line += line.isEmpty() ? word : ' ' + word;
    }
    note(us, what, line);
}

void Timeline::takeFrame(const BusFrame &frame, int64_t us)
{
    for (const vehicle::Reading &reading : vehicle::readings(frame)) {
        if (reading.subject != "gear" && reading.subject != "light" && reading.subject != "key")
            continue;
        auto sent = mSent.find(reading.subject);
        const bool isFirst = sent == mSent.end();
        if (isFirst)
            sent = mSent.insert(reading.subject, {});
        sent->changes += sent->newest != reading.value;
        sent->newest = reading.value;
        if (!isFirst && (sent->told == reading.value || us - sent->us < kSentGapUs))
            continue;
        const QString often =
            sent->changes > 1 ? QStringLiteral(", changed %1 times").arg(sent->changes) : QString();
        *sent = {reading.value, reading.value, us, 0};
        note(us, "car", reading.subject + ' ' + reading.value + often);
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
        note(us, "watchdog", "no longer fed");
    }
}

void Timeline::end(int64_t us)
{
    advance(us);
    countPicture(us);
}

QString Timeline::coloured(const char *colour, const QString &text) const
{
    return *colour && mStyle.isColoured ? colour + text + "\033[0m" : text;
}

void Timeline::takeCommand(const QString &command, const QString &span, int64_t us)
{
    if (us >= 0)
        ++mCommands;
    const bool isClock = command.startsWith("date ");
    const bool isScript = command.startsWith("/etc/");
    note(us, isClock ? "clock" : isScript ? "script" : "command", command + span);
}

void Timeline::takePicture(const QString &picture, int64_t us, const QString &because)
{
    if (picture == mPicture)
        return;
    setPicture(picture, us);
    if (us >= 0)
        ++mSwitches;
    note(us, "picture", "is now " + picture + ": " + because);
}

void Timeline::setPicture(const QString &picture, int64_t us)
{
    countPicture(us);
    mPicture = picture;
}

void Timeline::takePower(const QString &value, const QString &why, int64_t us)
{
    mIsWatchdogOpen = false;
    setPicture(value == "on" ? "PVM" : "off", us); // the board's doing, no switch
    note(us, "board", "power " + value + (why.isEmpty() ? QString() : " (" + why + ')'));
}

void Timeline::takeWatchdog(const QString &value, int64_t us)
{
    if (value != "fed") {
        mIsWatchdogOpen = value == "opened";
        mIsFed = false;
        note(us, "watchdog", value);
        return;
    }
    mFedUs = us;
    if (!mIsFed)
        note(us, "watchdog", "fed");
    mIsFed = true;
}

void Timeline::takeRecord(const QString &field, const QString &value, int64_t us)
{
    QString remark;
    if (field == "speed") {
        const int last = std::exchange(mLastSpeed, value.toInt());
        const bool isAbove = mLastSpeed > kSpeedLimit;
        if (last >= 0 && isAbove == (last > kSpeedLimit))
            return;
        remark = isAbove ? " (above the limit)" : " (within the limit)";
    }
    if (!mStyle.isVerbose && (field == "angle" || field == "radar"))
        return;
    mFields[field] = value + remark;
    if (mIsRecordDue || field == "angle" || field == "radar")
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
        texts << field.key() + ' ' + field.value();
    mIsRecordDue = false;
    mFields.clear();
    mRecordPrintedUs = us;
    note(mFieldsSinceUs, "record", texts.join(", "));
}

void Timeline::countPicture(int64_t us)
{
    const int64_t now = std::max<int64_t>(us, 0);
    mShownUs[mPicture] += now - mPictureSinceUs;
    mPictureSinceUs = now;
}
