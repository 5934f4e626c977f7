// SPDX-License-Identifier: MIT

#include "devicedata/devicedatasmanager.h"
#include "tests/seam/effects.h"

#include <QSignalSpy>
#include <QThread>
#include <QtTest>

class TestDeviceDatasManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void singleton();
    void everySetterHasItsBytes();
    void burstIsAnnouncedOnce();
    void receivingAnnouncesAtOnce();
    void copiesStayWhole();
};

static QByteArray bytesOf(const DeviceDatasManager &manager)
{
    QByteArray bytes(getDeviceDataLen(), 0);
    manager.structToCharArray(bytes.data());
    return bytes;
}

static const QByteArray kFresh =
    QByteArray::fromHex("ffffffff000000000000ffff00000000ffff00ffffffffffffffff00");

void TestDeviceDatasManager::init()
{
    effects::reset();
    effects::recordTimers(true);
}

void TestDeviceDatasManager::singleton()
{
    QCOMPARE(DeviceDatasManager::self(), DeviceDatasManager::self());
    QCOMPARE(effects::take(),
             (QStringList{"log  sizeof DeviceData 28", "log DeviceDatasManager init !"}));
}

void TestDeviceDatasManager::everySetterHasItsBytes()
{
    DeviceDatasManager manager(nullptr);
    QCOMPARE(bytesOf(manager), kFresh);
    QByteArray expected = kFresh;
    const auto expectBytes = [&](int offset, const char *hex) {
        const QByteArray bytes = QByteArray::fromHex(hex);
        expected.replace(offset, bytes.size(), bytes);
        return bytesOf(manager) == expected;
    };
    manager.setSpeed(0x11223344);
    QVERIFY(expectBytes(4, "44332211"));
    manager.setKeyStaus(2);
    QVERIFY(expectBytes(8, "02"));
    manager.setLightStatus(1);
    QVERIFY(expectBytes(9, "01"));
    manager.setAngle(-330);
    QVERIFY(expectBytes(12, "b6feffff"));
    manager.setGear(4);
    QVERIFY(expectBytes(18, "04"));
    manager.setRadar(0x00222333);
    QVERIFY(expectBytes(24, "33232200"));
    QCOMPARE(manager.deviceData().angle, -330);
}

void TestDeviceDatasManager::burstIsAnnouncedOnce()
{
    DeviceDatasManager manager(nullptr);
    QSignalSpy spy(&manager, SIGNAL(deviceDataChangedSignal()));
    effects::take();
    manager.setSpeed(0);
    manager.handleSendDataChanged();
    QCOMPARE(effects::take(), QStringList());
    // A change and its reversal are two changes of one burst.
    for (const int speed : {1, 0, 7}) {
        manager.setSpeed(speed);
        manager.handleSendDataChanged();
    }
    QCOMPARE(effects::take(), QStringList{"timer 50"});
    QCOMPARE(spy.size(), 0);
    manager.on_delayTimerOut();
    QCOMPARE(effects::take(), QStringList{"timer stop"});
    QCOMPARE(spy.size(), 1);
    manager.handleSendDataChanged();
    QCOMPARE(effects::take(), QStringList());
    manager.setSpeed(8);
    manager.handleSendDataChanged();
    QCOMPARE(effects::take(), QStringList{"timer 50"});
}

void TestDeviceDatasManager::receivingAnnouncesAtOnce()
{
    DeviceDatasManager manager(nullptr);
    QSignalSpy spy(&manager, SIGNAL(deviceDataChangedSignal()));
    QByteArray bytes = kFresh;
    bytes[21] = 0; // padding
    effects::take();
    manager.charArrayToStruct(bytes.constData(), 28);
    QVERIFY(!manager.handleRcvDataChanged());
    bytes[18] = 2;
    for (const int length : {27, 29, 0}) {
        manager.charArrayToStruct(bytes.constData(), length);
        QCOMPARE(effects::take(),
                 QStringList{QStringLiteral("log  size error  %1  dataLen  28").arg(length)});
        QVERIFY(!manager.handleRcvDataChanged());
    }
    QCOMPARE(spy.size(), 0);
    manager.charArrayToStruct(bytes.constData(), 28);
    QVERIFY(manager.handleRcvDataChanged());
    QVERIFY(!manager.handleRcvDataChanged());
    QCOMPARE(spy.size(), 1);
    QCOMPARE(effects::take(), QStringList());
    QCOMPARE(bytesOf(manager), bytes);
}

// The worker copies while the main thread stores: a torn copy would hold a speed nobody set. The
// thread sanitizer sees a missing lock at once.
void TestDeviceDatasManager::copiesStayWhole()
{
    DeviceDatasManager manager(nullptr);
    std::atomic<bool> stop{false};
    std::atomic<bool> torn{false};
    QScopedPointer<QThread> reader(QThread::create([&] {
        while (!stop) {
            const DeviceData record = manager.deviceData();
            if (record.speed != 0 && record.speed != 0x7F7F7F7F)
                torn = true;
        }
    }));
    reader->start();
    for (int i = 0; i < 50000; ++i)
        manager.setSpeed(i % 2 == 0 ? 0x7F7F7F7F : 0);
    stop = true;
    QVERIFY(reader->wait(10000));
    QVERIFY(!torn);
}

QTEST_GUILESS_MAIN(TestDeviceDatasManager)
#include "tst_devicedatasmanager.moc"
