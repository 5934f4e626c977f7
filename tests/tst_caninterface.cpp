#include "can/caninterface.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"

#include <QtTest>

Q_DECLARE_METATYPE(QCanBusFrame)

class TestCanInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void opensAndCloses_data();
    void opensAndCloses();
    void failuresAreLogged();
    void reopenReleasesTheEarlierDevice();
    void unknownChannel();
    void errorsAreLogged();
    void framesAreLogged_data();
    void framesAreLogged();
};

// What every open hands to the device: all data frames, every error class, nothing else.
static const QStringList kFilters{QStringLiteral("can filter 0/0 type %1 format %2")
                                      .arg(QCanBusFrame::DataFrame)
                                      .arg(QCanBusDevice::Filter::MatchBaseAndExtendedFormat),
                                  QStringLiteral("can errors 1fffffff, other keys 0")};

static QStringList openLines(const QString &name)
{
    return QStringList{"system ip link set " + name + " down",
                       "system ip link set up " + name +
                           " type can bitrate 500000 listen-only on restart-ms 100",
                       "can create socketcan " + name};
}

void TestCanInterface::init()
{
    effects::reset();
    fakecan::reset();
}

void TestCanInterface::opensAndCloses_data()
{
    QTest::addColumn<uint>("channel");
    QTest::addColumn<QString>("name");
    QTest::newRow("vehicle bus") << 0U << "can0";
    QTest::newRow("second bus") << 1U << "awlink1";
}

void TestCanInterface::opensAndCloses()
{
    QFETCH(uint, channel);
    QFETCH(QString, name);
    CANInterface can(nullptr);
    QCOMPARE(can.mCanIndex, -1);
    QCOMPARE(can.getstatus(), 0);
    QVERIFY(!can.sendFrame(QCanBusFrame(1, "x")));
    can.setfilter({});
    can.closeCANDevice();
    QCOMPARE(effects::take(), QStringList());
    QCOMPARE(can.openCANDevice(channel, 500000, 100), 0);
    QCOMPARE(effects::take(), openLines(name) + kFilters +
                                  QStringList{QStringLiteral("log CAN %1  Open OK.").arg(channel)});
    QCOMPARE(can.mCanIndex, static_cast<int>(channel));
    QCOMPARE(can.getstatus(), static_cast<int>(QCanBusDevice::ConnectedState));
    QVERIFY(can.sendFrame(QCanBusFrame(1, "x")));
    effects::take();
    can.closeCANDevice();
    can.closeCANDevice();
    QCOMPARE(effects::take(), (QStringList{"can close", "system ip link set " + name + " down"}));
    QVERIFY(can.mCanDevice == nullptr && fakecan::device == nullptr && can.mCanIndex == -1);
}

void TestCanInterface::failuresAreLogged()
{
    fakecan::isPluginPresent = false;
    fakecan::isCreateFailing = true;
    CANInterface can(nullptr);
    QCOMPARE(effects::take(), QStringList{"log ERR:linux os has NO socketcan interface"});
    QVERIFY(can.mFilterList.isEmpty());
    QCOMPARE(can.openCANDevice(0, 500000, 100), 0);
    QCOMPARE(effects::take(),
             openLines("can0") + QStringList{"log \"No such plugin: 'socketcan'\""});
    QCOMPARE(can.mCanIndex, -1);
    fakecan::reset();
    fakecan::isInterfacePresent = false;
    QCOMPARE(can.openCANDevice(0, 500000, 100), 0);
    QCOMPARE(effects::take().last(), QStringLiteral("log ERROR: Open CAN 0  FAIL!"));
    QVERIFY(can.mCanIndex == -1 && can.mCanDevice != nullptr);
    can.closeCANDevice();
    QCOMPARE(effects::take(), QStringList());
}

void TestCanInterface::reopenReleasesTheEarlierDevice()
{
    CANInterface can(nullptr);
    can.openCANDevice(0, 500000, 100);
    effects::take();
    can.openCANDevice(1, 500000, 100);
    QCOMPARE(effects::take(), QStringList{"can close"} + openLines("awlink1") + kFilters +
                                  QStringList{"log CAN 1  Open OK."});
}

void TestCanInterface::unknownChannel()
{
    CANInterface can(nullptr);
    can.openCANDevice(2, 500000, 100);
    QCOMPARE(effects::take(), QStringList{"log \"\""});
    can.openCANDevice(0, 500000, 100);
    can.mCanDevice->disconnectDevice();
    effects::take();
    can.openCANDevice(2, 500000, 100);
    QCOMPARE(effects::take(), kFilters + QStringList{"log CAN 2  Open OK."});
    can.closeCANDevice();
    QCOMPARE(effects::take(), QStringList());
}

void TestCanInterface::errorsAreLogged()
{
    CANInterface can(nullptr);
    fakecan::isInterfacePresent = false;
    can.openCANDevice(0, 500000, 100);
    effects::take();
    for (int error = 0; error <= 7; ++error) {
        can.processErrors(static_cast<QCanBusDevice::CanBusError>(error));
        QCOMPARE(effects::take(), error >= 1 && error <= 5
                                      ? QStringList{"log CAN -1  ERROR Msg: \"No such device\""}
                                      : QStringList());
    }
    can.processFramesWritten(3);
    can.processFramesWritten(4);
    QCOMPARE(can.mFramesWritten, 7);
    can.mFramesReceived = 5;
    can.resetCANDevice();
    QVERIFY(can.mFramesWritten == 0 && can.mFramesReceived == 0);
    QCOMPARE(effects::take(), QStringList());
}

void TestCanInterface::framesAreLogged_data()
{
    QTest::addColumn<QCanBusFrame>("frame");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("counted");
    QCanBusFrame plain(0x413, QByteArray::fromHex("0102"));
    plain.setTimeStamp(QCanBusFrame::TimeStamp(5, 123456));
    QTest::newRow("plain") << plain << "         5.1234   --- " + plain.toString() << 1;
    QCanBusFrame early = plain;
    early.setTimeStamp(QCanBusFrame::TimeStamp(1234567890, 99));
    QTest::newRow("wide seconds") << early << "1234567890.0000   --- " + plain.toString() << 1;
    QCanBusFrame echo = plain;
    echo.setLocalEcho(true);
    QTest::newRow("echo") << echo << "         5.1234   --L " + plain.toString() << 0;
    QCanBusFrame fast = plain;
    fast.setFlexibleDataRateFormat(true);
    fast.setBitrateSwitch(true);
    fast.setErrorStateIndicator(true);
    QTest::newRow("fd") << fast << "         5.1234   BE- " + fast.toString() << 0;
    QCanBusFrame error(QCanBusFrame::ErrorFrame);
    QTest::newRow("error frame") << error << "         0.0000   --- bus error" << 1;
}

void TestCanInterface::framesAreLogged()
{
    QFETCH(QCanBusFrame, frame);
    QFETCH(QString, text);
    QFETCH(int, counted);
    CANInterface can(nullptr);
    can.processReceivedFrames();
    QCOMPARE(effects::take(), QStringList{"log CAN -1 processReceivedFrames"});
    can.openCANDevice(0, 500000, 100);
    fakecan::device->receive(frame);
    effects::take();
    can.processReceivedFrames();
    QCOMPARE(effects::take(), (QStringList{"log CAN 0 processReceivedFrames",
                                           "log CAN 0 Rcv Msg: \"" + text + "\""}));
    QCOMPARE(can.mFramesReceived, counted);
}

QTEST_GUILESS_MAIN(TestCanInterface)
#include "tst_caninterface.moc"
