// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// What pvm-bench returns; 128 and the signal's number when it was interrupted.
enum ExitCode { kHeld = 0, kFailed = 1, kBadInput = 2, kNoBoard = 3 };

/// Writes one line on standard error and gives the code back.
int complain(int code, const QString &text);
