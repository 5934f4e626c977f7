// SPDX-License-Identifier: MIT

#pragma once

#include "bench/suite/drivelist.h"
#include "bench/suite/verdict.h"

class QIODevice;

/// A name in a folder of reports for each of the drives, in their order; no two are alike.
QStringList pageNames(const QVector<ListedDrive> &drives);

/// Writes the page that leads to the others, what did not hold first. @p pages: empty where a drive
/// has none. False if it could not be written.
bool writeIndexPage(QIODevice *file, const QVector<ListedDrive> &drives,
                    const QVector<Verdict> &verdicts, const QStringList &pages,
                    const QString &summary);
