// SPDX-License-Identifier: MIT

#include "devicedata/devicedatasmanager.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/vehicle.h"

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

QTEST_GUILESS_MAIN(TestApp)
#include "tst_app.moc"
