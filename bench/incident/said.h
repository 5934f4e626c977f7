// SPDX-License-Identifier: MIT

#pragma once

#include "bench/incident/journal.h"

/// What a line of the controller's says, in a drive's words.
struct Said
{
    QString subject; ///< such as "gear" or "acc"; empty: the line says nothing
    QString value;
    QString before; ///< as it was; "-1" if nothing had been heard
};

/// Gear, light, key, speed or radar, as the bus told it.
Said saidOfCar(const QString &line);

/// A line of the board's: "acc", "deserializer-lock", "serializer-lock"; or a flag of the
/// renderer's: "turn-switch", "initialised"; on or off.
Said saidOfBoard(const QString &line);

/// The picture that a line asks for, "0" for DA and "1" for PVM; empty for other lines.
QString requestOf(const QString &line);

/// Whether the request in line @p i is refused by those behind it.
bool isRefused(const Journal &journal, size_t i);

/// The first "open backlight." behind the request in line @p i, within so many microseconds; 0 if
/// none comes.
size_t backlightBehind(const Journal &journal, size_t i, int64_t withinUs);

/// Whether a life of the controller is over in line @p i: it has ended, starts anew, the board has
/// booted, or nobody asks for what is behind @p endUs.
bool isLifesEnd(const Journal &journal, size_t i, int64_t endUs);
