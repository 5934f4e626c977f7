// SPDX-License-Identifier: MIT

#include "can/caninterface.h"

#include "common/runcommand.h"

#include <QCanBus>
#include <QDebug>
#include <QVariant>

namespace {

const char kPlugin[] = "socketcan";
const char *const kInterfaces[] = {"can0", "awlink1"};
constexpr unsigned int kChannelCount = 2;

void bringDown(unsigned int channel)
{
    const QString command = QStringLiteral("ip link set %1 down");
    runCommand(command.arg(QLatin1String(kInterfaces[channel])).toLatin1().constData());
}

void bringUp(unsigned int channel, unsigned int bitrate, unsigned int restartMs)
{
    const QString command =
        QStringLiteral("ip link set up %1 type can bitrate %2 listen-only on restart-ms %3")
            .arg(QLatin1String(kInterfaces[channel]))
            .arg(bitrate)
            .arg(restartMs);
    runCommand(command.toLatin1().constData());
}

// Every data frame, 11-bit and 29-bit; no remote requests.
QCanBusDevice::Filter dataFrameFilter()
{
    QCanBusDevice::Filter filter;
    filter.frameId = 0;
    filter.frameIdMask = 0;
    filter.type = QCanBusFrame::DataFrame;
    filter.format = QCanBusDevice::Filter::MatchBaseAndExtendedFormat;
    return filter;
}

QString timeText(const QCanBusFrame::TimeStamp &stamp)
{
    return QStringLiteral("%1.%2  ")
        .arg(stamp.seconds(), 10, 10, QLatin1Char(' '))
        .arg(stamp.microSeconds() / 100, 4, 10, QLatin1Char('0'));
}

QString flagText(const QCanBusFrame &frame)
{
    QString flags = QStringLiteral(" --- ");
    if (frame.hasBitrateSwitch())
        flags[1] = QLatin1Char('B');
    if (frame.hasErrorStateIndicator())
        flags[2] = QLatin1Char('E');
    if (frame.hasLocalEcho())
        flags[3] = QLatin1Char('L');
    return flags;
}

bool hasAnyFlag(const QCanBusFrame &frame)
{
    return frame.hasBitrateSwitch() || frame.hasErrorStateIndicator() || frame.hasLocalEcho();
}

} // namespace

CANInterface::CANInterface(QObject *parent) : QObject(parent)
{
    if (!QCanBus::instance()->plugins().contains(QLatin1String(kPlugin))) {
        qDebug() << "ERR:linux os has NO socketcan interface";
        return;
    }
    mFilterList.append(dataFrameFilter());
}

int CANInterface::openCANDevice(unsigned int channel, unsigned int bitrate, unsigned int restartMs)
{
    QString errorText;
    if (channel < kChannelCount) {
        releaseDevice();
        mCanIndex = -1;
        bringDown(channel);
        bringUp(channel, bitrate, restartMs);
        mCanDevice = QCanBus::instance()->createDevice(
            QLatin1String(kPlugin), QLatin1String(kInterfaces[channel]), &errorText);
    }
    if (mCanDevice == nullptr) {
        qDebug() << errorText;
        mCanIndex = -1;
        return 0;
    }
    setfilter(mFilterList);
    mCanDevice->setConfigurationParameter(
        QCanBusDevice::ErrorFilterKey,
        QVariant::fromValue(QCanBusFrame::FrameErrors(QCanBusFrame::AnyError)));
    if (mCanDevice->connectDevice()) {
        mCanIndex = static_cast<int>(channel);
        qDebug() << "CAN" << channel << " Open OK.";
    } else {
        qDebug() << "ERROR: Open CAN" << channel << " FAIL!";
    }
    return 0;
}

void CANInterface::closeCANDevice()
{
    const auto channel = static_cast<unsigned int>(mCanIndex);
    if (channel >= kChannelCount)
        return; // also -1: no connected device
    releaseDevice();
    bringDown(channel);
    mCanIndex = -1;
}

void CANInterface::releaseDevice()
{
    if (mCanDevice == nullptr)
        return;
    mCanDevice->disconnectDevice();
    delete mCanDevice;
    mCanDevice = nullptr;
}

void CANInterface::resetCANDevice()
{
    mFramesWritten = 0;
    mFramesReceived = 0;
}

int CANInterface::getstatus() const
{
    return mCanDevice != nullptr ? mCanDevice->state() : 0;
}

void CANInterface::setfilter(const QList<QCanBusDevice::Filter> &filters)
{
    if (mCanDevice != nullptr)
        mCanDevice->setConfigurationParameter(QCanBusDevice::RawFilterKey,
                                              QVariant::fromValue(filters));
}

bool CANInterface::hasFrame() const
{
    // A device that is not connected keeps its frames: reading until none is left would not end.
    return mCanDevice != nullptr && mCanDevice->state() == QCanBusDevice::ConnectedState &&
           mCanDevice->framesAvailable() != 0;
}

bool CANInterface::sendFrame(const QCanBusFrame &frame)
{
    return mCanDevice != nullptr && mCanDevice->writeFrame(frame);
}

void CANInterface::processErrors(QCanBusDevice::CanBusError error)
{
    switch (error) {
    case QCanBusDevice::ReadError:
    case QCanBusDevice::WriteError:
    case QCanBusDevice::ConnectionError:
    case QCanBusDevice::ConfigurationError:
    case QCanBusDevice::UnknownError:
        if (mCanDevice != nullptr)
            qDebug() << "CAN" << mCanIndex << " ERROR Msg:" << mCanDevice->errorString();
        break;
    default:
        break;
    }
}

void CANInterface::processReceivedFrames()
{
    qDebug() << "CAN" << mCanIndex << __func__;
    if (mCanDevice == nullptr)
        return;
    while (hasFrame()) {
        const QCanBusFrame frame = mCanDevice->readFrame();
        const QString view = frame.frameType() == QCanBusFrame::ErrorFrame
                                 ? mCanDevice->interpretErrorFrame(frame)
                                 : frame.toString();
        qDebug() << "CAN" << mCanIndex
                 << "Rcv Msg:" << timeText(frame.timeStamp()) + flagText(frame) + view;
        if (!hasAnyFlag(frame))
            ++mFramesReceived;
    }
}

void CANInterface::processFramesWritten(qint64 count)
{
    mFramesWritten += count;
}
