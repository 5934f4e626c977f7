// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <cstdint>

/// Reads "12", "0.25" or "1700000000.123456" into microseconds; further digits are cut off. False
/// for anything else, and from 10^12 s on.
bool parseSeconds(const QString &text, int64_t *us);
