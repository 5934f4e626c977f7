// SPDX-License-Identifier: MIT

#pragma once

#include <QPair>
#include <QString>
#include <QVector>

/// A figure of a drive: what, how much in words, and the numbers in it by their names, whose ends
/// are their units: _s, _ms, _percent, _mib.
struct Figure
{
    QString what;
    QString text;
    QVector<QPair<QString, double>> numbers;
};
