// SPDX-License-Identifier: MIT

#pragma once

#include <QString>
#include <QStringList>

struct PlayOptions
{
    QString drive; ///< a file, or "-" for standard input
    QString speed;
    QString controller;
    QString log; ///< empty for none
    QString channel;
};

/// Plays a drive in a sandbox. Returns the exit code.
int play(const PlayOptions &options);

/// The part of it inside the sandbox, with the arguments that play() gave to it.
int playInside(const QStringList &arguments);

constexpr char kPlayInside[] = "play-inside"; ///< the command that is for the bench itself

/// Writes the frames of a drive on standard output, as `candump -L` does. Returns the exit code.
int record(const QString &drive, const QString &channel);
