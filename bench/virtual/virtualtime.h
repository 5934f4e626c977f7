// SPDX-License-Identifier: MIT

#pragma once

#include <QList>
#include <QStringList>

/**
 * A machine in which time passes only while every process waits, and computing takes none: a Linux
 * kernel that runs as an ordinary program. What happens in it depends on nothing of the host's
 * speed, and waiting is over at once.
 */
namespace virtualtime {

/// The bench's own command in there.
constexpr char kCommand[] = "play-in-virtual-time";

/**
 * Runs `pvm-bench play-in-virtual-time ARGUMENTS...` there and returns its exit status, or -1 with
 * what is wrong in @p fault, one line. It has no file of the host to write, but standard output and
 * error, @p input, of which it finds a copy, and @p outputs, which are written when it is over, all
 * under their numbers. SIGINT, SIGTERM and SIGHUP are told to it the first time; the second one
 * ends this process and all of that machine.
 */
int run(const QStringList &arguments, int input, const QList<int> &outputs, QString *fault);

/// In there: a CAN bus of the kernel's own, with can0 at one end and @p other, up, at the other.
/// What is wrong, one line, empty if nothing is.
QString addBus(const QString &other);

} // namespace virtualtime
