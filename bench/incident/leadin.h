// SPDX-License-Identifier: MIT

#pragma once

#include "bench/incident/recollection.h"

/// What brings a board from its start to a state, within the first seconds of a drive. Times count
/// from drive time 0.
struct LeadIn
{
    static constexpr int64_t kUs = 5'000'000; ///< how long it takes

    std::vector<DriveLine> car;    ///< words of the vehicle
    std::vector<DriveLine> board;  ///< of all else
    std::vector<Request> requests; ///< that follow from it
    QStringList remarks;           ///< what it cannot bring about
};

LeadIn leadIn(const CarState &state);
