#include "app/pvmmain.h"
#include "board/watchdogcontrol.h"
#include "can/cantest.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/fakelink.h"
#include "tests/seam/stories.h"

#include <QThread>
#include <QtTest>

/// A controller on the seam. The link is a fake without a thread.
class Vehicle
{
public:
    Vehicle()
    {
        DeviceDatasManager::self()->setSpeed(0);
        DeviceDatasManager::self()->setKeyStaus(0);
        DeviceDatasManager::self()->setLightStatus(0);
        DeviceDatasManager::self()->setGear(0);
        DeviceDatasManager::self()->setAngle(0);
        DeviceDatasManager::self()->setRadar(0xFFFFFF);
        controller = std::make_unique<PvmMain>(nullptr);
        can = controller->findChild<CanTest *>();
        QObject::connect(controller.get(), &PvmMain::switchVideoSignal, [](int request) {
            effects::add(QStringLiteral("picture %1").arg(request));
        });
    }

    ~Vehicle()
    {
        controller.reset();
        delete gFakeLink;
    }

    void run(const QStringList &words)
    {
        const QString &verb = words.first();
        const int value = words.value(1).toInt();
        const QHash<QString, QPair<int, int *>> signalOf{
            {"network", {CAN_SIG_NETWORK, &can->mNetworkStatus}},
            {"night", {CAN_SIG_NIGHT, &can->mNightMode}},
            {"direction", {CAN_SIG_DRIVING_DIRECTION, &can->mDrivingDirection}},
            {"speed", {CAN_SIG_SPEED, &can->mSpeed}},
            {"key", {CAN_SIG_KEY_STATUS, &can->mKeyStatus}},
            {"light", {CAN_SIG_LIGHT_STATUS, &can->mLightStatus}},
            {"angle", {CAN_SIG_ANGLE, &can->mAngle}},
            {"lights", {CAN_SIG_LIGHTS, &can->mLights}},
            {"gear", {CAN_SIG_GEAR, &can->mGearStatus}},
            {"brake", {CAN_SIG_HAND_BREAK, &can->mHandBreak}},
            {"door", {CAN_SIG_DOOR, &can->mDoorStatus}}};
        if (signalOf.contains(verb)) {
            *signalOf[verb].second = value;
            Q_EMIT can->canTestDataChangedSignal(static_cast<unsigned char>(signalOf[verb].first));
        } else if (verb == "radar") {
            can->mRadarStatus = words[1].toULongLong(nullptr, 16);
            Q_EMIT can->canTestDataChangedSignal(CAN_SIG_RADAR);
        } else if (verb == "clock") {
            can->mCanDate = words[1].toLongLong();
            can->mCanTime = words[2].toLongLong();
            Q_EMIT can->canTestDataChangedSignal(CAN_SIG_DATETIME);
        } else if (verb == "signal") {
            Q_EMIT can->canTestDataChangedSignal(static_cast<unsigned char>(value));
        } else if (verb == "allow") {
            gFakeLink->setIsTurnSwitchEnable(value == 1);
            Q_EMIT gFakeLink->turnSwitchSignal();
        } else if (verb == "init") {
            gFakeLink->setIsAVMInited(value == 1);
            Q_EMIT gFakeLink->avmInitOkSignal();
        } else if (verb == "ask") {
            controller->toSwitchVideo(value);
        } else if (verb == "delay") {
            controller->on_delayQuitRvcTimerOut();
        } else if (verb == "announce") {
            DeviceDatasManager::self()->on_delayTimerOut();
        } else if (verb == "board") {
            controller->onPhySwitchTriggerSlot(value);
        } else if (verb == "record") {
            const DeviceData record = DeviceDatasManager::self()->deviceData();
            effects::add(QStringLiteral("gear %1 light %2 key %3 speed %4 angle %5 radar %6")
                             .arg(static_cast<int>(record.gear))
                             .arg(static_cast<int>(record.lightStatus))
                             .arg(static_cast<int>(record.keyStatus))
                             .arg(record.speed)
                             .arg(record.angle)
                             .arg(static_cast<quint32>(record.radar), 0, 16));
        } else if (verb == "kept-angle") {
            effects::add(QString::number(can->mAngle));
        } else {
            QFAIL(qPrintable("no such step: " + verb));
        }
    }

    std::unique_ptr<PvmMain> controller;
    CanTest *can;
};

class TestPvmMain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void startUp();
    void decision_data() { stories::load(QFINDTESTDATA("stories/decision.stories")); }
    void decision();
    void signal_data() { stories::load(QFINDTESTDATA("stories/signals.stories")); }
    void signal();
    void radarDistance();
};

void TestPvmMain::init()
{
    effects::reset();
    fakecan::reset();
    effects::setFile("/dev/watchdog", "");
    effects::setFile("/sys/class/gpio/gpio150/value", "0\n");
    DeviceDatasManager::self();
    effects::take();
}

void TestPvmMain::startUp()
{
    WatchDogControl::getInstance()->setWatchDogOnOff(false);
    effects::take();
    Vehicle vehicle;
    const QStringList lines = effects::take();
    QString thread;
    QDebug(&thread) << QThread::currentThreadId();
    QCOMPARE(lines.first(), "log PvmMain  currentThreadId  " + thread.trimmed());
    QCOMPARE(lines.mid(1, 11).join('\n'),
             QString("log T840 Serdes Control init start(20250331)!\n"
                     "open /sys/class/gpio/gpio150/value O_WRONLY\nwrite \"1\\0\"\nclose\n"
                     "open /dev/watchdog O_WRONLY\nlog setWatchDogOnOff true\nlink created\n"
                     "system ip link set can0 down\nsystem ip link set up can0 type can bitrate "
                     "500000 listen-only on restart-ms 100\ncan create socketcan can0\n"
                     "can filter 0/0 type 1 format 3"));
    QCOMPARE(lines.last(), QString("log CAN 0  Open OK."));
    // A frame and a stopped renderer find their way.
    vehicle.controller->run();
    fakecan::device->receive(0x681AA02, "\x07", true);
    QCOMPARE(DeviceDatasManager::self()->deviceData().speed, 7);
    effects::take();
    Q_EMIT gFakeLink->avmStopSignal(true);
    QCOMPARE(effects::take(), QStringList{"log === avm stop === "});
    Q_EMIT gFakeLink->avmStopSignal(false);
    // Going away touches nothing.
    vehicle.controller.reset();
    QCOMPARE(effects::take(), QStringList());
    QVERIFY(gFakeLink != nullptr);
}

void TestPvmMain::decision()
{
    Vehicle vehicle;
    stories::play([&vehicle](const QStringList &words) { vehicle.run(words); },
                  ",change to:|^open |^close$");
}

void TestPvmMain::signal()
{
    Vehicle vehicle;
    stories::play([&vehicle](const QStringList &words) { vehicle.run(words); });
}

void TestPvmMain::radarDistance()
{
    Vehicle vehicle;
    QList<int> levels;
    for (int value = -1; value <= 12; ++value)
        levels << vehicle.controller->newCalcRadarDistance(value);
    QCOMPARE(levels, (QList<int>{0, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 0}));
    QCOMPARE(vehicle.controller->newCalcRadarDistance(INT_MIN), 0);
}

QTEST_GUILESS_MAIN(TestPvmMain)
#include "tst_pvmmain.moc"
