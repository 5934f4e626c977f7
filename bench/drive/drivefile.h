#pragma once

#include "bench/board/busframe.h"
#include "bench/drive/words.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <vector>

/**
 * A drive: a log of bus frames as `candump -L` writes it, and between its lines what is done to the
 * board and what is expected of it. docs/drives.md describes the language.
 *
 * Drive time 0 is the first frame of the chosen channel; times are integer microseconds.
 */
struct Drive
{
    std::vector<BusFrame> frames;      ///< of the chosen channel, with the log's time stamps
    std::vector<Statement> statements; ///< in order of time
    int64_t startUs = 0;               ///< time stamp of drive time 0
    int64_t endUs = 0;                 ///< drive time of the last frame, statement or `for`
    uint64_t skipped = 0;              ///< CAN FD and remote frames of the chosen channel
    uint64_t elsewhere = 0;            ///< frames of other channels
    bool rendererFromStart = true;     ///< false if the drive's first word to it is `start`
    bool hasWatchdog = true;

    int64_t timeOf(const BusFrame &frame) const { return frame.stampUs - startUs; }
};

/// Reads a whole drive file of at most 256 MiB. Returns what is wrong, or an empty text.
QString readDriveFile(const QString &path, QByteArray *contents);

/// Takes a drive apart. Returns "NAME:LINE: what is wrong" of its first fault, or an empty text.
QString parseDrive(const QByteArray &contents, const QString &name, const QString &channel,
                   Drive *drive);
