// SPDX-License-Identifier: MIT
//
// Walks every state of the picture decision that events can reach, breadth first, over its model;
// takes each step in the controller too; and tells the shortest way into what a driver would not
// expect. PVM_TEST_SEED takes them in the order of an earlier run.

#include "bench/soak/decisionmodel.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/fakelink.h"
#include "tests/seam/vehicle.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

namespace {

QTextStream gOut(stdout);

struct Event
{
    QString what;
    int value;
    QString words; ///< for people
};

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

std::vector<int> key(const DecisionModel &m)
{
    return {m.gear,   m.light,           m.speed,   m.sentGear,  m.sentLight, m.sentSpeed, m.shown,
            m.untold, m.shownBeforeTurn, m.allowed, m.speedRule, m.waiting,   m.waited};
}

struct Step
{
    int event;
    size_t to;
};

struct State
{
    DecisionModel model;
    std::vector<int> path; ///< events from the start, the shortest
    std::vector<Step> steps;
    size_t taken = 0; ///< of its steps, in the controller
};

/// What a driver would not expect.
struct Surprise
{
    const char *name;
    bool hasClicks; ///< the driver may have used the switch
    bool isOfStep;  ///< seen in a step, not in the state behind it
    bool (*is)(const DecisionModel &model);
    int count = 0;
    std::vector<int> path = {};
};

bool isPVMForNothing(const DecisionModel &m)
{
    return m.shown && !m.held() && !m.waiting && !m.untold && m.gear == m.sentGear;
}

Surprise gSurprises[] = {
    {"R without the rear view", true, false,
     [](const DecisionModel &m) { return m.gear == 2 && !m.shown; }},
    {"PVM above the limit", false, false,
     [](const DecisionModel &m) { return isPVMForNothing(m) && m.speed > 16; }},
    {"PVM at 16", false, false,
     [](const DecisionModel &m) { return isPVMForNothing(m) && m.speed == 16; }},
    {"PVM left on in P", false, false,
     [](const DecisionModel &m) { return isPVMForNothing(m) && m.gear == 1; }},
    {"an allowed turn light without PVM", true, false,
     [](const DecisionModel &m) { return m.allowed && !m.untold && m.turning() && !m.shown; }},
    {"DA refused, and nothing asks again", false, true,
     [](const DecisionModel &m) { return m.refused; }},
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

/// A life of the controller that goes from step to step.
class Life
{
public:
    Life()
    {
        effects::reset();
        fakecan::reset();
        mVehicle = std::make_unique<Vehicle>();
        mVerbs = mVehicle->verbs();
        mVerbs["told"] = [](stories::Args) { Q_EMIT gFakeLink->turnSwitchSignal(); };
        mVerbs["fire"] = [](stories::Args w) { effects::fire(w.number()); };
        effects::take();
    }

    /// Whether the controller does what the model does.
    bool take(int number)
    {
        const Event &event = kEvents[static_cast<size_t>(number)];
        mPath.push_back(number);
        mModel.asked.clear();
        mModel.take(event.what, event.value);
        mVerbs[event.what](stories::Words({QString::number(event.value)}));
        const DeviceData record = DeviceDatasManager::self()->deviceData();
        return effects::take().filter(QRegularExpression("^picture ")) == mModel.asked &&
               record.gear == mModel.sentGear && record.lightStatus == mModel.sentLight &&
               record.speed == mModel.sentSpeed;
    }

    const std::vector<int> &path() const { return mPath; }

private:
    std::unique_ptr<Vehicle> mVehicle;
    stories::Verbs mVerbs;
    DecisionModel mModel;
    std::vector<int> mPath;
};

/// Takes every step once, and those on the way to it. False at the first difference.
bool check(std::vector<State> &states, std::mt19937 &random)
{
    for (State &state : states)
        std::shuffle(state.steps.begin(), state.steps.end(), random);
    std::vector<size_t> order(states.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), random);
    size_t checked = 0;
    for (const size_t start : order) {
        while (states[start].taken < states[start].steps.size()) {
            Life life;
            bool agrees = true;
            for (const int event : states[start].path)
                agrees = agrees && life.take(event);
            for (State *at = &states[start]; agrees && at->taken < at->steps.size(); ++checked) {
                const Step &step = at->steps[at->taken++];
                agrees = life.take(step.event);
                at = &states[step.to];
            }
            if (!agrees) {
                gOut << "FAIL: the controller does otherwise at the end of: " << told(life.path())
                     << '\n';
                return false;
            }
        }
    }
    gOut << checked << " steps taken in the controller, as the model has them\n";
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    effects::reset();
    effects::setFile("/sys/class/gpio/gpio150/value", "0\n");
    DeviceDatasManager::self();
    walk(false);
    std::vector<State> states = walk(true);
    size_t steps = 0;
    for (const State &state : states)
        steps += state.steps.size();
    gOut << states.size() << " states, " << steps << " steps between them\n";
    for (const Surprise &surprise : gSurprises)
        gOut << surprise.name << ", " << surprise.count
             << (surprise.isOfStep ? " steps" : " states")
             << (surprise.hasClicks ? ": " : " without a click: ") << told(surprise.path) << '\n';
    const unsigned seed = qEnvironmentVariableIsSet("PVM_TEST_SEED")
                              ? qgetenv("PVM_TEST_SEED").toUInt()
                              : std::random_device()();
    gOut << "seed " << seed << '\n';
    gOut.flush();
    std::mt19937 random(seed);
    return check(states, random) ? EXIT_SUCCESS : EXIT_FAILURE;
}
