// SPDX-License-Identifier: MIT

#include "bench/soak/decisionmodel.h"
#include "devicedata/devicedatasmanager.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/vehicle.h"

#include <QRandomGenerator>
#include <QtTest>

class TestApp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void decision_data() { stories::load("decision"); }
    void decision() { play(",change to:|^open /|^close$|Failed get GPIO|LOCK Status"); }
    void events_data() { stories::load("events"); }
    void events() { play("^$"); }
    void randomEvents();

private:
    static void play(const QString &ignored)
    {
        Vehicle vehicle;
        stories::play(vehicle.verbs(), ignored);
    }
};

void TestApp::init()
{
    effects::reset();
    fakecan::reset();
    effects::setFile("/sys/class/gpio/gpio150/value", "0\n");
    DeviceDatasManager::self();
}

static QPair<QString, int> randomEvent(QRandomGenerator &random)
{
    static const QList<int> speeds{0, 0, 1, 14, 15, 16, 17, 18, 60, 255};
    const QList<QPair<QString, int>> events{{"gear", 1 + random.bounded(4)},
                                            {"gear", 1 + random.bounded(4)},
                                            {"light", random.bounded(4)},
                                            {"speed", speeds[random.bounded(speeds.size())]},
                                            {"board", 1},
                                            {"allow", random.bounded(2)},
                                            {"fire", 100}};
    return events[random.bounded(events.size())];
}

// The same event for both, again and again. Returns how many there were; the first difference fails
// the test.
static int playLife(QRandomGenerator &random, const QString &name)
{
    effects::reset();
    fakecan::reset();
    Vehicle vehicle;
    stories::Verbs verbs = vehicle.verbs();
    verbs["fire"] = [](stories::Args w) { effects::fire(w.number()); };
    DecisionModel model;
    QStringList story{name};
    for (int i = 0; i < 250; ++i) {
        const auto event = randomEvent(random);
        effects::take();
        model.asked.clear();
        if (!model.take(event.first, event.second))
            continue;
        story << QStringLiteral("%1 %2").arg(event.first).arg(event.second);
        verbs[event.first](stories::Words({QString::number(event.second)}));
        const DeviceData record = DeviceDatasManager::self()->deviceData();
        const bool agrees =
            effects::take().filter(QRegularExpression("^picture ")) == model.asked &&
            record.gear == model.sentGear && record.lightStatus == model.sentLight &&
            record.speed == model.sentSpeed;
        if (!agrees) {
            QTest::qFail(qPrintable(story.join(", ")), __FILE__, __LINE__);
            break;
        }
    }
    return story.size() - 1;
}

// PVM_TEST_SEED plays the events of an earlier run again.
void TestApp::randomEvents()
{
    const quint32 seed = qEnvironmentVariableIsSet("PVM_TEST_SEED")
                             ? qgetenv("PVM_TEST_SEED").toUInt()
                             : QRandomGenerator::global()->generate();
    QRandomGenerator random(seed);
    int played = 0;
    for (int life = 0; life < 600 && !QTest::currentTestFailed(); ++life)
        played += playLife(random, QStringLiteral("seed %1").arg(seed));
    QVERIFY(played >= 90000);
}

QTEST_GUILESS_MAIN(TestApp)
#include "tst_app.moc"
