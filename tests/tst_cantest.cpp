#include "can/caninterface.h"
#include "can/cantest.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"

#include <QSignalSpy>
#include <QtTest>

class TestCanTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void opensTheVehicleBus();
    void values_data();
    void values();
    void gearNeedsItsRun_data();
    void gearNeedsItsRun();
    void gearRunIsBroken();
    void radar();
    void dateTime_data();
    void dateTime();
    void droppedFrames();
};

// Feeds frames and tells what was announced, in order.
class Decoder
{
public:
    Decoder() : test(nullptr), spy(&test, SIGNAL(canTestDataChangedSignal(unsigned char))) {}

    QList<int> feed(quint32 id, const QByteArray &payload, bool extended)
    {
        spy.clear();
        fakecan::device->receive(id, payload, extended);
        QList<int> ids;
        for (const QList<QVariant> &arguments : spy)
            ids << arguments.first().toInt();
        return ids;
    }

    CanTest test;
    QSignalSpy spy;
};

void TestCanTest::init()
{
    effects::reset();
    fakecan::reset();
}

void TestCanTest::opensTheVehicleBus()
{
    Decoder decoder;
    QCOMPARE(effects::take().mid(0, 3),
             (QStringList{
                 "system ip link set can0 down",
                 "system ip link set up can0 type can bitrate 500000 listen-only on restart-ms 100",
                 "can create socketcan can0"}));
    QVERIFY(decoder.test.mGearStatus == -1 && decoder.test.mAngle == 32768 &&
            decoder.test.mRadarStatus == 0xFFFFFFFFU && decoder.test.mCanTime == -1);
    // Without a device nothing is decoded and nothing breaks.
    fakecan::isCreateFailing = true;
    CanTest deaf(nullptr);
    deaf.onProcesscan0receivedframes();
    QCOMPARE(deaf.mSpeed, -1);
}

void TestCanTest::values_data()
{
    QTest::addColumn<quint32>("id");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("value");
    const auto row = [](const char *name, quint32 id, const char *hex, int signal, int value) {
        QTest::newRow(name) << id << QByteArray::fromHex(hex) << signal << value;
    };
    row("light 45", 0x413, "0000000000000045", CAN_SIG_LIGHT_STATUS, 2);
    row("light 49", 0x413, "0000000000000049", CAN_SIG_LIGHT_STATUS, 2);
    row("light 51", 0x413, "0000000000000051", CAN_SIG_LIGHT_STATUS, 1);
    row("light 61", 0x413, "0000000000000061", CAN_SIG_LIGHT_STATUS, 1);
    row("light 41", 0x413, "0000000000000041", CAN_SIG_LIGHT_STATUS, 0);
    row("light 7 bytes", 0x413, "45454545454545", CAN_SIG_LIGHT_STATUS, 0);
    row("key 54", 0x3E0, "0000000054", CAN_SIG_KEY_STATUS, 2);
    row("key 04", 0x3E0, "0000000004ffffff", CAN_SIG_KEY_STATUS, 1);
    row("key 55", 0x3E0, "0000000055", CAN_SIG_KEY_STATUS, 0);
    row("key 4 bytes", 0x3E0, "54545454", CAN_SIG_KEY_STATUS, 0);
    row("speed 255", 0x681AA02, "ff01", CAN_SIG_SPEED, 255);
    row("speed 1 byte", 0x681AA02, "10", CAN_SIG_SPEED, 16);
    row("speed empty", 0x681AA02, "", CAN_SIG_SPEED, 0);
    row("angle", 0x4812501, "0000003412ff", CAN_SIG_ANGLE, 0x1234);
    row("angle 5 bytes", 0x4812501, "ffffffffff", CAN_SIG_ANGLE, 0xFFFF);
    row("angle 4 bytes", 0x4812501, "11223344", CAN_SIG_ANGLE, 0x44);
    row("angle 3 bytes", 0x4812501, "112233", CAN_SIG_ANGLE, 0);
}

void TestCanTest::values()
{
    QFETCH(quint32, id);
    QFETCH(QByteArray, payload);
    QFETCH(int, signal);
    QFETCH(int, value);
    Decoder decoder;
    const QHash<int, int *> members{{CAN_SIG_LIGHT_STATUS, &decoder.test.mLightStatus},
                                    {CAN_SIG_KEY_STATUS, &decoder.test.mKeyStatus},
                                    {CAN_SIG_SPEED, &decoder.test.mSpeed},
                                    {CAN_SIG_ANGLE, &decoder.test.mAngle}};
    // The format bit does not matter, and an equal value is not announced again.
    QCOMPARE(decoder.feed(id, payload, true), QList<int>{signal});
    QCOMPARE(*members[signal], value);
    QCOMPARE(decoder.feed(id, payload, id > 0x7FF), QList<int>());
    *members[signal] = -5;
    QCOMPARE(decoder.feed(id, payload, true), QList<int>{signal});
}

void TestCanTest::gearNeedsItsRun_data()
{
    QTest::addColumn<quint32>("id");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("gear");
    QTest::addColumn<int>("run");
    const struct
    {
        const char *hex4501;
        const char *hex4001;
        int gear;
    } rows[] = {{"00000000000F", "00000000F0", 1}, {"000000000071", "00000000A7", 2},
                {"00000000006F", "0000000006", 3}, {"000000000050", "0000000015", 4},
                {"7070707070", "77777777", 1},     {"", "", 1}};
    for (const auto &row : rows) {
        QTest::addRow("4501 %s", row.hex4501)
            << 0x1004501U << QByteArray::fromHex(row.hex4501) << row.gear << 5;
        QTest::addRow("4001 %s", row.hex4001)
            << 0x1004001U << QByteArray::fromHex(row.hex4001) << row.gear << 11;
    }
    for (int code = 1; code < 16; ++code) {
        if (code >= 5 && code <= 7)
            continue;
        QTest::addRow("4501 undefined %x", code)
            << 0x1004501U << QByteArray(5, 0) + static_cast<char>(code << 4) << -1 << 100;
        QTest::addRow("4001 undefined %x", code)
            << 0x1004001U << QByteArray(4, 0) + static_cast<char>(code) << -1 << 100;
    }
}

void TestCanTest::gearNeedsItsRun()
{
    QFETCH(quint32, id);
    QFETCH(QByteArray, payload);
    QFETCH(int, gear);
    QFETCH(int, run);
    Decoder decoder;
    for (int frame = 1; frame <= 40; ++frame) {
        QCOMPARE(decoder.feed(id, payload, true),
                 frame == run ? QList<int>{CAN_SIG_GEAR} : QList<int>());
        QCOMPARE(decoder.test.mGearStatus, frame >= run ? gear : -1);
    }
}

void TestCanTest::gearRunIsBroken()
{
    const QByteArray r4501 = QByteArray::fromHex("000000000070");
    const QByteArray d4001 = QByteArray::fromHex("0000000005");
    const QByteArray r4001 = QByteArray::fromHex("0000000007");
    Decoder decoder;
    for (int i = 0; i < 50; ++i) {
        QCOMPARE(decoder.feed(0x1004501, r4501, true), QList<int>());
        QCOMPARE(decoder.feed(0x1004001, d4001, true), QList<int>());
    }
    // An undefined code starts the run again, a frame of the other identifier goes on with it.
    for (int i = 0; i < 4; ++i)
        QCOMPARE(decoder.feed(0x1004501, r4501, true), QList<int>());
    decoder.feed(0x1004501, QByteArray::fromHex("000000000080"), true);
    for (const auto &frame : {r4501, r4001, r4501, r4001}) {
        const quint32 id = frame.size() == 6 ? 0x1004501 : 0x1004001;
        QCOMPARE(decoder.feed(id, frame, true), QList<int>());
    }
    QCOMPARE(decoder.feed(0x1004001, r4001, true), QList<int>());
    QCOMPARE(decoder.feed(0x1004501, r4501, true), QList<int>{CAN_SIG_GEAR});
    QCOMPARE(decoder.test.mGearStatus, 2);
}

void TestCanTest::radar()
{
    Decoder decoder;
    const auto status = [&](quint32 id, const char *hex) {
        const quint64 before = decoder.test.mRadarStatus;
        const QList<int> ids = decoder.feed(id, QByteArray::fromHex(hex), false);
        const bool changed = before != decoder.test.mRadarStatus;
        return ids == (changed ? QList<int>{CAN_SIG_RADAR} : QList<int>())
                   ? decoder.test.mRadarStatus
                   : ~0ULL;
    };
    QCOMPARE(status(0x3E5, "000000080808"), 0xFFFFF333ULL);
    QCOMPARE(status(0x3E6, "0000020202"), 0xFF222333ULL);
    QCOMPARE(status(0x3E6, "0000020202"), 0xFF222333ULL);
    // Each level by itself; the other bits of its byte do not matter.
    QCOMPARE(status(0x3E5, "000000d0c7cf"), 0xFF222023ULL);
    QCOMPARE(status(0x3E6, "0000f9fafb"), 0xFF231023ULL);
}

void TestCanTest::dateTime_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<qint64>("date");
    QTest::addColumn<qint64>("time");
    const char full[] = "e7070b100c22";
    const struct
    {
        int length;
        qint64 date;
        qint64 time;
    } rows[] = {{6, 20231116, 2034}, {5, 20231116, 2000}, {4, 20231116, 800}, {3, 20231100, 800},
                {2, 20230000, 800},  {1, 2310000, 800},   {0, 0, 800}};
    for (const auto &row : rows)
        QTest::addRow("%d bytes", row.length)
            << QByteArray::fromHex(full).left(row.length) << row.date << row.time;
    QTest::newRow("hour not wrapped")
        << QByteArray::fromHex("e7070b101422") << 20231116LL << 2834LL;
    QTest::newRow("largest") << QByteArray::fromHex("ffffffffffff") << 655375755LL << 26555LL;
}

void TestCanTest::dateTime()
{
    QFETCH(QByteArray, payload);
    QFETCH(qint64, date);
    QFETCH(qint64, time);
    Decoder decoder;
    effects::take();
    QCOMPARE(decoder.feed(0x371, payload, false), QList<int>{CAN_SIG_DATETIME});
    QCOMPARE(effects::take(),
             QStringList{"log DATETIME: \"" + QCanBusFrame(0x371, payload).toString() + "\""});
    QCOMPARE(decoder.test.mCanDate, date);
    QCOMPARE(decoder.test.mCanTime, time);
    QCOMPARE(decoder.feed(0x371, payload, false), QList<int>());
    QCOMPARE(effects::take(), QStringList());
}

void TestCanTest::droppedFrames()
{
    Decoder decoder;
    effects::take();
    QCanBusFrame error(QCanBusFrame::ErrorFrame);
    fakecan::device->receive(error);
    fakecan::device->receive(QCanBusFrame(QCanBusFrame::InvalidFrame));
    fakecan::device->receive(QCanBusFrame(0x413, QByteArray(9, 'x'))); // longer than a frame
    QCOMPARE(decoder.feed(0x414, "12345678", false), QList<int>());
    QCOMPARE(decoder.feed(0x1004502, "12345678", true), QList<int>());
    QCOMPARE(decoder.test.mLightStatus, -1);
    QCOMPARE(effects::take(), QStringList());
}

QTEST_GUILESS_MAIN(TestCanTest)
#include "tst_cantest.moc"
