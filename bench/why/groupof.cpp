// SPDX-License-Identifier: MIT

#include "bench/why/groupof.h"

#include <QHash>
#include <QRegularExpression>

QString groupOf(const char *pattern, const QString &line)
{
    static QHash<const char *, QRegularExpression> read;
    auto found = read.find(pattern);
    if (found == read.end())
        found = read.insert(pattern, QRegularExpression(pattern));
    return found->match(line).captured(1);
}
