// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/drive/driveclock.h"
#include "bench/judging/tickcounts.h"
#include "bench/why/whyreader.h"

#include <QMap>
#include <QTextStream>

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
    Timeline(QTextStream &out, const DriveClock &clock, const Style &style);

    /// One line. @p what: a word or two of 8 columns; @p text is cut at the line's end unless all
    /// is wanted. @p isBad: for a failure.
    void note(int64_t us, const QString &what, const QString &text, bool isBad = false);

    /// The same in as many lines as it takes.
    void noteWhole(int64_t us, const QString &what, const QString &text);

    /// Without its end if it is longer than that and nobody wants to see all.
    QString fitting(const QString &text, int columns) const;

    /// What stands below the last line on a terminal, until there is another.
    void showLive(const QString &text);

    const QString &picture() const { return mPicture; } ///< "PVM", "DA" or "off"

    /// Tells a fact if it is worth a line; angle, radar and speed of the record are thinned out.
    /// @p because: why the picture is shown from now on, if it is a picture.
    void take(const Fact &fact, int64_t us, const QString &because);

    /// Tells a wish that is not fulfilled, if it is another than the one told last.
    void tellUnmet(const Why &why, int64_t us);

    /// Gear, turn light and key as a frame tells them, at most one line a second for each.
    void takeFrame(const BusFrame &frame, int64_t us);

    /// Prints what was held back and has become due. Wanted several times a second.
    void advance(int64_t us);

    /// Adds up to the end of the drive. Nothing is printed after it but what the rest needs.
    void end(int64_t us);

    // Since drive time 0.
    int switches() const { return mSwitches; } ///< of the picture, by a script
    int commands() const { return mCommands; } ///< run by the controller
    /// Real microseconds until the last switch, or until end().
    int64_t shownUs(const QString &picture) const { return mShownUs.value(picture); }

private:
    static constexpr int64_t kRecordGapUs = 1'000'000; ///< between lines for angle and radar alone

    struct Sent
    {
        QString told;
        QString newest;
        int64_t us = 0;  ///< when it was told
        int changes = 0; ///< since then
    };

    QString coloured(const char *colour, const QString &text) const;
    void takeCommand(const QString &command, const QString &span, int64_t us);
    void takePicture(const QString &picture, int64_t us, const QString &because);
    void setPicture(const QString &picture, int64_t us);
    void takePower(const QString &value, const QString &why, int64_t us);
    void takeWatchdog(const QString &value, int64_t us);
    void takeRecord(const QString &field, const QString &value, int64_t us);
    void printRecord(int64_t us);
    void countPicture(int64_t us);

    QTextStream &mOut;
    const DriveClock &mClock;
    const Style mStyle;

    TickCounts mTickCounts;
    QString mUnmet;            ///< as it was told last
    QMap<QString, Sent> mSent; ///< by the vehicle, by subject
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
