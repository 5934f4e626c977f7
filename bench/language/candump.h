// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"

#include <QString>

/// One line of a `candump -L` log.
struct FrameLine
{
    BusFrame frame;
    QString channel;
    bool isPlayable = true; ///< neither CAN FD nor a remote request; the others get no data
};

/// Reads "(STAMP) CHANNEL FRAME", without blanks at its ends. Returns what is wrong, or an empty
/// text.
QString readFrameLine(const QString &text, FrameLine *line);

/// The same of "FRAME" alone, such as 413#0102.
QString readFrame(const QString &text, FrameLine *line);

/// The line that `candump -L` writes for a frame, with its end.
QByteArray candumpLine(const BusFrame &frame, const QByteArray &channel);
