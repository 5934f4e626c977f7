// SPDX-License-Identifier: MIT
//
// Takes every step between the states of the picture decision in the controller, and tells what a
// driver would not expect. PVM_TEST_SEED takes them in the order of an earlier run.

#include "bench/decision/decisionstates.h"
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
#include <random>
#include <vector>

using namespace decision;

namespace {

QTextStream gOut(stdout);

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
    gOut << surprises() << '\n';
    const unsigned seed = qEnvironmentVariableIsSet("PVM_TEST_SEED")
                              ? qgetenv("PVM_TEST_SEED").toUInt()
                              : std::random_device()();
    gOut << "seed " << seed << '\n';
    gOut.flush();
    std::mt19937 random(seed);
    return check(states, random) ? EXIT_SUCCESS : EXIT_FAILURE;
}
