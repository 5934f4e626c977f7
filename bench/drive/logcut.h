// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <cstdint>
#include <limits>

struct Drive;

/// What is played of a log, and how.
struct LogCut
{
    static constexpr int64_t kAll = std::numeric_limits<int64_t>::max();

    QString channel = "can0";
    bool isChannelChosen = false; ///< somebody has said which one
    int64_t fromUs = 0;           ///< drive times of the whole log
    int64_t toUs = kAll;
    int64_t longestGapUs = kAll; ///< a longer one becomes that
    bool isTolerant = false;     ///< what cannot be read is left out and told

    bool isWhole() const { return fromUs == 0 && toUs == kAll && longestGapUs == kAll; }
};

/// Leaves out of the drive what is not to be played. Its `at` lines keep their place in the log,
/// and drive time 0 is `fromUs`. Returns what is wrong, or an empty text.
QString cutLog(const LogCut &cut, Drive *drive);
