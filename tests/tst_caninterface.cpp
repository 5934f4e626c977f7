// SPDX-License-Identifier: MIT

#include "can/caninterface.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/stories.h"

#include <QtTest>

class TestCanInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void story_data() { stories::load(QFINDTESTDATA("stories/caninterface.stories")); }
    void story();
};

static QCanBusFrame frameOf(const QStringList &words)
{
    QCanBusFrame frame(0x413, QByteArray::fromHex("0102"));
    if (words[1] == "error")
        frame = QCanBusFrame(QCanBusFrame::ErrorFrame);
    frame.setLocalEcho(words[1] == "echo");
    frame.setFlexibleDataRateFormat(words[1] == "fast");
    frame.setBitrateSwitch(words[1] == "fast");
    frame.setErrorStateIndicator(words[1] == "fast");
    frame.setTimeStamp(QCanBusFrame::TimeStamp(words[2].toLongLong(), words[3].toLongLong()));
    return frame;
}

void TestCanInterface::story()
{
    effects::reset();
    fakecan::reset();
    auto can = std::make_unique<CANInterface>(nullptr);
    stories::play([&can](const QStringList &words) {
        const QString &verb = words[0];
        const int value = words.value(1).toInt();
        if (verb == "without-plugin") {
            fakecan::isPluginPresent = false;
            fakecan::isCreateFailing = true;
            can = std::make_unique<CANInterface>(nullptr);
        } else if (verb == "without-interface")
            fakecan::isInterfacePresent = false;
        else if (verb == "open")
            effects::add(QString::number(can->openCANDevice(words[1].toUInt(),
                                                            words.value(2, "500000").toUInt(),
                                                            words.value(3, "100").toUInt())));
        else if (verb == "disconnect")
            fakecan::device->disconnectDevice();
        else if (verb == "close")
            can->closeCANDevice();
        else if (verb == "state")
            effects::add(QStringLiteral("index %1 status %2 device %3 filters %4")
                             .arg(can->mCanIndex)
                             .arg(can->getstatus())
                             .arg(fakecan::device == can->mCanDevice && can->mCanDevice != nullptr)
                             .arg(can->mFilterList.size()));
        else if (verb == "send")
            effects::add(can->sendFrame(QCanBusFrame(1, "x")) ? "sent" : "not sent");
        else if (verb == "filter")
            can->setfilter({});
        else if (verb == "error")
            can->processErrors(static_cast<QCanBusDevice::CanBusError>(value));
        else if (verb == "receive")
            fakecan::device->receive({frameOf(words)});
        else if (verb == "process")
            can->processReceivedFrames();
        else if (verb == "written")
            can->processFramesWritten(value);
        else if (verb == "reset")
            can->resetCANDevice();
        else if (verb == "counts")
            effects::add(QStringLiteral("%1 written %2 received")
                             .arg(can->mFramesWritten)
                             .arg(can->mFramesReceived));
        else
            QFAIL("no such step");
    });
}

QTEST_GUILESS_MAIN(TestCanInterface)
#include "tst_caninterface.moc"
