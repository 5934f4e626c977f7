// SPDX-License-Identifier: MIT

#include "devicedata/devicedatasmanager.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/vehicle.h"

#include <QRandomGenerator>
#include <QtTest>

// A second telling of the picture decision, played against the controller with the same random
// events. It is written from docs/picture-decision.md, not from the controller.
struct Model
{
    // as decoded
    int gear = -1;
    int light = -1;
    int speed = -1;
    // as the renderer gets them
    int sentGear = 0;
    int sentLight = 0;
    int sentSpeed = 0;
    // what else is remembered
    bool shown = true; ///< PVM
    bool shownBeforeTurn = false;
    bool allowed = false;
    bool speedRule = true;
    bool waiting = false; ///< 100 ms since R was left
    bool waited = false;
    QStringList asked;

    bool turning() const { return light == 1 || light == 2; }
    bool held() const { return gear == 2 || (allowed && turning()); }
    bool tooFast() const { return sentSpeed > 16 && speedRule; }

    void show(bool isPVM)
    {
        asked << (isPVM ? "picture 1" : "picture 0");
        shown = isPVM;
    }

    void toDA()
    {
        if (!held())
            show(false);
    }

    void turnBegins()
    {
        shownBeforeTurn = shown;
        show(true);
    }

    void onLight(int value)
    {
        const bool wasTurning = sentLight == 1 || sentLight == 2;
        sentLight = light = value;
        if (allowed && turning() && !wasTurning)
            turnBegins();
        else if (allowed && !turning() && wasTurning && (!shownBeforeTurn || tooFast()))
            toDA();
    }

    void onAllowed(bool value)
    {
        allowed = value;
        if (allowed && turning())
            turnBegins();
    }

    void onSpeed(int value)
    {
        const bool crossed = sentSpeed <= 15 && value > 15;
        speed = value;
        if (crossed && shown && speedRule)
            toDA();
        sentSpeed = value;
    }

    void onGear()
    {
        if (sentGear == 2 && gear != 2) {
            if (!waited && !waiting) {
                waiting = true;
                return;
            }
            if (waited)
                leaveR();
        } else if (sentGear != 2 && gear == 2) {
            show(true);
        } else if (sentGear != 1 && (gear == 1 || sentGear == 0)) {
            toDA();
        }
        sentGear = gear;
    }

    void leaveR()
    {
        waited = false;
        if (gear == 1 || tooFast())
            toDA();
        speedRule = speedRule || gear == 4;
    }

    void onClick()
    {
        if (held())
            return;
        if (shown)
            speedRule = true;
        else if (sentGear == 4)
            speedRule = sentSpeed == 0;
        show(!shown);
    }

    /// False for an event that the decoder or the link would not report.
    bool take(const QString &what, int value)
    {
        if (what == "gear" && value != gear) {
            gear = value;
            onGear();
        } else if (what == "light" && value != light) {
            onLight(value);
        } else if (what == "speed" && value != speed) {
            onSpeed(value);
        } else if (what == "allow" && (value == 1) != allowed) {
            onAllowed(value == 1);
        } else if (what == "fire" && waiting) {
            waiting = false;
            waited = true;
            onGear();
        } else if (what == "board") {
            onClick();
        } else {
            return false;
        }
        return true;
    }
};

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
    Model model;
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
