// SPDX-License-Identifier: MIT

#include "bench/board/standinbus.h"

#include "bench/board/descriptor.h"
#include "bench/board/places.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

/// Bytes of the messages that the other end has not read yet, with the kernel's own surcharge.
int queuedBytes(int socket)
{
    int bytes = 0;
    return ioctl(socket, SIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

/// The kernel's surcharge is its own affair; a frame that surely waits tells it.
int measureQueuedFrame()
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
        return 0;
    const Descriptor near(pair[0]);
    const Descriptor far(pair[1]);
    const BusFrame frame;
    return SocketServer::send(near, &frame, sizeof frame) ? queuedBytes(near) : 0;
}

} // namespace

StandInBus::StandInBus()
{
    connect(&mServer, &SocketServer::connected, this, &StandInBus::handleConnected);
    connect(&mServer, &SocketServer::disconnected, this, &StandInBus::handleDisconnected);
}

QString StandInBus::build()
{
    mQueuedSize = measureQueuedFrame();
    if (mQueuedSize <= 0)
        return "the kernel does not tell what waits in a socket";
    return mServer.listen(places::kBus);
}

void StandInBus::send(const BusFrame &frame)
{
    ++mSent;
    if (!mIsUp || mDevice < 0 || !SocketServer::send(mDevice, &frame, sizeof frame))
        lose(1);
}

void StandInBus::disconnectDevice()
{
    if (mDevice >= 0)
        handleDisconnected(mDevice);
    mServer.dropAll();
}

qint64 StandInBus::devicePid() const
{
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (mDevice < 0 || getsockopt(mDevice, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return 0;
    return peer.pid;
}

quint64 StandInBus::waiting() const
{
    return mDevice < 0 ? 0 : static_cast<quint64>(queuedBytes(mDevice) / mQueuedSize);
}

void StandInBus::handleConnected(int client)
{
    // One receive queue is enough: a second device would only blur what the first has taken.
    if (mDevice >= 0) {
        mServer.drop(client);
        return;
    }
    mDevice = client;
    Q_EMIT connected();
}

void StandInBus::handleDisconnected(int client)
{
    if (client != mDevice)
        return;
    const quint64 left = waiting();
    mDevice = -1;
    lose(left);
}

void StandInBus::lose(quint64 count)
{
    const bool isFirst = mLost == 0 && count > 0;
    mLost += count;
    if (isFirst)
        Q_EMIT happened({Fact::Kind::Frames, {}, "lost"});
}
