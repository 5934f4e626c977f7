// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"

#include <QHash>
#include <QString>

#include <cstdint>

/// Measures what the controller counts in ticks of 10 ms: how long after one fact another came.
/// Ticks take longer than 10 ms, by what is done in them and by how busy the machine is.
class TickCounts
{
public:
    /// For a fact that ends such a count "after 205 ms (19 ticks)", otherwise an empty text.
    /// @p us: real time, negative before drive time 0, where nothing is measured.
    QString take(const Fact &fact, int64_t us);

private:
    struct State
    {
        bool isArmed = false;
        int64_t startUs = -1;
    };
    QHash<int, State> mStates; ///< by the row of the table
};
