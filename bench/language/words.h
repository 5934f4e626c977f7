// SPDX-License-Identifier: MIT

#pragma once

#include "bench/language/statement.h"

#include <QStringList>

/// Reads the words behind the time, up to a comment, into @p statement, all but line and time.
/// Returns what is wrong, or an empty text.
QString parseWords(QString text, Statement *statement);

/// What may stand behind these words: words, and what isValueName(). Empty if nothing may.
QStringList wordsBehind(QString text);

/// Such as SECONDS, in place of which somebody writes a value.
bool isValueName(const QString &word);

/// The table of words, one row a line, for people.
QString wordListing();
