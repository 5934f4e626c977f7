// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/socketserver.h"
#include "bench/board/vehiclebus.h"

/**
 * A bus of the bench's own, without the kernel's CAN. Frames go out at once or are lost: the
 * interface down, no device, or the device's receive queue full. How many of them wait in that
 * queue is asked of the kernel.
 */
class StandInBus : public VehicleBus
{
    Q_OBJECT

public:
    StandInBus();

    QString build() override;
    void send(const BusFrame &frame) override;
    bool isUp() const override { return mIsUp; }
    void setUp(bool up, const QString &) override { mIsUp = up; }
    void disconnectDevice() override;
    qint64 devicePid() const override;
    quint64 sent() const override { return mSent; }
    quint64 lost() const override { return mLost; }
    quint64 waiting() const override;

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
