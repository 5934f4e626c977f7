// SPDX-License-Identifier: MIT

#pragma once

#include "bench/language/statement.h"

/// Reads the words behind the time, up to a comment, into @p statement, all but line and time.
/// Returns what is wrong, or an empty text.
QString parseWords(QString text, Statement *statement);

/// The table of words, one row a line, for people.
QString wordListing();
