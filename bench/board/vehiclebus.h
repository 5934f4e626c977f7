// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/fact.h"
#include "bench/board/places.h"
#include "bench/board/socketserver.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

/// The bus that the controller's can0 sits on, and the one CAN device that may be open on it.
class VehicleBus : public QObject
{
    Q_OBJECT

public:
    /// Returns what is wrong, or an empty text.
    virtual QString build() = 0;

    /// Never blocks. What cannot go out is lost.
    virtual void send(const BusFrame &frame) = 0;

    virtual bool isUp() const = 0; ///< can0
    /// @p command: the one that did it, empty when it was a drive or the loss of power.
    virtual void setUp(bool up, const QString &command) = 0;

    virtual void disconnectDevice() = 0; ///< what waits in its queue is lost

    virtual qint64 devicePid() const = 0; ///< of the process that has opened it, 0 without

    virtual quint64 sent() const = 0;
    virtual quint64 lost() const = 0;
    virtual quint64 waiting() const = 0; ///< for the process that has opened the device
    quint64 received() const { return sent() - qMin(sent(), lost() + waiting()); }

Q_SIGNALS:
    void connected();
    void happened(const Fact &fact); ///< a frame was lost, the first since the bus was made
};

/**
 * A bus of the bench's own. Frames go out at once or are lost: the interface down, no device, or
 * the device's receive queue full. How many of them wait in that queue is asked of the kernel.
 */
class StandInBus : public VehicleBus
{
    Q_OBJECT

public:
    StandInBus()
    {
        connect(&mServer, &SocketServer::connected, this, &StandInBus::handleConnected);
        connect(&mServer, &SocketServer::disconnected, this, &StandInBus::handleDisconnected);
    }

    QString build() override
    {
        mQueuedSize = measureQueuedFrame();
        if (mQueuedSize <= 0)
            return "the kernel does not tell what waits in a socket";
        return mServer.listen(places::kBus);
    }

    void send(const BusFrame &frame) override
    {
        ++mSent;
        if (!mIsUp || mDevice < 0 || !SocketServer::send(mDevice, &frame, sizeof frame))
            lose(1);
    }

    bool isUp() const override { return mIsUp; }
    void setUp(bool up, const QString &) override { mIsUp = up; }

    void disconnectDevice() override
    {
        if (mDevice >= 0)
            handleDisconnected(mDevice);
        mServer.dropAll();
    }

    qint64 devicePid() const override
    {
        ucred peer = {};
        socklen_t size = sizeof peer;
        if (mDevice < 0 || getsockopt(mDevice, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
            return 0;
        return peer.pid;
    }

    quint64 sent() const override { return mSent; }
    quint64 lost() const override { return mLost; }
    quint64 waiting() const override
    {
        return mDevice < 0 ? 0 : static_cast<quint64>(queuedBytes(mDevice) / mQueuedSize);
    }

private:
    /// Bytes of the messages that the other end has not read yet, with the kernel's own surcharge.
    static int queuedBytes(int socket)
    {
        int bytes = 0;
        return ioctl(socket, SIOCOUTQ, &bytes) == 0 ? bytes : 0;
    }

    /// The kernel's surcharge is its own affair; a frame that surely waits tells it.
    static int measureQueuedFrame()
    {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
            return 0;
        const Descriptor near(pair[0]);
        const Descriptor far(pair[1]);
        const BusFrame frame;
        return SocketServer::send(near, &frame, sizeof frame) ? queuedBytes(near) : 0;
    }

    void handleConnected(int client)
    {
        // One receive queue is enough: a second device would only blur what the first has taken.
        if (mDevice >= 0) {
            mServer.drop(client);
            return;
        }
        mDevice = client;
        Q_EMIT connected();
    }

    void handleDisconnected(int client)
    {
        if (client != mDevice)
            return;
        const quint64 left = waiting();
        mDevice = -1;
        lose(left);
    }

    void lose(quint64 count)
    {
        const bool isFirst = mLost == 0 && count > 0;
        mLost += count;
        if (isFirst)
            Q_EMIT happened({Fact::Kind::Frames, {}, "lost"});
    }

    SocketServer mServer;
    int mDevice = -1;
    bool mIsUp = false;
    int mQueuedSize = 1; ///< what the kernel counts for a frame that waits
    quint64 mSent = 0;
    quint64 mLost = 0;
};
