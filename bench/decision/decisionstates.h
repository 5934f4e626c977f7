// SPDX-License-Identifier: MIT

#pragma once

#include "bench/decision/decisionmodel.h"

#include <vector>

/// Every state of the picture decision that events can reach, and what among them a driver would
/// not expect.
namespace decision {

/// As DecisionModel::take() knows it.
struct Event
{
    QString what;
    int value;
    QString words; ///< for people
};

struct Step
{
    int event;
    size_t to; ///< number of a state
};

struct State
{
    DecisionModel model;
    std::vector<int> path; ///< events from the start, the shortest
    std::vector<Step> steps;
    size_t taken = 0; ///< of its steps, for who goes through them
};

extern const std::vector<Event> kEvents;

/// Breadth first from the start; the driver uses the switch or leaves it alone.
std::vector<State> walk(bool hasClicks);

/// A line for each thing that a driver would not expect, with the shortest way to it; of what both
/// walks have seen.
QString surprises();

QString told(const std::vector<int> &path);

} // namespace decision
