#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace sandbox {

struct Setup
{
    QString controller;    ///< path on the host, appears as controllerPath()
    QByteArray drive;      ///< contents, appears as drivePath()
    QStringList arguments; ///< for pvm-bench inside
};

QString controllerPath(); ///< "/bench/pvm-controller"
QString drivePath();      ///< "/bench/drive"

/**
 * Replaces this process by bubblewrap running /bench/pvm-bench with the arguments inside a sandbox:
 * own root composed from parts, own /tmp, /dev, /sys, /etc, PID and System V IPC namespace, and the
 * bench's CAN plugin in place of the system's. Descriptors without close-on-exec stay open inside.
 * The sandbox dies with this process. Returns only on failure, with one line that says why.
 */
QString enter(const Setup &setup);

} // namespace sandbox
