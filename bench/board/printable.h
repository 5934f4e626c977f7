// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// @p text on one line and harmless on a terminal: what controls one is replaced, and what goes
/// beyond @p longest characters is cut, with a mark.
QString printable(const QString &text, int longest = 200);
