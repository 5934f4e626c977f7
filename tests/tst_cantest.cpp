// SPDX-License-Identifier: MIT

#include "can/caninterface.h"
#include "can/cantest.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/stories.h"

#include <QtTest>

class TestCanTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void frames_data() { stories::load(QFINDTESTDATA("stories/frames.stories")); }
    void frames();
    void everyByteOfACode();
    void droppedFrames();
    void manyFramesAtOnce();
    void withoutADevice();
};

// What was announced, with the value that a receiver finds.
static void tellSignals(const CanTest &can)
{
    QObject::connect(&can, &CanTest::canTestDataChangedSignal, [&can](unsigned char id) {
        const QHash<int, QString> texts{
            {CAN_SIG_SPEED, QStringLiteral("speed %1").arg(can.mSpeed)},
            {CAN_SIG_KEY_STATUS, QStringLiteral("key %1").arg(can.mKeyStatus)},
            {CAN_SIG_LIGHT_STATUS, QStringLiteral("light %1").arg(can.mLightStatus)},
            {CAN_SIG_ANGLE, QStringLiteral("angle %1").arg(can.mAngle)},
            {CAN_SIG_GEAR, QStringLiteral("gear %1").arg(can.mGearStatus)},
            {CAN_SIG_RADAR, QStringLiteral("radar %1").arg(can.mRadarStatus, 0, 16)},
            {CAN_SIG_DATETIME, QStringLiteral("clock %1 %2").arg(can.mCanDate).arg(can.mCanTime)}};
        effects::add(texts.value(id, QStringLiteral("signal %1").arg(id)));
    });
}

void TestCanTest::init()
{
    effects::reset();
    fakecan::reset();
}

void TestCanTest::frames()
{
    CanTest can(nullptr);
    QVERIFY(effects::take().contains("system ip link set up can0 type can bitrate 500000 "
                                     "listen-only on restart-ms 100"));
    tellSignals(can);
    stories::play([](const QStringList &words) {
        const QStringList frame = words[0].split('#');
        const int count = words.size() > 1 ? words[1].mid(1).toInt() : 1;
        for (int i = 0; i < count; ++i)
            fakecan::device->receive(frame[0].toUInt(nullptr, 16),
                                     QByteArray::fromHex(frame[1].toLatin1()), frame[0].size() > 3);
    });
}

// All 256 values of each byte that carries a code, against the tables of codes.
void TestCanTest::everyByteOfACode()
{
    const struct
    {
        quint32 id;
        int position;
        int run; ///< frames until a value is taken
        std::function<int(int)> expected;
        int CanTest::*member;
    } rows[] = {{0x413, 7, 1,
                 [](int code) {
                     return code == 0x45 || code == 0x49 ? 2 : code == 0x51 || code == 0x61 ? 1 : 0;
                 },
                 &CanTest::mLightStatus},
                {0x3E0, 4, 1, [](int code) { return code == 0x54   ? 2
                                                    : code == 0x04 ? 1
                                                                   : 0; },
                 &CanTest::mKeyStatus},
                {0x681AA02, 0, 1, [](int code) { return code; }, &CanTest::mSpeed},
                {0x1004501, 5, 5,
                 [](int code) { return QList<int>{1, 0, 0, 0, 0, 4, 3, 2}.value(code >> 4, 0); },
                 &CanTest::mGearStatus},
                {0x1004001, 4, 11,
                 [](int code) { return QList<int>{1, 0, 0, 0, 0, 4, 3, 2}.value(code & 15, 0); },
                 &CanTest::mGearStatus}};
    CanTest can(nullptr);
    for (const auto &row : rows) {
        for (int code = 0; code < 256; ++code) {
            QByteArray payload(8, static_cast<char>(0xA5));
            payload[row.position] = static_cast<char>(code);
            can.*row.member = -5;
            for (int frame = 1; frame <= row.run; ++frame) {
                QCOMPARE(can.*row.member, -5);
                fakecan::device->receive(row.id, payload, row.id > 0x7FF);
            }
            // No gear has the code 0: it must not be taken, however often it comes.
            const int expected = row.expected(code);
            QCOMPARE(can.*row.member, row.run > 1 && expected == 0 ? -5 : expected);
            fakecan::device->receive(0x1004501, QByteArray::fromHex("0000000000F0"), true);
        }
    }
}

void TestCanTest::droppedFrames()
{
    CanTest can(nullptr);
    tellSignals(can);
    effects::take();
    fakecan::device->receive({QCanBusFrame(QCanBusFrame::ErrorFrame)});
    fakecan::device->receive({QCanBusFrame(QCanBusFrame::InvalidFrame)});
    fakecan::device->receive({QCanBusFrame(0x413, QByteArray(9, 'x'))}); // longer than a frame
    fakecan::device->receive(0x681AA02, "\x10", false); // an identifier that needs 29 bits
    QCOMPARE(effects::take(), QStringList());
}

// One activation takes all that is pending; each change is told before the next frame is read.
void TestCanTest::manyFramesAtOnce()
{
    CanTest can(nullptr);
    tellSignals(can);
    effects::take();
    fakecan::device->receive({QCanBusFrame(0x3E0, QByteArray(5, 0x54)),
                              QCanBusFrame(QCanBusFrame::ErrorFrame),
                              QCanBusFrame(0x681AA02, "\x01"), QCanBusFrame(0x681AA02, "\x02")});
    QCOMPARE(effects::take(), (QStringList{"key 2", "speed 1", "speed 2"}));
    // Frames that a device keeps after it was disconnected must not hold the decoder up.
    fakecan::device->disconnectDevice();
    fakecan::device->receive({QCanBusFrame(0x681AA02, "\x03")});
    can.mCanInterface->processReceivedFrames();
    QCOMPARE(can.mSpeed, 2);
}

void TestCanTest::withoutADevice()
{
    fakecan::isCreateFailing = true;
    CanTest can(nullptr);
    can.onProcesscan0receivedframes();
    QVERIFY(can.mSpeed == -1 && can.mAngle == 32768 && can.mRadarStatus == 0xFFFFFFFFU);
}

QTEST_GUILESS_MAIN(TestCanTest)
#include "tst_cantest.moc"
