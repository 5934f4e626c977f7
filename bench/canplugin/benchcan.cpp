// SPDX-License-Identifier: MIT

#include "bench/board/busframe.h"
#include "bench/board/descriptor.h"
#include "bench/board/places.h"

#include <QCanBusDevice>
#include <QCanBusDeviceInfo>
#include <QCanBusFactory>
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

constexpr int kFramesAtOnce = 8; ///< a queue of frames is read in pieces of so many

int connectToBus(int socket, const QString &interfaceName)
{
    const QByteArray path = QFile::encodeName(QDir(places::kBusFolder).filePath(interfaceName));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
    return connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address);
}

QCanBusFrame frameOf(const BusFrame &busFrame)
{
    QCanBusFrame frame(busFrame.id & CAN_EFF_MASK,
                       QByteArray(reinterpret_cast<const char *>(busFrame.data),
                                  qMin<int>(busFrame.length, CAN_MAX_DLEN)));
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(busFrame.stampUs));
    frame.setExtendedFrameFormat((busFrame.id & CAN_EFF_FLAG) != 0);
    if ((busFrame.id & CAN_RTR_FLAG) != 0)
        frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
    if ((busFrame.id & CAN_ERR_FLAG) != 0)
        frame.setFrameType(QCanBusFrame::ErrorFrame);
    return frame;
}

// A key of configurations is a number in Qt 5 and of its enumeration in Qt 6.
template <typename Key> Key keyOf(void (QCanBusDevice::*)(Key, const QVariant &));
using ConfigurationParameter = decltype(keyOf(&QCanBusDevice::setConfigurationParameter));

} // namespace

/**
 * A CAN device with the habits of Qt's SocketCAN device over the kernel, fed from the bench's bus
 * instead: an interface is a socket of its name in the bench's folder of buses.
 *
 * The interface is listen-only: nothing can be written. An interface that goes down leaves the
 * device connected and silent. Of raw filters it knows the empty list and one entry for every data
 * frame, whatever its identifier, which keeps remote frames out; of error filters none and all.
 */
class BenchCanDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    explicit BenchCanDevice(const QString &interfaceName) : mInterface(interfaceName)
    {
        // The parameters that a SocketCAN device has from the start.
        QCanBusDevice::setConfigurationParameter(LoopbackKey, true);
        QCanBusDevice::setConfigurationParameter(ReceiveOwnKey, false);
        QCanBusDevice::setConfigurationParameter(
            ErrorFilterKey, QVariant::fromValue(QCanBusFrame::FrameErrors(QCanBusFrame::AnyError)));
        QCanBusDevice::setConfigurationParameter(CanFdKey, false);
        QCanBusDevice::setConfigurationParameter(BitRateKey, 500000);
    }

    void setConfigurationParameter(ConfigurationParameter key, const QVariant &value) override
    {
        if (isKnown(key, value))
            QCanBusDevice::setConfigurationParameter(key, value);
        else
            setError(tr("The bench's device does not know this filter"), ConfigurationError);
    }

    bool writeFrame(const QCanBusFrame &) override
    {
        if (state() == ConnectedState)
            setError(tr("The interface is listen-only"), WriteError);
        return false;
    }

    QString interpretErrorFrame(const QCanBusFrame &errorFrame) override
    {
        if (errorFrame.frameType() != QCanBusFrame::ErrorFrame)
            return QString();
        return QStringLiteral("error classes 0x%1").arg(uint(errorFrame.error()), 0, 16);
    }

protected:
    bool open() override
    {
        mSocket.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (connectToBus(mSocket, mInterface) != 0) {
            mSocket.reset();
            setError(strerror(ENODEV), ConnectionError);
            return false;
        }
        mNotifier = new QSocketNotifier(mSocket, QSocketNotifier::Read, this);
        connect(mNotifier, &QSocketNotifier::activated, this, &BenchCanDevice::readSocket);
        setState(ConnectedState);
        return true;
    }

    void close() override
    {
        // The user may disconnect while it handles a frame, inside the notifier's own signal.
        mNotifier->setEnabled(false);
        mNotifier->deleteLater();
        mNotifier = nullptr;
        mSocket.reset();
        setState(UnconnectedState);
    }

private:
    bool isKnown(int key, const QVariant &value) const
    {
        if (key == ErrorFilterKey) {
            const auto classes = value.value<QCanBusFrame::FrameErrors>();
            return classes == QCanBusFrame::NoError || classes == QCanBusFrame::AnyError;
        }
        const auto filters = value.value<QList<Filter>>();
        return key != RawFilterKey || filters.isEmpty() ||
               (filters.size() == 1 && filters[0].type == QCanBusFrame::DataFrame &&
                filters[0].frameIdMask == 0 &&
                filters[0].format == Filter::MatchBaseAndExtendedFormat);
    }

    bool passes(uint32_t id) const
    {
        if ((id & CAN_ERR_FLAG) != 0)
            return configurationParameter(ErrorFilterKey).value<QCanBusFrame::FrameErrors>() !=
                   QCanBusFrame::NoError;
        return (id & CAN_RTR_FLAG) == 0 ||
               configurationParameter(RawFilterKey).value<QList<Filter>>().isEmpty();
    }

    void readSocket()
    {
        QVector<QCanBusFrame> frames;
        // All that are there, a frame a message, with one call as long as they are few: where
        // processes are traced, the calls are what takes time.
        BusFrame busFrames[kFramesAtOnce];
        iovec places[kFramesAtOnce];
        mmsghdr messages[kFramesAtOnce] = {};
        for (int i = 0; i < kFramesAtOnce; ++i) {
            places[i] = {&busFrames[i], sizeof busFrames[i]};
            messages[i].msg_hdr.msg_iov = &places[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        int count = kFramesAtOnce;
        for (bool isOpen = true; isOpen && count == kFramesAtOnce;) {
            count = recvmmsg(mSocket, messages, kFramesAtOnce, MSG_DONTWAIT, nullptr);
            for (int i = 0; i < count; ++i) {
                if (messages[i].msg_len == sizeof busFrames[i] && passes(busFrames[i].id))
                    frames.append(frameOf(busFrames[i]));
                isOpen = isOpen && messages[i].msg_len > 0;
            }
            // An interface that has gone for good leaves a real device connected and silent.
            mNotifier->setEnabled(isOpen);
        }
        enqueueReceivedFrames(frames); // the user's slots run inside; they may delete the device
    }

    QString mInterface;
    Descriptor mSocket;
    QSocketNotifier *mNotifier = nullptr;
};

/// Offers the bench's CAN devices under the key of Qt's own SocketCAN plugin.
class BenchCanPlugin : public QObject, public CAN_FACTORY
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QCanBusFactory" FILE "benchcan.json")
    Q_INTERFACES(CAN_FACTORY)

public:
    /// Always a device; whether its interface exists shows when it connects.
    QCanBusDevice *createDevice(const QString &interfaceName, QString *) const override
    {
        return new BenchCanDevice(interfaceName);
    }

    /// Nobody asks.
    QList<QCanBusDeviceInfo> availableDevices(QString *) const override { return {}; }
};

#include "benchcan.moc"
