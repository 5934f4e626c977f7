// SPDX-License-Identifier: MIT

#pragma once

#include "bench/suite/suite.h"

class QCommandLineParser;

void addSuiteOptions(QCommandLineParser &parser);

TagFilter tagFilter(const QCommandLineParser &options);

/// Whether this is for many drives: several, a folder, or an option that is for many.
bool isSuite(const QStringList &given, const QCommandLineParser &options);

/// Makes the plan of it, all but where it is told. Returns what is wrong, or an empty text.
QString readSuite(const QStringList &given, const QCommandLineParser &options, SuitePlan *plan);
