#include "app/pvmmain.h"
#include "board/watchdogcontrol.h"
#include "can/cantest.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/fakelink.h"

#include <QThread>
#include <QtTest>

/// A controller on the seam, driven by words. The link is a fake without a thread.
class Vehicle
{
public:
    Vehicle()
    {
        DeviceDatasManager::self()->setSpeed(0);
        DeviceDatasManager::self()->setKeyStaus(0);
        DeviceDatasManager::self()->setLightStatus(0);
        DeviceDatasManager::self()->setGear(0);
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

    void run(const QString &step)
    {
        const QStringList words = step.split(' ');
        const QString &verb = words.first();
        const int value = words.value(1).toInt();
        if (verb == "gear")
            signal(CAN_SIG_GEAR, can->mGearStatus, value);
        else if (verb == "light")
            signal(CAN_SIG_LIGHT_STATUS, can->mLightStatus, value);
        else if (verb == "speed")
            signal(CAN_SIG_SPEED, can->mSpeed, value);
        else if (verb == "key")
            signal(CAN_SIG_KEY_STATUS, can->mKeyStatus, value);
        else if (verb == "angle")
            signal(CAN_SIG_ANGLE, can->mAngle, value);
        else if (verb == "signal")
            Q_EMIT can->canTestDataChangedSignal(static_cast<unsigned char>(value));
        else if (verb == "allow")
            gFakeLink->setIsTurnSwitchEnable(value == 1), Q_EMIT gFakeLink->turnSwitchSignal();
        else if (verb == "init")
            gFakeLink->setIsAVMInited(value == 1), Q_EMIT gFakeLink->avmInitOkSignal();
        else if (verb == "ask")
            controller->toSwitchVideo(value);
        else if (verb == "delay")
            controller->on_delayQuitRvcTimerOut();
        else if (verb == "board")
            controller->onPhySwitchTriggerSlot(value);
        else
            QFAIL(qPrintable("no such step: " + step));
    }

    DeviceData record() const { return DeviceDatasManager::self()->deviceData(); }

    std::unique_ptr<PvmMain> controller;
    CanTest *can;

private:
    void signal(unsigned char id, int &member, int value)
    {
        member = value;
        Q_EMIT can->canTestDataChangedSignal(id);
    }
};

class TestPvmMain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void startUp();
    void decision_data();
    void decision();
    void changeLines();
    void angle_data();
    void angle();
    void clock_data();
    void clock();
    void keyRadarAndRecord();
    void radarDistance();
};

// Without what every change logs: the stories look at what follows from it.
static QStringList consequences(const QStringList &lines)
{
    QStringList rest;
    for (QString line : lines) {
        if (line.contains(",change to:") || line.startsWith("open ") || line == "close")
            continue;
        rest << line.remove("log ");
    }
    return rest;
}

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
    QCOMPARE(lines.mid(1),
             (QStringList{
                 "log T840 Serdes Control init start(20250331)!",
                 "open /sys/class/gpio/gpio150/value O_WRONLY", "write \"1\\0\"", "close",
                 "open /dev/watchdog O_WRONLY", "log setWatchDogOnOff true", "link created",
                 "system ip link set can0 down",
                 "system ip link set up can0 type can bitrate 500000 listen-only on restart-ms 100",
                 "can create socketcan can0",
                 QStringLiteral("can filter 0/0 type 1 format %1")
                     .arg(QCanBusDevice::Filter::MatchBaseAndExtendedFormat),
                 "can errors 1fffffff, other keys 0", "log CAN 0  Open OK."}));
    // A frame, a changed record and a stopped renderer find their way.
    vehicle.controller->run();
    fakecan::device->receive(0x681AA02, "\x07", true);
    QCOMPARE(vehicle.record().speed, 7);
    effects::take();
    DeviceDatasManager::self()->on_delayTimerOut();
    Q_EMIT gFakeLink->avmStopSignal(true);
    QCOMPARE(effects::take(), (QStringList{"link exchange", "log === avm stop === "}));
    Q_EMIT gFakeLink->avmStopSignal(false);
    // Going away touches nothing.
    vehicle.controller.reset();
    QCOMPARE(effects::take(), QStringList());
}

// The stories of decision.stories, one row each.
void TestPvmMain::decision_data()
{
    QTest::addColumn<QStringList>("steps");
    QFile file(QFINDTESTDATA("decision.stories"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QList<QPair<QString, QString>> names;
    QString title;
    QStringList steps;
    for (QString line : QString::fromUtf8(file.readAll() + "\n[end]").split('\n')) {
        if (line.startsWith('$')) {
            names.prepend({line.section(" = ", 0, 0), line.section(" = ", 1)});
        } else if (line.startsWith('[')) {
            if (!title.isEmpty())
                QTest::newRow(qPrintable(title)) << steps;
            title = line;
            steps.clear();
        } else if (!line.isEmpty() && !line.startsWith('#')) {
            for (const auto &name : names)
                line.replace(name.first, name.second);
            steps << line;
        }
    }
}

void TestPvmMain::decision()
{
    QFETCH(QStringList, steps);
    Vehicle vehicle;
    QVERIFY(!steps.isEmpty());
    for (const QString &step : steps) {
        const QStringList sides = step.split(" -> ");
        const QStringList expected = sides.size() > 1 ? sides[1].split("; ") : QStringList();
        effects::take();
        vehicle.run(sides.first());
        if (QTest::currentTestFailed())
            return;
        const QStringList seen = consequences(effects::take());
        QVERIFY2(seen == expected, qPrintable(step + "\n  saw: " + seen.join("; ")));
    }
}

// Every change line, old value and new, and that the record follows.
void TestPvmMain::changeLines()
{
    Vehicle vehicle;
    const QStringList quiet{"NETWORK", "NIGHT",      "DRIVING_DIRECTION",
                            "LIGHTS",  "HAND_BREAK", "DOOR"};
    int *const members[] = {&vehicle.can->mNetworkStatus,    &vehicle.can->mNightMode,
                            &vehicle.can->mDrivingDirection, &vehicle.can->mLights,
                            &vehicle.can->mHandBreak,        &vehicle.can->mDoorStatus};
    const int ids[] = {0, 1, 2, 9, 11, 12};
    for (int i = 0; i < quiet.size(); ++i) {
        for (const int value : {5, 6}) {
            *members[i] = value;
            effects::take();
            vehicle.run(QStringLiteral("signal %1").arg(ids[i]));
        }
        QCOMPARE(effects::take(),
                 QStringList{QStringLiteral("log ==== CAN SIG %1  5 ,change to: 6").arg(quiet[i])});
    }
    for (const int id : {4, 8}) {
        vehicle.run(QStringLiteral("signal %1").arg(id));
        QCOMPARE(effects::take(), QStringList());
    }
    for (const int id : {16, 200, 255}) {
        vehicle.run(QStringLiteral("signal %1").arg(id));
        QCOMPARE(effects::take(),
                 QStringList{QStringLiteral("log ==== CAN SIG %1 ,change, ignore.").arg(id)});
    }
    vehicle.run("gear 3");
    vehicle.run("light 0");
    vehicle.run("key 0");
    effects::take();
    vehicle.run("gear 4");
    vehicle.run("light 1");
    vehicle.run("light 2");
    vehicle.run("light -1");
    vehicle.run("key 2");
    vehicle.run("key 2");
    vehicle.run("key 1");
    QCOMPARE(
        effects::take(),
        (QStringList{"log ==== CAN SIG GEAR  3 ,change to: 4",
                     "log ==== CAN SIG LIGHT_STATUS  \"[OFF]\" ,change to: \"[LEFT]\"",
                     "log ==== CAN SIG LIGHT_STATUS  \"[LEFT]\" ,change to: \"[RIGHT]\"",
                     "log ==== CAN SIG LIGHT_STATUS  \"[RIGHT]\" ,change to: \"[HARZARD]\"",
                     "log ==== CAN SIG KEY_STATUS  0 ,change to: 2",
                     "log ==== IGN On ====", "log ==== CAN SIG KEY_STATUS  2 ,change to: 2",
                     "log ==== CAN SIG KEY_STATUS  2 ,change to: 1", "log ==== IGN off ===="}));
}

void TestPvmMain::keyRadarAndRecord()
{
    Vehicle vehicle;
    vehicle.can->mRadarStatus = 0xFFFFFFFF;
    vehicle.run("signal 13");
    vehicle.can->mRadarStatus = 0xFF222333;
    effects::recordTimers(true);
    effects::take();
    vehicle.run("signal 13");
    QCOMPARE(effects::take().first(),
             QStringLiteral("log ==== RADAR \"ffffffff\" ,change to: \"ff222333\""));
    vehicle.can->mRadarStatus = 0x1FF222333;
    vehicle.run("signal 13");
    QCOMPARE(effects::take().last(),
             QStringLiteral("log ==== RADAR \"ff222333\" ,change to: \"1ff222333\""));
    QCOMPARE(static_cast<quint32>(vehicle.record().radar), 0xFF222333U);
    for (const char *step : {"gear 2", "light 2", "key 2", "speed 200"})
        vehicle.run(step);
    const DeviceData record = vehicle.record();
    QVERIFY(record.gear == 2 && record.lightStatus == 2 && record.keyStatus == 2 &&
            record.speed == 200);
    // While the delay runs the record keeps R and nothing is handed on.
    DeviceDatasManager::self()->on_delayTimerOut();
    effects::take();
    vehicle.run("gear 4");
    QVERIFY(effects::take().contains("timer 100"));
    QCOMPARE(vehicle.record().gear, char(2));
    vehicle.run("delay");
    QVERIFY(effects::take().contains("timer 50"));
    QCOMPARE(vehicle.record().gear, char(4));
}

void TestPvmMain::angle_data()
{
    QTest::addColumn<int>("raw");
    QTest::addColumn<int>("angle");
    QTest::addColumn<int>("kept");
    const int rows[][3] = {{0, 0, 0},
                           {48, 0, 48},
                           {49, 33, 49},
                           {1000, 660, 1000},
                           {4230, 2838, 4230},
                           {4231, 2838, 4230},
                           {5000, 2838, 4230},
                           {32768, 2838, 4230},
                           {32769, -2838, 61311},
                           {61310, -2838, 61311},
                           {61311, -2838, 61311},
                           {65000, -330, 65000},
                           {65535, 0, 65535}};
    for (const auto &row : rows)
        QTest::addRow("%d", row[0]) << row[0] << row[1] << row[2];
}

void TestPvmMain::angle()
{
    QFETCH(int, raw);
    Vehicle vehicle;
    effects::take();
    vehicle.run(QStringLiteral("angle %1").arg(raw));
    QTEST(vehicle.record().angle, "angle");
    QTEST(vehicle.can->mAngle, "kept");
    QCOMPARE(effects::take(), QStringList());
}

void TestPvmMain::clock_data()
{
    QTest::addColumn<QString>("now");
    QTest::addColumn<qint64>("date");
    QTest::addColumn<qint64>("time");
    QTest::addColumn<QString>("command"); // empty: agrees
    const qint64 day = 20231116;
    QTest::newRow("equal") << "2023-11-16 20:34:59" << day << 2034LL << "";
    QTest::newRow("1 ahead") << "2023-11-16 20:35:10" << day << 2034LL << "";
    QTest::newRow("1 behind") << "2023-11-16 20:33:00" << day << 2034LL << "";
    QTest::newRow("2 behind") << "2023-11-16 20:32:59" << day << 2034LL
                              << "date -s 202311162034.00";
    QTest::newRow("3 ahead") << "2023-11-16 20:37:00" << day << 2034LL << "date -s 202311162034.00";
    QTest::newRow("across the hour")
        << "2023-11-16 20:59:59" << day << 2100LL << "date -s 202311162100.00";
    QTest::newRow("other day") << "2023-11-17 20:34:00" << day << 2034LL
                               << "date -s 202311162034.00";
    QTest::newRow("zeros") << "2023-11-16 20:34:00" << day << 905LL << "date -s 202311160905.00";
    QTest::newRow("past midnight")
        << "2023-11-17 00:34:00" << day << 2434LL << "date -s 202311162434.00";
    QTest::newRow("long and short")
        << "2023-11-16 20:34:00" << 0LL << 26555LL << "date -s 026555.00";
    QTest::newRow("no date") << "2023-11-16 20:34:00" << -1LL << 2034LL << "none";
    QTest::newRow("no time") << "2023-11-16 20:34:00" << day << -1LL << "none";
}

void TestPvmMain::clock()
{
    QFETCH(QString, now);
    QFETCH(qint64, date);
    QFETCH(qint64, time);
    QFETCH(QString, command);
    Vehicle vehicle;
    effects::now = QDateTime::fromString(now, "yyyy-MM-dd hh:mm:ss");
    vehicle.can->mCanDate = date;
    vehicle.can->mCanTime = time;
    effects::take();
    vehicle.run("signal 15");
    QStringList expected;
    if (command.isEmpty()) {
        expected
            << QStringLiteral("log ====   device DateTime  change to: %1   %2").arg(date).arg(time)
            << "log ====   DateTime right return  \"" + now + "\"";
    } else if (command != "none") {
        const QDateTime at = effects::now;
        expected << QStringLiteral(
                        "log ==== testTimeOut  year  %1  month  %2  day  %3  hour  %4  minute  %5")
                        .arg(at.date().year())
                        .arg(at.date().month())
                        .arg(at.date().day())
                        .arg(at.time().hour())
                        .arg(at.time().minute())
                 << QStringLiteral("log #### System DateTime change to: %1   %2 ,cmd: \"%3\"")
                        .arg(date)
                        .arg(time)
                        .arg(command)
                 << "system " + command;
    }
    QCOMPARE(effects::take(), expected);
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
