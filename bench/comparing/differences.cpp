// SPDX-License-Identifier: MIT

#include "bench/comparing/differences.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>

#include <algorithm>

namespace {

/// Runs a tool that every Debian has. False if it failed, or ended above @p highest.
bool runTool(const QString &program, const QStringList &arguments, const QByteArray &input,
             int highest, QByteArray *output, QString *fault)
{
    QProcess tool;
    tool.start(program, arguments);
    tool.write(input);
    tool.closeWriteChannel();
    const bool isOver = tool.waitForFinished(-1);
    *output = tool.readAllStandardOutput();
    if (isOver && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() <= highest)
        return true;
    *fault = program + ": " +
             QString::fromLocal8Bit(tool.readAllStandardError() + tool.errorString().toLocal8Bit())
                 .simplified();
    return false;
}

QJsonObject factOf(const QList<QByteArray> &lines, std::ptrdiff_t i)
{
    return QJsonDocument::fromJson(lines.value(static_cast<int>(i))).object();
}

/// Those of @p facts that are compared, in @p path too.
QString readComparable(const QByteArray &facts, const QString &path, QList<QByteArray> *lines)
{
    QFile rules(":/facts.sed");
    rules.open(QIODevice::ReadOnly);
    QByteArray comparable;
    QString fault;
    if (!runTool("sed", {"-E", "-e", QString::fromUtf8(rules.readAll())}, facts, 0, &comparable,
                 &fault))
        return fault;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(comparable) != comparable.size() ||
        !file.flush())
        return path + ": " + file.errorString();
    *lines = comparable.split('\n');
    lines->removeLast(); // behind the last end of a line
    return {};
}

} // namespace

int Differences::only(char side) const
{
    return static_cast<int>(
        std::count_if(all.begin(), all.end(),
                      [side](const Difference &difference) { return difference.side == side; }));
}

double Differences::pictureFrom() const
{
    double first = -1;
    for (const Difference &difference : all) {
        const double at = difference.fact["t"].toDouble();
        if (difference.fact["kind"] == "picture" && (first < 0 || at < first))
            first = at;
    }
    return first;
}

QString findDifferences(const QByteArray &a, const QByteArray &b, const QString &folder,
                        Differences *found)
{
    Q_INIT_RESOURCE(comparing);
    const QString pathA = QDir(folder).filePath("A");
    const QString pathB = QDir(folder).filePath("B");
    QList<QByteArray> linesA, linesB;
    QString fault = readComparable(a, pathA, &linesA);
    if (fault.isEmpty())
        fault = readComparable(b, pathB, &linesB);
    QByteArray numbers;
    if (!fault.isEmpty() ||
        !runTool("diff",
                 {"--minimal", "--unchanged-line-format=", "--old-line-format=A%dn\n",
                  "--new-line-format=B%dn\n", pathA, pathB},
                 {}, 1, &numbers, &fault))
        return fault;
    found->facts = static_cast<int>(linesA.size());
    for (const QByteArray &number : numbers.split('\n'))
        if (!number.isEmpty())
            found->all.append(
                {number[0], factOf(number[0] == 'A' ? linesA : linesB, number.mid(1).toInt() - 1)});
    if (!found->all.isEmpty()) {
        const auto first =
            std::mismatch(linesA.begin(), linesA.end(), linesB.begin(), linesB.end());
        found->firstA = factOf(linesA, first.first - linesA.begin());
        found->firstB = factOf(linesB, first.second - linesB.begin());
    }
    return {};
}
