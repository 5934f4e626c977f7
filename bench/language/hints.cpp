// SPDX-License-Identifier: MIT

#include "bench/language/hints.h"

#include <QRegularExpression>
#include <QVector>

#include <algorithm>

namespace {

constexpr int kFar = 3; ///< letters that are wrong, from which on a word is another

/// How many letters are to be added, taken away, replaced or swapped with the next.
int distance(const QString &a, const QString &b)
{
    const auto rows = int(a.size()) + 1;
    const auto columns = int(b.size()) + 1;
    QVector<QVector<int>> d(rows, QVector<int>(columns));
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < columns; ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            const int replaced = d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d.last().last();
}

} // namespace

QString nearestOf(const QString &word, const QStringList &words)
{
    QString nearest;
    int least = std::min(kFar, int(word.size()));
    for (const QString &other : words) {
        // A word of a few letters has all others near.
        const int wrong = word.compare(other, Qt::CaseInsensitive) == 0 ? 0 : distance(word, other);
        if (wrong < least && 2 * wrong < int(other.size())) {
            least = wrong;
            nearest = other;
        }
    }
    return nearest;
}

QString withoutUnit(const QString &word)
{
    static const QRegularExpression pattern("\\A(-?[0-9]+(?:\\.[0-9]+)?)([a-zA-Z%][a-zA-Z/]*)\\z");
    const QRegularExpressionMatch match = pattern.match(word);
    return match.captured(2) == "ms" ? QString::number(match.captured(1).toDouble() / 1000)
                                     : match.captured(1);
}
