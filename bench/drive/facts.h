// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/boardlines.h"
#include "bench/drive/expectations.h"
#include "bench/drive/vehicle.h"

#include <QFileDevice>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

/**
 * Every fact of a drive as a JSON object, one a line; docs/drives.md tells what they hold. They are
 * written to a file as they come and kept for the report, each if it is wanted. Times come in as
 * real microseconds since drive time 0, negative before it.
 */
class Facts
{
public:
    /// @p file may be null.
    Facts(const DriveClock &clock, QFileDevice *file, bool isKept)
        : mClock(clock), mFile(file), mIsKept(isKept)
    {}

    void add(int64_t us, const char *kind, const QString &subject, const QString &value = {},
             QJsonObject fact = {})
    {
        if (!isWanted())
            return;
        fact["t"] = us < 0 ? QJsonValue() : seconds(us);
        fact["kind"] = kind;
        fact["subject"] = subject;
        fact["value"] = value;
        const QByteArray line = QJsonDocument(fact).toJson(QJsonDocument::Compact) + '\n';
        if (mFile && mFile->write(line) != line.size()) {
            mFault = mFile->errorString();
            mFile = nullptr;
        }
        if (!mIsKept)
            return;
        // A controller that talks without end may not swell the page.
        if (qstrcmp(kind, "log") == 0 && (mLogBytes += line.size()) > kLongestLog)
            return;
        mKept += line;
    }

    void take(const Fact &fact, int64_t us)
    {
        static constexpr const char *kKinds[] = {"command", "picture",  "gpio",       "watchdog",
                                                 "record",  "log",      "controller", "frames",
                                                 "bus",     "renderer", "input",      "power"};
        add(us, kKinds[static_cast<int>(fact.kind)], fact.subject, fact.value);
    }

    /// The board's lines, as power-on finds or leaves them.
    void addLines()
    {
        for (const BoardLine &line : boardlines::kAll)
            add(-1, "line", QString::number(line.number), line.level ? "1" : "0",
                {{"name", line.name}, {"input", line.word}});
    }

    void addExpectation(const Settled &settled, int64_t us)
    {
        add(us, "expect", settled.what, settled.isHeld ? "held" : "failed",
            {{"line", settled.line}, {"asked", seconds(settled.askedUs)}, {"text", settled.text}});
    }

    /// What the vehicle tells in a frame. A value that moves is told in steps.
    void takeFrame(const BusFrame &frame, int64_t us)
    {
        if (!isWanted())
            return;
        for (const vehicle::Reading &reading : vehicle::readings(frame)) {
            Told &told = mTold[reading.subject];
            if (told.value == reading.value || us - told.us < kStepUs)
                continue;
            told = {reading.value, us};
            add(us, "car", reading.subject, reading.value);
        }
    }

    const QByteArray &kept() const { return mKept; }
    const QString &fault() const { return mFault; } ///< why the file is not whole
    bool isLogCut() const { return mLogBytes > kLongestLog; }

private:
    static constexpr int64_t kStepUs = 50'000;
    static constexpr int kLongestLog = 300'000; ///< bytes, in the report

    struct Told
    {
        QString value;
        int64_t us = -kStepUs;
    };

    bool isWanted() const { return mFile || mIsKept; }
    double seconds(int64_t us) const { return static_cast<double>(mClock.driveUs(us)) / 1e6; }

    const DriveClock &mClock;
    QFileDevice *mFile;
    const bool mIsKept;
    QByteArray mKept;
    int mLogBytes = 0;
    QString mFault;
    QMap<QString, Told> mTold; ///< what the vehicle has told last, by subject
};
