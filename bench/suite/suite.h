// SPDX-License-Identifier: MIT

#pragma once

#include "bench/suite/drivelist.h"

class QTextStream;

struct SuitePlan
{
    QVector<ListedDrive> drives;
    QStringList options; ///< of each drive's own bench
    int jobs = 1;        ///< how many are played at once
    bool isStrict = false;
    bool isFailFast = false; ///< after one that failed no other is begun
    bool isTerminal = false; ///< a last line lives
    bool isVerbose = false;  ///< lines as long as they are
    QString junit;           ///< file, empty for none
    QString reports;         ///< folder, empty for none
};

/**
 * Plays the drives, each by a bench of its own in its own sandbox, tells one line for each and the
 * failures at the end. SIGINT, SIGTERM and SIGHUP stop those that play; what is known by then is
 * told and written.
 *
 * Returns the exit status: the highest that a drive had. @p fault: what could not be written.
 */
int playSuite(const SuitePlan &plan, QTextStream &out, QString *fault);
