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

// One random event for both. Returns what it was.
static QString playEvent(QRandomGenerator &random, Model &model, Vehicle &vehicle)
{
    static const QList<int> speeds{0, 0, 1, 14, 15, 16, 17, 18, 60, 255};
    QString step;
    switch (random.bounded(8)) {
    case 0:
    case 1: {
        const int gear = 1 + random.bounded(4);
        if (gear == model.gear)
            return QString();
        step = QStringLiteral("gear %1").arg(gear);
        model.onGear(gear);
        break;
    }
    case 2: {
        const int light = random.bounded(4);
        if (light == model.light)
            return QString();
        step = QStringLiteral("light %1").arg(light);
        model.onLight(light);
        break;
    }
    case 3: {
        const int speed = speeds[random.bounded(speeds.size())];
        if (speed == model.speed)
            return QString();
        step = QStringLiteral("speed %1").arg(speed);
        model.onSpeed(speed);
        break;
    }
    case 4:
        step = "board 1";
        model.onClick();
        break;
    case 5: {
        const bool allowed = random.bounded(2) == 1;
        if (allowed == model.allowed)
            return QString();
        step = QStringLiteral("allow %1").arg(allowed);
        model.onAllowed(allowed);
        break;
    }
    case 6:
        if (!model.waiting)
            return QString();
        step = "delay";
        model.onDelay();
        break;
    default:
        model.sentKey = random.bounded(3);
        step = QStringLiteral("key %1").arg(model.sentKey);
        break;
    }
    vehicle.run(step.split(' '));
    return step;
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
        Model model;
        QStringList story;
        for (int i = 0; i < kEventsOfALife; ++i) {
            effects::take();
            model.asked.clear();
            const QString step = playEvent(random, model, vehicle);
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
    qInfo("%d events", played);
    QVERIFY(played >= 100000);
}

QTEST_GUILESS_MAIN(TestDecisionModel)
#include "tst_decisionmodel.moc"
