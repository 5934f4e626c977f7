// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/socketserver.h"

#include <QObject>

/**
 * The interface can0 and the one CAN device that may be open on it. Frames go out at once or are
 * lost: the interface down, no device, or the device's receive queue full. How many of them wait in
 * that queue is asked of the kernel.
 */
class VehicleBus : public QObject
{
    Q_OBJECT

public:
    explicit VehicleBus(QObject *parent = nullptr);

    /// Returns what is wrong, or an empty text.
    QString build();

    void send(const BusFrame &frame);

    bool isUp() const { return mIsUp; }
    void setUp(bool up) { mIsUp = up; }

    void disconnectDevice(); ///< what waits in its queue is lost

    qint64 devicePid() const; ///< of the process that has opened the device, 0 without

    quint64 sent() const { return mSent; }
    quint64 lost() const { return mLost; }
    quint64 waiting() const; ///< in the device's receive queue
    quint64 taken() const { return mSent - mLost - waiting(); }

Q_SIGNALS:
    void connected();
    void losing(); ///< a frame was lost, the first since the bus was made

private:
    void handleConnected(int client);
    void handleDisconnected(int client);
    void lose(quint64 count);

    SocketServer mServer;
    int mDevice = -1;
    bool mIsUp = false;
    int mQueuedSize = 1; ///< what the kernel counts for a frame that waits
    quint64 mSent = 0;
    quint64 mLost = 0;
};
