// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/boardlines.h"
#include "bench/board/printable.h"
#include "bench/drive/driveclock.h"
#include "bench/drive/tickcounts.h"

#include <QMap>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>
#include <utility>

/// How a timeline looks.
struct Style
{
    bool isVerbose = false;  ///< all of it, in lines as long as they are
    bool isTerminal = false; ///< its last line lives
    bool isColoured = false;
};

/**
 * Tells what happens, a line of 80 columns each: the picture routed then, drive time, what and the
 * text. Each line is out before the next thing happens.
 *
 * Times come in as real microseconds since drive time 0, negative before it, and are printed as
 * drive time.
 */
class Timeline
{
public:
    Timeline(QTextStream &out, const DriveClock &clock, const Style &style)
        : mOut(out), mClock(clock), mStyle(style)
    {}

    void note(int64_t us, const QString &what, const QString &text, bool isBad = false)
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

    /// Without its end if it is longer than that and nobody wants to see all.
    QString fitting(const QString &text, int columns) const
    {
        return printable(text,
                         mStyle.isVerbose || text.size() <= columns ? text.size() : columns - 3);
    }

    /// What stands below the last line on a terminal, until there is another.
    void showLive(const QString &text)
    {
        if (!mStyle.isTerminal)
            return;
        mOut << "\r\033[K" << text;
        mOut.flush();
    }

    const QString &picture() const { return mPicture; }

    void take(const Fact &fact, int64_t us)
    {
        const QString span = mTickCounts.take(fact, us);
        switch (fact.kind) {
        case Fact::Kind::Command:
            return takeCommand(fact.subject, span, us);
        case Fact::Kind::Picture:
            return takePicture(fact.value, us);
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
            return note(us, "renderer", fact.value);
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

    /// Prints what was held back and has become due. Wanted several times a second.
    void advance(int64_t us)
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

    /// Adds up to the end of the drive. Nothing is printed after it but what the rest needs.
    void end(int64_t us)
    {
        advance(us);
        countPicture(us);
    }

    int switches() const { return mSwitches; }
    int commands() const { return mCommands; }
    int64_t shownUs(const QString &picture) const { return mShownUs.value(picture); }

private:
    static constexpr int64_t kUnfedUs = 2'500'000;     ///< feeds come each second
    static constexpr int64_t kRecordGapUs = 1'000'000; ///< between lines for angle and radar alone
    static constexpr int kSpeedLimit = 15;             ///< above it the picture is left

    static constexpr int kTextColumns = 57; ///< of 80
    static constexpr char kPlain[] = "";
    static constexpr char kReverse[] = "\033[7m";
    static constexpr char kRed[] = "\033[31m";
    inline static const QRegularExpression kFrame{"^=+ *"}; ///< around many lines of the log

    QString coloured(const char *colour, const QString &text) const
    {
        return *colour && mStyle.isColoured ? colour + text + "\033[0m" : text;
    }

    static QString lineName(const QString &number)
    {
        const BoardLine *line = boardlines::find(number.toInt());
        return line == nullptr ? "line" : line->name;
    }

    void takeCommand(const QString &command, const QString &span, int64_t us)
    {
        if (us >= 0)
            ++mCommands;
        const bool isClock = command.startsWith("date ");
        const bool isScript = command.startsWith("/etc/");
        note(us, isClock ? "clock" : isScript ? "script" : "command", command + span);
    }

    void takePicture(const QString &picture, int64_t us)
    {
        if (picture == mPicture)
            return;
        setPicture(picture, us);
        if (us >= 0)
            ++mSwitches;
        note(us, "picture", "is now " + picture);
    }

    void setPicture(const QString &picture, int64_t us)
    {
        countPicture(us);
        mPicture = picture;
    }

    void takePower(const QString &value, const QString &why, int64_t us)
    {
        mIsWatchdogOpen = false;
        setPicture(value == "on" ? "PVM" : "off", us); // the board's doing, no switch
        note(us, "board", "power " + value + (why.isEmpty() ? QString() : " (" + why + ')'));
    }

    void takeWatchdog(const QString &value, int64_t us)
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

    void takeRecord(const QString &field, const QString &value, int64_t us)
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

    void printRecord(int64_t us)
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

    void countPicture(int64_t us)
    {
        const int64_t now = std::max<int64_t>(us, 0);
        mShownUs[mPicture] += now - mPictureSinceUs;
        mPictureSinceUs = now;
    }

    QTextStream &mOut;
    const DriveClock &mClock;
    const Style mStyle;

    TickCounts mTickCounts;
    QString mPicture = "off";
    int64_t mPictureSinceUs = 0;
    QMap<QString, int64_t> mShownUs; ///< real time per picture
    int mSwitches = 0;
    int mCommands = 0;

    QMap<QString, QString> mFields; ///< record fields that changed and are not printed yet
    int64_t mFieldsSinceUs = 0;
    bool mIsRecordDue = false; ///< one of them deserves a line of its own
    int64_t mRecordPrintedUs = -kRecordGapUs;
    int mLastSpeed = -1;

    bool mIsFlooded = false;
    bool mIsWatchdogOpen = false;
    bool mIsFed = false;
    int64_t mFedUs = 0;
};
