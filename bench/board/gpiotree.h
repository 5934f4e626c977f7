// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"
#include "bench/board/fact.h"
#include "bench/board/filewatch.h"

#include <QObject>

#include <map>

/**
 * The board's GPIO lines as sysfs shows them: /sys/class/gpio/gpioN with value and direction. A
 * value file always reads as one digit and a newline, whatever was written into it.
 */
class GpioTree : public QObject
{
    Q_OBJECT

public:
    explicit GpioTree(FileWatch &watch) : mWatch(watch) {}

    /// Makes the files. Returns what is wrong, or an empty text.
    QString build();

    /// Puts the outputs to their levels after a reset. The inputs belong to the vehicle and stay.
    void resetOutputs();

    /// Drives a line, by its number, from outside the controller.
    void setLine(int line, bool level);

    /// False takes the line's folder away, as if it were not exported. It keeps its level.
    void setExported(int line, bool exported);

Q_SIGNALS:
    void happened(const Fact &fact); ///< the controller has written a level, the same or not

private:
    bool buildLine(int line, bool isOutput, bool level);
    void handleWrite(int line);

    FileWatch &mWatch;
    std::map<int, Descriptor> mValues; ///< by line
};
