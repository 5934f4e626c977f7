// SPDX-License-Identifier: MIT

#include "devicedata/devicedatasmanager.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QThread>
#include <QtTest>

#include <atomic>

using stories::Args;

class TestDeviceData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { effects::reset(); }
    void record_data() { stories::load("record"); }
    void record();
    void copiesStayWhole();
};

// The bytes of a record whose change is one.
static QString countingBytes()
{
    QStringList bytes;
    for (int i = 0; i < getDeviceDataLen(); ++i) {
        DeviceData a;
        memset(&a, 0x5A, sizeof a);
        DeviceData b;
        memcpy(&b, &a, sizeof b);
        if (isDeviceDataChanged(&a, &b))
            return "equal ones differ";
        reinterpret_cast<char *>(&b)[i] ^= 0x40;
        if (isDeviceDataChanged(&a, &b))
            bytes << QString::number(i);
    }
    return bytes.join(' ');
}

void TestDeviceData::record()
{
    DeviceDatasManager manager(nullptr);
    connect(&manager, &DeviceDatasManager::deviceDataChangedSignal,
            [] { effects::add("announced"); });
    const auto codeOf = [](Args w) { return static_cast<char>(w.number()); };
    stories::play(
        {{"get", [](Args w) { effects::add(getBits(w.number(), w.number(1), w.number(2))); }},
         {"set",
          [](Args w) { effects::add(setBits(w.number(), w.number(1), w.number(2), w.number(3))); }},
         {"counting-bytes", [](Args) { effects::add(countingBytes()); }},
         {"length", [](Args) { effects::add(getDeviceDataLen()); }},
         {"speed", [&](Args w) { manager.setSpeed(w.number()); }},
         {"key", [&](Args w) { manager.setKeyStaus(codeOf(w)); }},
         {"light", [&](Args w) { manager.setLightStatus(codeOf(w)); }},
         {"angle", [&](Args w) { manager.setAngle(w.number()); }},
         {"gear", [&](Args w) { manager.setGear(codeOf(w)); }},
         {"radar", [&](Args w) { manager.setRadar(w.number()); }},
         {"bytes",
          [&](Args) {
              QByteArray bytes(28, 0);
              manager.structToCharArray(bytes.data());
              const DeviceData copy = manager.deviceData();
              DeviceData sent;
              memcpy(&sent, bytes.constData(), sizeof sent);
              const bool isSame = !isDeviceDataChanged(&copy, &sent);
              effects::add(isSame ? bytes.toHex() : "the copy differs");
          }},
         {"send", [&](Args) { manager.handleSendDataChanged(); }},
         {"receive", [&](Args) { effects::add(manager.handleRcvDataChanged()); }},
         {"take", [&](Args w) {
              const QByteArray bytes = QByteArray::fromHex(w[0].toLatin1());
              manager.charArrayToStruct(bytes.constData(), static_cast<int>(bytes.size()));
          }}});
}

// The worker copies while the main thread stores: a torn copy would hold a speed nobody set. The
// thread sanitizer sees a missing lock at once.
void TestDeviceData::copiesStayWhole()
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

QTEST_GUILESS_MAIN(TestDeviceData)
#include "tst_devicedata.moc"
