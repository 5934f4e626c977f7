// SPDX-License-Identifier: MIT

// A second telling of the picture decision, played against the controller with the same random
// events. It is written from docs/picture-decision.md, not from the controller. PVM_TEST_SEED plays
// the events of an earlier run again.

#include "devicedata/devicedatasmanager.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/vehicle.h"

#include <QRandomGenerator>
#include <QtTest>

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
    int sentKey = 0;
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

    void toPVM()
    {
        asked << "picture 1";
        shown = true;
    }

    void toDA()
    {
        if (held())
            return;
        asked << "picture 0";
        shown = false;
    }

    void turnBegins()
    {
        shownBeforeTurn = shown;
        toPVM();
    }

    void onLight(int value)
    {
        const bool wasTurning = sentLight == 1 || sentLight == 2;
        sentLight = light = value;
        if (!allowed || turning() == wasTurning)
            return;
        if (turning())
            turnBegins();
        else if (!shownBeforeTurn || tooFast())
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

    void onGear(int value)
    {
        gear = value;
        if (sentGear == 2 && gear != 2) {
            if (!waited && !waiting) {
                waiting = true;
                return;
            }
            if (waited)
                leaveR();
        } else if (sentGear != 2 && gear == 2) {
            toPVM();
        } else if (sentGear != 1 && gear == 1) {
            toDA();
        } else if (sentGear == 0 && (gear == 3 || gear == 4)) {
            toDA();
        }
        sentGear = gear;
    }

    void leaveR()
    {
        waited = false;
        if (gear == 1 || tooFast())
            toDA();
        if (gear == 4)
            speedRule = true;
    }

    void onDelay()
    {
        waiting = false;
        waited = true;
        onGear(gear);
    }

    /// False for an event that the decoder or the link would not report.
    bool take(const QString &what, int value)
    {
        if (what == "gear" && value != gear)
            onGear(value);
        else if (what == "light" && value != light)
            onLight(value);
        else if (what == "speed" && value != speed)
            onSpeed(value);
        else if (what == "allow" && (value == 1) != allowed)
            onAllowed(value == 1);
        else if (what == "fire" && waiting)
            onDelay();
        else if (what == "board")
            onClick();
        else if (what == "key")
            sentKey = value;
        else
            return false;
        return true;
    }

    void onClick()
    {
        if (held())
            return;
        if (shown) {
            toDA();
            speedRule = true;
        } else {
            if (sentGear == 4)
                speedRule = sentSpeed == 0;
            toPVM();
        }
    }
};

class TestDecisionModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void randomEvents();
};

// One random event for both. Returns what it was, nothing for one that changes nothing.
static QString playEvent(QRandomGenerator &random, Model &model, const stories::Verbs &verbs)
{
    static const QList<int> speeds{0, 0, 1, 14, 15, 16, 17, 18, 60, 255};
    const QList<QPair<QString, int>> events{{"gear", 1 + random.bounded(4)},
                                            {"gear", 1 + random.bounded(4)},
                                            {"light", random.bounded(4)},
                                            {"speed", speeds[random.bounded(speeds.size())]},
                                            {"board", 1},
                                            {"allow", random.bounded(2)},
                                            {"fire", 100},
                                            {"key", random.bounded(3)}};
    const auto &event = events[random.bounded(events.size())];
    if (!model.take(event.first, event.second))
        return QString();
    verbs[event.first](stories::Words({QString::number(event.second)}));
    return QStringLiteral("%1 %2").arg(event.first).arg(event.second);
}

void TestDecisionModel::randomEvents()
{
    constexpr int kLives = 600;
    constexpr int kEventsOfALife = 250;
    const quint32 seed = qEnvironmentVariableIsSet("PVM_TEST_SEED")
                             ? qgetenv("PVM_TEST_SEED").toUInt()
                             : QRandomGenerator::global()->generate();
    qInfo("seed %u", seed);
    QRandomGenerator random(seed);
    int played = 0;
    for (int life = 0; life < kLives; ++life) {
        effects::reset();
        fakecan::reset();
        Vehicle vehicle;
        stories::Verbs verbs = vehicle.verbs();
        verbs["fire"] = [](const stories::Words &w) { effects::fire(w.number()); };
        Model model;
        QStringList story;
        for (int i = 0; i < kEventsOfALife; ++i) {
            effects::take();
            model.asked.clear();
            const QString step = playEvent(random, model, verbs);
            if (step.isEmpty())
                continue;
            ++played;
            story << step;
            const DeviceData record = DeviceDatasManager::self()->deviceData();
            const bool agrees =
                effects::take().filter(QRegularExpression("^picture ")) == model.asked &&
                record.gear == model.sentGear && record.lightStatus == model.sentLight &&
                record.speed == model.sentSpeed && record.keyStatus == model.sentKey;
            QVERIFY2(agrees,
                     qPrintable(QStringLiteral("seed %1: %2").arg(seed).arg(story.join(", "))));
        }
    }
    QVERIFY(played >= 100000);
}

QTEST_GUILESS_MAIN(TestDecisionModel)
#include "tst_decisionmodel.moc"
