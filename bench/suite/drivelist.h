// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>
#include <QVector>

struct ListedDrive
{
    QString path; ///< as it was given, or below the folder that was
    QStringList tags;
};

struct TagFilter
{
    QStringList wanted;  ///< a drive has one of them, if there are any
    QStringList skipped; ///< and none of these
};

/// The files that were given and, for a folder, each *.drive in and below it, in the order of their
/// names; every drive once. Returns what is wrong, or an empty text.
QString listDrives(const QStringList &given, const TagFilter &filter, QVector<ListedDrive> *drives);
