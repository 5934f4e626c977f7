// SPDX-License-Identifier: MIT

#pragma once

#include "bench/drive/logcut.h"
#include "bench/suite/drivelist.h"

class QTextStream;

/// Reads the drives without playing them and tells a line for each on @p out, what is wrong on
/// @p errors. Returns whether all of them can be played.
bool checkDrives(const QVector<ListedDrive> &drives, const LogCut &cut, QTextStream &out,
                 QTextStream &errors);
