// SPDX-License-Identifier: MIT

#pragma once

#include "bench/suite/drivelist.h"
#include "bench/suite/verdict.h"

class QIODevice;

/// Writes what became of the drives as CI systems read it; the first verdict is of the first drive.
/// False if it could not be written.
bool writeJunit(QIODevice *file, const QVector<ListedDrive> &drives,
                const QVector<Verdict> &verdicts, double seconds);
