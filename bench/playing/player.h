// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/board.h"
#include "bench/board/sandbox.h"
#include "bench/drive/drivefile.h"
#include "bench/telling/timeline.h"

#include <QJsonObject>

class QFileDevice;

/// What pvm-bench returns; 128 and the signal's number when it was interrupted.
enum ExitCode { kHeld = 0, kFailed = 1, kBadInput = 2, kNoBoard = 3, kUnwritten = 4 };

struct Playing
{
    double speed; ///< drive seconds per real second
    QTextStream &out;
    Style style;
    QFileDevice *log;    ///< gets each line of controller and renderer behind its drive time
    QFileDevice *json;   ///< gets each fact
    QFileDevice *report; ///< gets the page when it is over; any of the three may be null
    QString name;        ///< of the drive
    QString reportName;
    QJsonObject run; ///< who plays what: version, controller, command line and the like
};

struct Outcome
{
    int code = kFailed;
    QString fault; ///< one line, if the board did not start or something could not be written
};

/// Powers the board, plays the drive on it as soon as it is ready and tells the figures, also when
/// it is interrupted.
Outcome playDrive(Board &board, const Drive &drive, const Playing &how, sandbox::Inside &inside);
