// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

/// The one of @p words that was probably meant by @p word, empty if none is near.
QString nearestOf(const QString &word, const QStringList &words);

/// The number in a word such as `20km/h`, in seconds for `200ms`; empty for any other word.
QString withoutUnit(const QString &word);
