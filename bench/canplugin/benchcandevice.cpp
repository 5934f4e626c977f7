#include "bench/canplugin/benchcandevice.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QVariant>

#include <cerrno>
#include <cstring>
#include <linux/can.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const QString kBusFolder = QStringLiteral("/run/pvm-bench/can");

/// A connected non-blocking socket, or -1 when there is no such interface.
int connectToBus(const QString &interfaceName)
{
    const QByteArray path = QFile::encodeName(kBusFolder + QLatin1Char('/') + interfaceName);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (static_cast<size_t>(path.size()) >= sizeof address.sun_path)
        return -1;
    memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
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

BenchCanDevice::~BenchCanDevice()
{
    if (mSocket >= 0)
        ::close(mSocket);
}

QList<QCanBusDeviceInfo> BenchCanDevice::interfaces()
{
    QList<QCanBusDeviceInfo> found;
    for (const QString &name : QDir(kBusFolder).entryList(QDir::System | QDir::NoDotAndDotDot))
        found.append(createDeviceInfo(name));
    return found;
}

void BenchCanDevice::setConfigurationParameter(int key, const QVariant &value)
{
    // A connected device refuses what the kernel would; before that everything is kept for later.
    if (mSocket >= 0 && !applyParameter(key, value))
        return;
    QCanBusDevice::setConfigurationParameter(key, value);
}

bool BenchCanDevice::applyParameter(int key, const QVariant &value)
{
    if (key == ErrorFilterKey) {
        mFilter.setErrorClasses(value.value<QCanBusFrame::FrameErrors>());
    } else if (key == RawFilterKey) {
        int badType = 0;
        if (!mFilter.setRawFilters(value.value<QList<Filter>>(), &badType)) {
            setError(tr("Cannot set filter for frame type: %1").arg(badType), ConfigurationError);
            return false;
        }
    }
    return true;
}

bool BenchCanDevice::open()
{
    mSocket = connectToBus(mInterface);
    if (mSocket < 0) {
        setError(QString::fromLocal8Bit(strerror(ENODEV)), ConnectionError);
        return false;
    }
    mTaken = 0;
    mFilter = CanFilter();
    for (int key : configurationKeys())
        applyParameter(key, configurationParameter(key));
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
    ::close(mSocket);
    mSocket = -1;
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
        if (size == sizeof busFrame)
            append(busFrame, frames);
        ++mTaken;
    }
    // An interface that has gone for good leaves a real device connected and silent.
    if (size == 0)
        mNotifier->setEnabled(false);
    // The user's slots run inside; they may disconnect or delete the device.
    const QPointer<BenchCanDevice> alive(this);
    enqueueReceivedFrames(frames);
    if (alive && mSocket >= 0)
        reportTaken();
}

void BenchCanDevice::append(const BusFrame &busFrame, QVector<QCanBusFrame> &frames)
{
    if (!mFilter.passes(busFrame.id))
        return;
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
    frames.append(frame);
}

void BenchCanDevice::reportTaken()
{
    // A full queue may lose the report: the count is a total, so the next one makes up for it.
    send(mSocket, &mTaken, sizeof mTaken, MSG_DONTWAIT | MSG_NOSIGNAL);
}
