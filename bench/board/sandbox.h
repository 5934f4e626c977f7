// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

#include <functional>
#include <vector>

/**
 * The sandbox that the board lives in, made by bubblewrap: own root composed from parts, own /tmp,
 * /dev, /sys, /etc, PID and System V IPC namespace, and the bench's CAN plugin in place of the
 * system's.
 *
 * Two processes of the bench belong together: the one that a user started, which waits, and the one
 * inside, which plays. They hold the two ends of a socket. Whatever becomes of the outer one, its
 * end closes, and the inner one leaves with all that runs in the sandbox. Nobody is killed while
 * bubblewrap is still building.
 */
namespace sandbox {

/// Whose keys the terminal's are, Ctrl-C aside: the outer process gets that. One that reads a
/// terminal has to be in its foreground.
enum class Keys { Outside, Inside };

/**
 * Runs /bench/pvm-bench inside, with the arguments and two more, see Inside, and returns its exit
 * status, or -1 with what is wrong in @p fault, one line. @p programs: paths of the programs that
 * are or run the controller and the renderer. @p hasRealCan: it gets the system's own CAN plugin.
 * SIGINT, SIGTERM and SIGHUP are told to it the first time; the second one ends this process.
 * Descriptors without close-on-exec stay open inside.
 */
int run(const QStringList &programs, bool hasRealCan, const QStringList &arguments, QString *fault,
        Keys keys = Keys::Outside);

/// "NAME=VALUE" of all that its processes have in their environment, a sanitizer's options too.
std::vector<QByteArray> environment();

/// The inner process's end. Its two arguments are descriptors: the socket and the true stderr.
class Inside
{
public:
    /// Tells the outer process that the sandbox stands.
    Inside(const QString &socket, const QString &errorOutput);

    /// Calls @p interrupted with the number of a signal, and ends the process when the outer one
    /// has gone.
    void watch(const std::function<void(int)> &interrupted);

private:
    int mSocket;
};

} // namespace sandbox
