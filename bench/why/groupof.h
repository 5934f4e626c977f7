// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// The first group of the pattern in a line of the log; null without a match. The pattern is one of
/// the program's own texts, which is read once.
QString groupOf(const char *pattern, const QString &line);
