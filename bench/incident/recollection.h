// SPDX-License-Identifier: MIT

#pragma once

#include "bench/incident/journal.h"

#include <QMap>

/// One line of a drive. Times are those of the journal.
struct DriveLine
{
    int64_t us;
    QString words;
    QString comment = {};
};

/// A picture that the controller asked for in the car.
struct Request
{
    int64_t us;
    QString value;       ///< "0" DA, "1" PVM
    bool isRefused;      ///< by a gear or a light
    bool isChange;       ///< another picture is routed than before
    int64_t toleranceUs; ///< how much sooner or later it may come on a desk
    int64_t scriptUs;    ///< until the picture is there
};

/// What is known of the car and its unit at a moment; an empty text is not known.
struct CarState
{
    QMap<QString, QString> car; ///< gear, light, key, radar, speed, in a drive's words
    QMap<QString, QString> board{{"acc", "off"},
                                 {"deserializer-lock", "on"},
                                 {"serializer-lock", "on"},
                                 {"turn-switch", ""},
                                 {"initialised", ""}};
    QString picture;                  ///< "0" DA, "1" PVM, as the controller believes
    bool isGearHeard = true;          ///< not by a controller that has started and heard none yet
    bool isPvmBeforeTurn = false;     ///< PVM was there when the turn light asked for it
    bool isSpeedTakingPvmAway = true; ///< not after a click that opened it at speed
};

/// What of a part of a journal has to be done to a board to have it again, and what was seen.
struct Recollection
{
    CarState start;                ///< at its begin
    std::vector<DriveLine> inputs; ///< in no order
    std::vector<Request> requests; ///< in order
    std::vector<DriveLine> events; ///< of the board that are expected, in order
    QStringList forAll;            ///< words that are for the whole drive
    QStringList remarks;           ///< for a reader of the drive
    int64_t endUs = 0;             ///< sooner than asked for if it cannot be gone on with
    /// From, to: the board had no power, and what the bus said then nobody heard.
    std::vector<std::pair<int64_t, int64_t>> silences;
};

/// Which part, and how its times become those of the drive.
struct Part
{
    int64_t fromUs;
    int64_t toUs;
    int64_t zeroUs;   ///< of drive time 0
    bool isFromStart; ///< it begins with a start of the controller
};

/// Without frames the car's words are taken from what the controller says of it.
Recollection recollect(const Journal &journal, const std::vector<BusFrame> &frames,
                       const Part &part);
