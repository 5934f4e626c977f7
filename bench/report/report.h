// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>

/// The page that shows a drive, whole in itself. @p facts: as Facts writes them, an object a line.
QByteArray reportPage(QByteArray facts);
