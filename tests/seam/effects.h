// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

#include <functional>
#include <type_traits>

/**
 * Where the controller touches the world, recorded as one ordered list of lines.
 *
 * The linker puts this seam under the shipped sources (--wrap): opens below /sys, /dev and /etc go
 * to a temporary tree, commands are recorded instead of run, and timers are recorded and armed so
 * far in the future that only the test fires them. Other files are opened as ever.
 *
 *     open PATH FLAGS | open PATH FLAGS failed | write "BYTES" | close
 *     ioctl REQUEST [NUMBER] | system COMMAND | popen COMMAND | print "TEXT" | log TEXT | timer
 * MS|stop
 */
namespace effects {

/// Starts recording with an empty list and an empty tree.
void reset();

/// The list since the last call.
QStringList take();

/// Adds a line of the test's own, for example for a signal.
void add(const QString &line);
template <typename Number, typename = std::enable_if_t<std::is_integral<Number>::value>>
void add(Number number)
{
    add(QString::number(number));
}

/// Timers are only worth a line where their interval is the point.
void recordTimers(bool on);

/// The timeout of the timer that the main thread last started with @p ms. Adds a line when there is
/// none or it has been stopped.
void fire(int ms);

/// A file in the temporary tree, with its folders.
void setFile(const QString &path, const QByteArray &contents);

extern int lastOpened; ///< descriptor of the last open in the tree
extern int openPipes;  ///< popen() less pclose()

/// What the seam answers instead of the kernel. Each is set back by reset().
extern std::function<int(unsigned long request, void *argument)> onIoctl; ///< -1 sets errno EINVAL
extern std::function<bool(const QByteArray &bytes)> onWrite;              ///< false: fails, EIO
extern QByteArray popenOutput;                                            ///< null: popen fails
extern QDateTime now; ///< null: the system clock

} // namespace effects
