// SPDX-License-Identifier: MIT

#include "bench/suite/drivelist.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr int kLongestLine = 4096; ///< as in a drive

QStringList drivesBelow(const QString &folder)
{
    QStringList paths;
    QDirIterator files(folder, {"*.drive"}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        paths << files.next();
    paths.sort();
    return paths;
}

/// Only from the head: a log may be some gigabytes long.
QStringList tagsOf(const QString &path)
{
    static const QRegularExpression pattern("\\A#\\s*tags:(.*)\\z");
    static const QRegularExpression separator("[\\s,]+");
    QStringList tags;
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    for (QString line; !file.atEnd() && (line.isEmpty() || line.startsWith('#'));) {
        line = QString::fromUtf8(file.readLine(kLongestLine)).trimmed();
        tags += pattern.match(line).captured(1).split(separator);
    }
    tags.removeAll({});
    return tags;
}

bool haveOneInCommon(const QStringList &a, const QStringList &b)
{
    return std::any_of(a.begin(), a.end(), [&b](const QString &tag) { return b.contains(tag); });
}

} // namespace

QString listDrives(const QStringList &given, const TagFilter &filter, QVector<ListedDrive> *drives)
{
    QStringList paths;
    for (const QString &path : given) {
        const QFileInfo info(path);
        if (path == "-")
            return "standard input is played alone";
        if (!info.exists())
            return path + ": No such file or directory";
        const QStringList found = info.isDir() ? drivesBelow(path) : QStringList{path};
        if (found.isEmpty())
            return path + ": no *.drive in it";
        paths += found;
    }
    paths.removeDuplicates();
    QStringList seen;
    for (const QString &path : paths) {
        const QStringList tags = tagsOf(path);
        seen += tags;
        if ((filter.wanted.isEmpty() || haveOneInCommon(tags, filter.wanted)) &&
            !haveOneInCommon(tags, filter.skipped))
            drives->append({path, tags});
    }
    seen.removeDuplicates();
    seen.sort();
    if (drives->isEmpty())
        return QStringLiteral("no drive has these tags; there are: ") +
               (seen.isEmpty() ? "none" : seen.join(", "));
    return {};
}
