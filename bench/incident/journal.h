// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

/// One line of a journal. Times are microseconds.
struct JournalLine
{
    int64_t us = 0;            ///< on a clock that nobody sets, from the first line on
    int64_t wallUs = 0;        ///< since 1970, as the board's clock was then; 0 if the log has none
    bool isControllers = true; ///< else the service manager's, about the controller
    QString text;

    bool isBoot() const { return !isControllers && text == kBooted; }
    bool isEnd() const ///< of the controller
    {
        return !isControllers &&
               (text.contains("Main process exited") || text.contains("Deactivated"));
    }
    static constexpr char kBooted[] = "the board has booted";
};

/// A stretch in which nobody set the clock.
struct ClockStretch
{
    int64_t firstUs;  ///< the first line's time
    int64_t offsetUs; ///< wall clock minus that time
};

struct Journal
{
    std::vector<JournalLine> lines;
    std::vector<ClockStretch> stretches; ///< none without wall-clock stamps
    QStringList remarks;                 ///< what a reader should know

    /// The time of a wall-clock stamp that comes behind one of @p afterUs; a clock that is set back
    /// shows each stamp twice.
    int64_t timeOf(int64_t wallUs, int64_t afterUs) const;
};

/**
 * Reads what `journalctl -u pvm-controller -o json` or `-o short-unix` wrote, the bench's own
 * --log, or a bare log of the controller without times, whose lines then stand 10 ms apart. Lines
 * of other units are left out. Returns what is wrong, or an empty text.
 */
QString readJournal(const QString &path, Journal *journal);

/// The same of a text.
QString readJournalText(const QByteArray &text, Journal *journal);

/// Reads the frames of a channel as `candump -L` wrote them, with their times on the journal's
/// clock and in BusFrame::stampUs.
QString readFrames(const QString &path, const QString &channel, Journal *journal,
                   std::vector<BusFrame> *frames);

/// A wall-clock time for people, in UTC.
QString wallText(int64_t wallUs);

/// Reads "14:03:20", the first such time in the journal and in UTC, or seconds, into the journal's
/// time of it. A time outside a journal whose clock was set is none. Returns what is wrong, or an
/// empty text.
QString readMoment(const QString &text, const Journal &journal, int64_t *us);
