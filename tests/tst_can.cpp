// SPDX-License-Identifier: MIT

#include "can/caninterface.h"
#include "can/cantest.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/stories.h"

#include <QtTest>

using stories::Args;

class TestCan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void caninterface_data() { stories::load("caninterface"); }
    void caninterface();
    void frames_data() { stories::load("frames"); }
    void frames();
};

void TestCan::init()
{
    effects::reset();
    fakecan::reset();
}

// receive FLAGS SECONDS MICROSECONDS; FLAGS are the letters of the log, "error" an error frame.
static QCanBusFrame flaggedFrame(Args w)
{
    QCanBusFrame frame(0x413, QByteArray::fromHex("0102"));
    if (w[0] == "error")
        frame = QCanBusFrame(QCanBusFrame::ErrorFrame);
    frame.setLocalEcho(w[0].contains('L'));
    frame.setFlexibleDataRateFormat(w[0].contains(QRegularExpression("[BE]")));
    frame.setBitrateSwitch(w[0].contains('B'));
    frame.setErrorStateIndicator(w[0].contains('E'));
    frame.setTimeStamp(QCanBusFrame::TimeStamp(w[1].toLongLong(), w[2].toLongLong()));
    return frame;
}

void TestCan::caninterface()
{
    auto can = std::make_unique<CANInterface>(nullptr);
    stories::play(
        {{"without-plugin",
          [&](Args) {
              fakecan::isPluginPresent = false;
              fakecan::isCreateFailing = true;
              can = std::make_unique<CANInterface>(nullptr);
          }},
         {"without-interface", [](Args) { fakecan::isInterfacePresent = false; }},
         {"open",
          [&](Args w) {
              effects::add(can->openCANDevice(w[0].toUInt(), w.value(1, "500000").toUInt(),
                                              w.value(2, "100").toUInt()));
          }},
         {"disconnect", [](Args) { fakecan::device->disconnectDevice(); }},
         {"close", [&](Args) { can->closeCANDevice(); }},
         {"lose-device",
          [&](Args) {
              delete can->mCanDevice;
              can->mCanDevice = nullptr;
          }},
         {"state",
          [&](Args) {
              effects::add(QStringLiteral("index %1 status %2 device %3 filters %4")
                               .arg(can->mCanIndex)
                               .arg(can->getstatus())
                               .arg(can->mCanDevice != nullptr)
                               .arg(can->mFilterList.size()));
          }},
         {"send",
          [&](Args) { effects::add(can->sendFrame(QCanBusFrame(1, "x")) ? "sent" : "not sent"); }},
         {"filter", [&](Args) { can->setfilter({}); }},
         {"error",
          [&](Args w) { can->processErrors(static_cast<QCanBusDevice::CanBusError>(w.number())); }},
         {"receive", [](Args w) { fakecan::device->receive({flaggedFrame(w)}); }},
         {"process", [&](Args) { can->processReceivedFrames(); }},
         {"written", [&](Args w) { can->processFramesWritten(w.number()); }},
         {"reset", [&](Args) { can->resetCANDevice(); }},
         {"counts", [&](Args) {
              effects::add(QStringLiteral("%1 written %2 received")
                               .arg(can->mFramesWritten)
                               .arg(can->mFramesReceived));
          }}});
}

// A change, with the value that a receiver finds.
static QString signalText(const CanTest &can, int id)
{
    const QHash<int, QString> texts{
        {CAN_SIG_SPEED, QStringLiteral("speed %1").arg(can.mSpeed)},
        {CAN_SIG_KEY_STATUS, QStringLiteral("key %1").arg(can.mKeyStatus)},
        {CAN_SIG_LIGHT_STATUS, QStringLiteral("light %1").arg(can.mLightStatus)},
        {CAN_SIG_ANGLE, QStringLiteral("angle %1").arg(can.mAngle)},
        {CAN_SIG_GEAR, QStringLiteral("gear %1").arg(can.mGearStatus)},
        {CAN_SIG_RADAR, QStringLiteral("radar %1").arg(can.mRadarStatus, 0, 16)},
        {CAN_SIG_DATETIME, QStringLiteral("clock %1 %2").arg(can.mCanDate).arg(can.mCanTime)}};
    return texts.value(id, QStringLiteral("signal %1").arg(id));
}

// All codes of byte w[1] of frame w[0], each sent w[2] times after another gear: what is announced,
// and for how many codes, by the first of them.
static void sweep(CanTest &can, Args w)
{
    QMap<QString, QStringList> codes;
    for (int code = 0; code < 256; ++code) {
        QByteArray payload(8, static_cast<char>(0xA5));
        payload[w.number(1)] = static_cast<char>(code);
        const QString frame = w[0] + '#' + payload.toHex();
        can.mLightStatus = can.mKeyStatus = can.mGearStatus = can.mGearCandidate = -5;
        effects::take();
        for (int i = 0; i < w.number(2); ++i)
            fakecan::device->receive({fakecan::frame(frame)});
        codes[effects::take().join(',')] << QString::number(code, 16);
    }
    for (auto it = codes.cbegin(); it != codes.cend(); ++it)
        effects::add(QStringLiteral("%1 x%2 %3")
                         .arg(it.key())
                         .arg(it.value().size())
                         .arg(it.value().mid(0, 4).join(' ')));
}

static std::unique_ptr<CanTest> makeDecoder()
{
    auto can = std::make_unique<CanTest>(nullptr);
    can->mCanInterface->setParent(can.get()); // it lives no longer than its test
    return can;
}

void TestCan::frames()
{
    auto can = makeDecoder();
    connect(can.get(), &CanTest::canTestDataChangedSignal,
            [&can](unsigned char id) { effects::add(signalText(*can, id)); });
    QVERIFY(effects::take().contains("system ip link set up can0 type can bitrate 500000 "
                                     "listen-only on restart-ms 100"));
    stories::play({{"frame",
                    [](Args w) {
                        for (int i = 0; i < w.value(1, "1").toInt(); ++i)
                            fakecan::device->receive({fakecan::frame(w[0])});
                    }},
                   {"batch",
                    [](Args w) {
                        QVector<QCanBusFrame> frames;
                        for (const QString &text : w)
                            frames << fakecan::frame(text);
                        fakecan::device->receive(frames);
                    }},
                   {"sweep", [&](Args w) { sweep(*can, w); }},
                   {"disconnect", [](Args) { fakecan::device->disconnectDevice(); }},
                   {"process", [&](Args) { can->mCanInterface->processReceivedFrames(); }},
                   {"without-device",
                    [&](Args) {
                        fakecan::isCreateFailing = true;
                        can = makeDecoder();
                        can->onProcesscan0receivedframes();
                        effects::take();
                    }},
                   {"values", [&](Args) {
                        for (const int value :
                             {can->mNetworkStatus, can->mNightMode, can->mDrivingDirection,
                              can->mSpeed, can->mUnused4, can->mKeyStatus, can->mLightStatus,
                              can->mAngle, can->mUnused8, can->mLights, can->mGearStatus,
                              can->mHandBreak, can->mDoorStatus})
                            effects::add(value);
                        for (const int id : {CAN_SIG_RADAR, CAN_SIG_DATETIME})
                            effects::add(signalText(*can, id));
                    }}});
}

QTEST_GUILESS_MAIN(TestCan)
#include "tst_can.moc"
