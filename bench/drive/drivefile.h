// SPDX-License-Identifier: MIT

#pragma once

#include "bench/drive/logcut.h"
#include "bench/language/statement.h"

#include <QStringList>

#include <vector>

/**
 * A drive: what the vehicle sends, what is done to the board and what is expected of it.
 * docs/drives.md describes the language. What the vehicle sends is either a log as `candump -L`
 * writes it, or comes from a vehicle made of words.
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
    bool rendererFromStart = true;     ///< false if the drive's first word to it is `start`
    bool hasWatchdog = true;
    bool hasService = false; ///< the controller is started again when it ends
    double slowest = 0.01;   ///< drive seconds per real second at which it holds
    double fastest = 100;
    QStringList remarks; ///< what a reader of the log should know before it is played

    int64_t timeOf(const BusFrame &frame) const { return frame.stampUs - startUs; }
};

/**
 * Reads a drive from a descriptor, which stays open; it may be a pipe. Only memory limits its size.
 * Returns "NAME:LINE: what is wrong" of the first fault, or an empty text.
 */
QString readDrive(int descriptor, const QString &name, const LogCut &cut, Drive *drive);
