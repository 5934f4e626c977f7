// SPDX-License-Identifier: MIT

#include "bench/language/seconds.h"

#include <QRegularExpression>

bool parseSeconds(const QString &text, int64_t *us)
{
    static const QRegularExpression pattern("\\A(0*\\d{1,12})(?:\\.(\\d+))?\\z");
    const QRegularExpressionMatch match = pattern.match(text);
    const QString fraction = match.captured(2).left(6).leftJustified(6, '0');
    *us = match.captured(1).toLongLong() * 1'000'000 + fraction.toLongLong();
    return match.hasMatch();
}
