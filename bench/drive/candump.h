// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"

#include <QByteArray>
#include <QString>

/// Takes one line of a `candump -L` log apart, from left to right.
class FrameLine
{
public:
    /// The line has no blanks at its ends.
    FrameLine(const char *begin, const char *end) : p(begin), mEnd(end) {}

    /// The whole line: "(STAMP) CHANNEL FRAME". Fills the members below. Returns what is wrong, or
    /// an empty text.
    QString read();

    /// The same of "FRAME" alone, such as 413#0102.
    QString readFrame();

    BusFrame frame;
    const char *channel = nullptr; ///< within the line, channelLength characters
    int channelLength = 0;
    bool isPlayable = true; ///< neither CAN FD nor a remote request; the others get no data

private:
    const char *wordEnd() const;
    bool skipBlanks();
    QString readStamp();
    QString readChannel();
    QString readIdentifier();
    QString setIdentifier(uint32_t id, bool isStandard, const QString &name);
    QString readPayload();
    QString readRemote();
    QString readFlexibleData();
    QString readBytes(int most);
    QString readRawLength();
    QString readDirection();

    const char *p;
    const char *mEnd;
};

/// The line that `candump -L` writes for a frame, with its end.
QByteArray candumpLine(const BusFrame &frame, const QByteArray &channel);
