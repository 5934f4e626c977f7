// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QVector>

/// The facts of one drive with two controllers, A and B, and where they differ.
struct Differences
{
    struct Difference
    {
        char side; ///< 'A' or 'B', which alone has this fact
        QJsonObject fact;
    };

    int facts = 0;              ///< of A's that are compared
    QJsonObject firstA, firstB; ///< in which they first differ; empty behind a side's last fact
    QVector<Difference> all;    ///< in the order of the drive

    int only(char side) const;
    /// Drive time, in seconds, of the first picture that only one of them has, or -1.
    double pictureFrom() const;
};

/// @p a, @p b: facts as `pvm-bench play --json` writes them, without what tells who played. @p
/// folder: an empty one, for files in between. Returns what is wrong, or an empty text.
QString findDifferences(const QByteArray &a, const QByteArray &b, const QString &folder,
                        Differences *found);
