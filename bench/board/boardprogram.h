// SPDX-License-Identifier: MIT

#pragma once

#include <QProcess>

/// A program of the board's that is given by its user, so that nothing is known of it: the
/// controller, a renderer, or a wrapper around one.
namespace boardprogram {

constexpr int kLongestLine = 65536; ///< bytes of its output; longer ones come in pieces

/// Starts it with a board's environment, both outputs in one, and nothing to read.
void start(QProcess &process, const QString &program, const QStringList &arguments);

/// With all that it has started. What it has left to say can be read after.
void kill(QProcess &process);

/// "exit status 1" or "killed by SIGSEGV".
QString howItEnded(int exitCode, QProcess::ExitStatus status);

/// A line of its output: printable, without its end, cut to 1000 characters.
QString lineOf(const QByteArray &bytes);

} // namespace boardprogram
