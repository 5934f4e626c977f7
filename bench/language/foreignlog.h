// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// What a line of another tool's log says, and the command that makes a log of it in which FILE
/// stands for its name; empty for any other line. @p isFirst: it may tell what the whole file is.
QString foreignLog(const QByteArray &line, bool isFirst);
