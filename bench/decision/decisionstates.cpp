// SPDX-License-Identifier: MIT

#include "bench/decision/decisionstates.h"

#include <map>

namespace decision {

// Of a speed only its class counts: 0, up to 15, 16, above.
const std::vector<Event> kEvents{
    {"gear", 1, "P"},
    {"gear", 2, "R"},
    {"gear", 3, "N"},
    {"gear", 4, "D"},
    {"light", 0, "light off"},
    {"light", 1, "light left"},
    {"light", 2, "light right"},
    {"speed", 0, "speed 0"},
    {"speed", 15, "speed 15"},
    {"speed", 16, "speed 16"},
    {"speed", 17, "speed 17"},
    {"flag", 0, "the renderer forbids"},
    {"flag", 1, "the renderer allows"},
    {"told", 1, "its signal comes"},
    {"board", 1, "click"},
    {"fire", 100, "100 ms over"},
};

namespace {

std::vector<int> key(const DecisionModel &m)
{
    return {m.gear,   m.light,           m.speed,   m.sentGear,  m.sentLight, m.sentSpeed, m.shown,
            m.untold, m.shownBeforeTurn, m.allowed, m.speedRule, m.waiting,   m.waited};
}

/// What a driver would not expect.
struct Surprise
{
    const char *name;
    bool (*is)(const DecisionModel &model);
    bool hasClicks; ///< the driver may have used the switch
    bool isOfStep;  ///< seen in a step, not in the state behind it
    int count = 0;
    std::vector<int> path = {};
};

bool isPVMForNothing(const DecisionModel &m)
{
    return m.shown && !m.held() && !m.waiting && !m.untold && m.gear == m.sentGear;
}

Surprise gSurprises[] = {
    {"R without the rear view", [](const DecisionModel &m) { return m.gear == 2 && !m.shown; },
     true, false},
    {"PVM above the limit",
     [](const DecisionModel &m) { return isPVMForNothing(m) && m.speed > 16; }, false, false},
    {"PVM at 16", [](const DecisionModel &m) { return isPVMForNothing(m) && m.speed == 16; }, false,
     false},
    {"PVM left on in P", [](const DecisionModel &m) { return isPVMForNothing(m) && m.gear == 1; },
     false, false},
    {"an allowed turn light without PVM",
     [](const DecisionModel &m) { return m.allowed && !m.untold && m.turning() && !m.shown; }, true,
     false},
    {"DA refused, and nothing asks again", [](const DecisionModel &m) { return m.refused; }, false,
     true},
};

void noteSurprises(const State &from, size_t event, const DecisionModel &next, bool isNewState,
                   bool hasClicks)
{
    for (Surprise &surprise : gSurprises) {
        const bool isMeant = surprise.hasClicks == hasClicks && (surprise.isOfStep || isNewState);
        if (!isMeant || !surprise.is(next) || surprise.count++ > 0)
            continue;
        surprise.path = from.path;
        surprise.path.push_back(static_cast<int>(event));
    }
}

} // namespace

std::vector<State> walk(bool hasClicks)
{
    std::vector<State> states{{}};
    std::map<std::vector<int>, size_t> known{{key(states[0].model), 0}};
    for (size_t from = 0; from < states.size(); ++from) {
        for (size_t event = 0; event < kEvents.size(); ++event) {
            DecisionModel next = states[from].model;
            const bool isClick = kEvents[event].what == "board";
            if ((isClick && !hasClicks) || !next.take(kEvents[event].what, kEvents[event].value))
                continue;
            next.asked.clear();
            const auto [place, isNew] = known.insert({key(next), states.size()});
            noteSurprises(states[from], event, next, isNew, hasClicks);
            if (isNew) {
                states.push_back({next, states[from].path, {}});
                states.back().path.push_back(static_cast<int>(event));
            }
            states[from].steps.push_back({static_cast<int>(event), place->second});
        }
    }
    return states;
}

QString told(const std::vector<int> &path)
{
    QStringList words;
    for (const int event : path)
        words << kEvents[static_cast<size_t>(event)].words;
    return words.join(", ");
}

QString surprises()
{
    QStringList lines;
    for (const Surprise &surprise : gSurprises)
        lines << QStringLiteral("%1, %2 %3%4: %5")
                     .arg(surprise.name)
                     .arg(surprise.count)
                     .arg(surprise.isOfStep ? "steps" : "states",
                          surprise.hasClicks ? "" : " without a click", told(surprise.path));
    return lines.join('\n');
}

} // namespace decision
