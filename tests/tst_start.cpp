// SPDX-License-Identifier: MIT

// What a process does at first; each story is a process of its own.

#include "board/serdescontrol.h"
#include "board/simutouch.h"
#include "board/watchdogcontrol.h"
#include "can/caninterface.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/fakelink.h"
#include "tests/seam/vehicle.h"

#include <QMetaMethod>
#include <QThread>
#include <QtTest>

using stories::Args;

class TestStart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void start_data() { stories::load("start"); }
    void start();
};

// A class's own signals and slots, in their order: connections are made by these words.
static void tellMembers(Args w)
{
    for (const QMetaObject *type :
         {&PvmMain::staticMetaObject, &CANInterface::staticMetaObject, &CanTest::staticMetaObject,
          &DeviceDatasManager::staticMetaObject, &SharedMemoryControl::staticMetaObject,
          &SerdesControl::staticMetaObject, &WatchDogControl::staticMetaObject,
          &simutouch::staticMetaObject}) {
        for (int i = type->methodOffset(); w[0] == type->className() && i < type->methodCount();
             ++i)
            effects::add(
                (type->method(i).methodType() == QMetaMethod::Signal ? "signal " : "slot ") +
                type->method(i).methodSignature());
    }
}

static void tellAgain(const QStringList &lines)
{
    QString thread;
    QDebug(&thread) << QThread::currentThreadId();
    for (QString line : lines)
        effects::add(line.replace(thread.trimmed(), "(this thread)"));
}

void TestStart::start()
{
    effects::reset();
    fakecan::reset();
    effects::setFile("/dev/watchdog", "");
    effects::setFile("/sys/class/gpio/gpio150/value", "0\n");
    Vehicle vehicle;
    stories::Verbs verbs = vehicle.verbs();
    const QStringList made = effects::take();
    verbs["made"] = [&](Args) { tellAgain(made); };
    verbs["run"] = [&](Args) { vehicle.controller->run(); };
    verbs["frame"] = [](Args w) { fakecan::device->receive({fakecan::frame(w[0])}); };
    verbs["end"] = [&](Args) {
        vehicle.controller.reset();
        effects::add(gFakeLink != nullptr ? "the link lives" : "the link is gone");
    };
    verbs["members"] = tellMembers;
    stories::play(verbs);
}

QTEST_GUILESS_MAIN(TestStart)
#include "tst_start.moc"
