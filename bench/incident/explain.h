// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

/// `pvm-bench explain`, with its arguments: tells what happened in a car from its journal, and
/// writes page and facts as for a drive. Returns what pvm-bench returns; what is wrong goes to
/// standard error.
int explain(const QStringList &arguments);
