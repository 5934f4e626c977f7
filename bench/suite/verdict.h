// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

/// What became of one drive among many.
struct Verdict
{
    enum class Fate { Held, Failed, NothingExpected, DidNotStart, BrokenOff, NotPlayed };

    Fate fate = Fate::NotPlayed;
    int status = 0; ///< what the drive adds to the exit status of all
    double seconds = 0;
    QStringList failures; ///< each begins with the drive's path, and the line if there is one
    QString output;       ///< of its bench, the end if it is long

    static QString wordOf(Fate fate); ///< at most 16 letters
    /// The first failure in one line, or the drive's path.
    QString line(const QString &path) const;
};

/// From the exit status of a drive's bench, -1 if it crashed, the facts that it wrote and what it
/// said. @p isStrict: a drive in which nothing was expected has failed.
Verdict judge(const QString &path, int status, const QString &facts, const QString &output,
              bool isStrict);
