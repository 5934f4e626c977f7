// SPDX-License-Identifier: MIT

#include "bench/canplugin/benchcandevice.h"

#include "bench/board/places.h"

#include <QDir>
#include <QFile>
#include <QSocketNotifier>
#include <QVariant>

#include <cerrno>
#include <cstring>
#include <linux/can.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

/// A connected non-blocking socket, or -1 when there is no such interface.
Descriptor connectToBus(const QString &interfaceName)
{
    const QByteArray path =
        QFile::encodeName(QDir(QLatin1String(places::kBusFolder)).filePath(interfaceName));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
    Descriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fd.reset();
    return fd;
}

QCanBusFrame frameOf(const BusFrame &busFrame)
{
    QCanBusFrame frame;
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(busFrame.stampUs));
    frame.setExtendedFrameFormat((busFrame.id & CAN_EFF_FLAG) != 0);
    if ((busFrame.id & CAN_RTR_FLAG) != 0)
        frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
    if ((busFrame.id & CAN_ERR_FLAG) != 0)
        frame.setFrameType(QCanBusFrame::ErrorFrame);
    frame.setFrameId(busFrame.id & CAN_EFF_MASK);
    frame.setPayload(QByteArray(reinterpret_cast<const char *>(busFrame.data),
                                qMin<int>(busFrame.length, CAN_MAX_DLEN)));
    return frame;
}

} // namespace

BenchCanDevice::BenchCanDevice(const QString &interfaceName) : mInterface(interfaceName)
{
    // The parameters that a SocketCAN device has from the start.
    QCanBusDevice::setConfigurationParameter(LoopbackKey, true);
    QCanBusDevice::setConfigurationParameter(ReceiveOwnKey, false);
    QCanBusDevice::setConfigurationParameter(
        ErrorFilterKey, QVariant::fromValue(QCanBusFrame::FrameErrors(QCanBusFrame::AnyError)));
    QCanBusDevice::setConfigurationParameter(CanFdKey, false);
    QCanBusDevice::setConfigurationParameter(BitRateKey, 500000);
}

QList<QCanBusDeviceInfo> BenchCanDevice::interfaces()
{
    QList<QCanBusDeviceInfo> found;
    for (const QString &name :
         QDir(QLatin1String(places::kBusFolder)).entryList(QDir::System | QDir::NoDotAndDotDot))
        found.append(createDeviceInfo(name));
    return found;
}

void BenchCanDevice::setConfigurationParameter(int key, const QVariant &value)
{
    if (isKnown(key, value))
        QCanBusDevice::setConfigurationParameter(key, value);
    else
        setError(tr("The bench's device does not know this filter"), ConfigurationError);
}

bool BenchCanDevice::isKnown(int key, const QVariant &value) const
{
    if (key == ErrorFilterKey) {
        const auto classes = value.value<QCanBusFrame::FrameErrors>();
        return classes == QCanBusFrame::NoError || classes == QCanBusFrame::AnyError;
    }
    const auto filters = value.value<QList<Filter>>();
    return key != RawFilterKey || filters.isEmpty() ||
           (filters.size() == 1 && filters[0].type == QCanBusFrame::DataFrame &&
            filters[0].frameIdMask == 0 && filters[0].format == Filter::MatchBaseAndExtendedFormat);
}

bool BenchCanDevice::passes(uint32_t id) const
{
    if ((id & CAN_ERR_FLAG) != 0)
        return configurationParameter(ErrorFilterKey).value<QCanBusFrame::FrameErrors>() !=
               QCanBusFrame::NoError;
    return (id & CAN_RTR_FLAG) == 0 ||
           configurationParameter(RawFilterKey).value<QList<Filter>>().isEmpty();
}

bool BenchCanDevice::open()
{
    mSocket = connectToBus(mInterface);
    if (mSocket < 0) {
        setError(QString::fromLocal8Bit(strerror(ENODEV)), ConnectionError);
        return false;
    }
    mNotifier = new QSocketNotifier(mSocket, QSocketNotifier::Read, this);
    connect(mNotifier, &QSocketNotifier::activated, this, &BenchCanDevice::readSocket);
    setState(ConnectedState);
    return true;
}

void BenchCanDevice::close()
{
    // The user may disconnect while it handles a frame, inside the notifier's own signal.
    mNotifier->setEnabled(false);
    mNotifier->deleteLater();
    mNotifier = nullptr;
    mSocket.reset();
    setState(UnconnectedState);
}

bool BenchCanDevice::writeFrame(const QCanBusFrame &)
{
    if (state() == ConnectedState)
        setError(tr("The interface is listen-only"), WriteError);
    return false;
}

QString BenchCanDevice::interpretErrorFrame(const QCanBusFrame &errorFrame)
{
    if (errorFrame.frameType() != QCanBusFrame::ErrorFrame)
        return QString();
    return QStringLiteral("error classes 0x%1").arg(uint(errorFrame.error()), 0, 16);
}

void BenchCanDevice::readSocket()
{
    QVector<QCanBusFrame> frames;
    BusFrame busFrame;
    ssize_t size = 0;
    while ((size = recv(mSocket, &busFrame, sizeof busFrame, MSG_DONTWAIT)) > 0) {
        if (size == sizeof busFrame && passes(busFrame.id))
            frames.append(frameOf(busFrame));
    }
    // An interface that has gone for good leaves a real device connected and silent.
    if (size == 0)
        mNotifier->setEnabled(false);
    enqueueReceivedFrames(frames); // the user's slots run inside; they may delete the device
}
