// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QMap>
#include <QObject>

#include <map>

class FileWatch;

/**
 * The board's GPIO lines as sysfs shows them: /sys/class/gpio/gpioN with value and direction. A
 * value file always reads as one digit and a newline, whatever was written into it.
 */
class GpioTree : public QObject
{
    Q_OBJECT

public:
    explicit GpioTree(FileWatch *watch, QObject *parent = nullptr);

    /// Makes the files. Returns what is wrong, or an empty text.
    QString build();

    /// Puts the outputs to their levels after a reset. The inputs belong to the vehicle and stay.
    void resetOutputs();

    /// Drives a line from outside the controller.
    void setLine(int line, bool level);

    /// False takes the line's folder away, as if it were not exported. It keeps its level.
    void setExported(int line, bool exported);

Q_SIGNALS:
    /// The controller has written @p level, the same as before or not.
    void written(int line, bool level);

private:
    bool buildLine(int line, bool isOutput, bool level);
    void handleWrite(int watch);

    FileWatch *mWatch;
    std::map<int, Descriptor> mValues; ///< by line
    QMap<int, int> mLineOfWatch;       ///< the outputs
};
