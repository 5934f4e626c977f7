// SPDX-License-Identifier: MIT

#include "app/pvmmain.h"
#include "board/watchdogcontrol.h"
#include "can/cantest.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/fakelink.h"
#include "tests/seam/stories.h"
#include "tests/seam/vehicle.h"

#include <QThread>
#include <QtTest>

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

QTEST_GUILESS_MAIN(TestPvmMain)
#include "tst_pvmmain.moc"
