// SPDX-License-Identifier: MIT

#include "bench/board/realbus.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <cerrno>
#include <cstring>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace {

const QString kCan0 = QStringLiteral("can0");
constexpr int kFlushMs = 1;
constexpr int kLookMs = 50;
constexpr int kNetAdmin = 12;            // CAP_NET_ADMIN's bit
constexpr uint32_t kFrameInBuffer = 768; // bytes that the kernel counts for a frame in a buffer

QString lastError()
{
    return QString::fromLocal8Bit(strerror(errno));
}

/// The column of a line "NAME: A B C ..." of /proc/net/dev: 1 frames received, 9 sent.
quint64 counter(const QString &interfaceName, int column)
{
    QFile file(QStringLiteral("/proc/net/dev"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words[0] == interfaceName.toLatin1() + ':' && words.size() > column + 1)
            return words[column + 1].toULongLong();
    }
    return 0;
}

ifreq requestFor(const QString &interfaceName)
{
    ifreq request = {};
    strncpy(request.ifr_name, interfaceName.toLatin1().constData(), IFNAMSIZ - 1);
    return request;
}

bool hasRight()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray status = file.readAll();
    const QByteArray effective =
        status.mid(status.indexOf("CapEff:") + 7).simplified().split(' ')[0];
    return (effective.toULongLong(nullptr, 16) >> kNetAdmin & 1) != 0;
}

/// Another process's descriptor, as one of our own; -1 when it is no CAN socket on can0.
int canSocketOf(int process, int fd)
{
    const int own = static_cast<int>(syscall(SYS_pidfd_getfd, process, fd, 0));
    int domain = 0;
    socklen_t size = sizeof domain;
    sockaddr_can address = {};
    socklen_t addressSize = sizeof address;
    if (own >= 0 && getsockopt(own, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
        domain == PF_CAN &&
        getsockname(own, reinterpret_cast<sockaddr *>(&address), &addressSize) == 0 &&
        address.can_ifindex == static_cast<int>(if_nametoindex("can0")))
        return own;
    if (own >= 0)
        close(own);
    return -1;
}

struct Memory
{
    uint32_t waiting = 0; ///< bytes
    uint32_t dropped = 0; ///< frames, since the socket was made
};

Memory memoryOf(int socket)
{
    uint32_t info[SK_MEMINFO_VARS] = {};
    socklen_t size = sizeof info;
    if (socket < 0 || getsockopt(socket, SOL_SOCKET, SO_MEMINFO, info, &size) != 0)
        return {};
    return {info[SK_MEMINFO_RMEM_ALLOC], info[SK_MEMINFO_DROPS]};
}

} // namespace

QString RealBus::faultOf(const QString &interfaceName)
{
    const Descriptor fd(socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW));
    if (fd < 0)
        return QStringLiteral("no CAN sockets here: ") + lastError();
    ifreq request = requestFor(interfaceName);
    if (ioctl(fd, SIOCGIFHWADDR, &request) != 0)
        return QStringLiteral("no such interface");
    if (request.ifr_hwaddr.sa_family != ARPHRD_CAN)
        return QStringLiteral("is no CAN interface");
    if (ioctl(fd, SIOCGIFFLAGS, &request) != 0 || (request.ifr_flags & IFF_UP) == 0)
        return QStringLiteral("is down");
    request = requestFor(kCan0);
    if (ioctl(fd, SIOCGIFFLAGS, &request) != 0)
        return QStringLiteral("there is no can0 for the controller");
    return hasRight() ? QString() : QStringLiteral("only root may set can0 up and down");
}

RealBus::RealBus(const QString &interfaceName) : mInterface(interfaceName)
{
    mFlush.setInterval(kFlushMs);
    mFlush.setTimerType(Qt::PreciseTimer);
    connect(&mFlush, &QTimer::timeout, this, &RealBus::flush);
    mLook.setInterval(kLookMs);
    connect(&mLook, &QTimer::timeout, this, &RealBus::lookForDevice);
}

RealBus::~RealBus()
{
    if (!mWasUp)
        QProcess::execute(QStringLiteral("ip"), {"link", "set", kCan0, "down"});
}

QString RealBus::build()
{
    mSocket.reset(socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW));
    sockaddr_can address = {};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(mInterface.toLatin1().constData()));
    // It only sends: an empty list of filters keeps everything out.
    if (setsockopt(mSocket, SOL_CAN_RAW, CAN_RAW_FILTER, nullptr, 0) != 0 ||
        bind(mSocket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return QStringLiteral("%1: %2").arg(mInterface, lastError());
    mWasUp = isUp();
    mLook.start();
    return {};
}

bool RealBus::isUp() const
{
    ifreq request = requestFor(kCan0);
    return ioctl(mSocket, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_UP) != 0;
}

/// What the controller asked for is really run; a virtual interface, which refuses a bit rate, is
/// set up without.
void RealBus::setUp(bool up, const QString &command)
{
    const QString state = up ? "up" : "down";
    QStringList words = command.split(QLatin1Char(' '), Qt::SkipEmptyParts).mid(1);
    if (words.isEmpty() || QProcess::execute(QStringLiteral("ip"), words) != 0)
        QProcess::execute(QStringLiteral("ip"), {"link", "set", kCan0, state});
    // Going down leaves an error on a socket of the same interface; it would cost the next frame.
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(mSocket, SOL_SOCKET, SO_ERROR, &error, &size);
}

void RealBus::send(const BusFrame &frame)
{
    if ((frame.id & CAN_ERR_FLAG) != 0)
        return;
    if (mSent == 0)
        mReceivedBefore = delivered();
    ++mSent;
    mWaiting.push_back(frame);
    flush();
}

void RealBus::flush()
{
    while (!mWaiting.empty()) {
        const BusFrame &next = mWaiting.front();
        can_frame frame = {};
        frame.can_id = next.id;
        frame.can_dlc = next.length;
        memcpy(frame.data, next.data, sizeof frame.data);
        // A queue that is full gets the frame later; every other failure loses it.
        if (write(mSocket, &frame, sizeof frame) < 0 && (errno == ENOBUFS || errno == EAGAIN))
            break;
        mWaiting.pop_front();
    }
    mWaiting.empty() ? mFlush.stop() : mFlush.start();
}

/// Since the interfaces were made.
quint64 RealBus::delivered() const
{
    return mInterface == kCan0 ? counter(kCan0, 9) : counter(kCan0, 1);
}

/// About how many frames wait for the controller; none only if there is none.
quint64 RealBus::queuedFrames() const
{
    return (memoryOf(mDevice).waiting + kFrameInBuffer - 1) / kFrameInBuffer;
}

quint64 RealBus::waiting() const
{
    return mWaiting.size() + queuedFrames();
}

quint64 RealBus::lost() const
{
    const quint64 came = mSent == 0 ? 0 : delivered() - mReceivedBefore;
    const quint64 underway = mWaiting.size();
    const quint64 missing = mSent > came + underway ? mSent - came - underway : 0;
    return missing + mLostBefore + memoryOf(mDevice).dropped;
}

void RealBus::disconnectDevice()
{
    const Memory memory = memoryOf(mDevice);
    mLostBefore += memory.dropped + queuedFrames();
    mDevice.reset();
    mDevicePid = 0;
}

void RealBus::lookForDevice()
{
    if (!mIsLosing && mDevice >= 0 && memoryOf(mDevice).dropped > 0) {
        mIsLosing = true;
        Q_EMIT happened({Fact::Kind::Frames, {}, "lost"});
    }
    if (mDevice >= 0)
        return;
    for (const QString &process : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        const auto pid = static_cast<pid_t>(process.toInt());
        if (pid <= 1 || pid == getpid())
            continue;
        const Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
        const QDir fds(QStringLiteral("/proc/%1/fd").arg(pid));
        for (const QString &fd : fds.entryList(QDir::Files | QDir::System)) {
            mDevice.reset(canSocketOf(handle, fd.toInt()));
            if (mDevice < 0)
                continue;
            mDevicePid = pid;
            Q_EMIT connected();
            return;
        }
    }
}
