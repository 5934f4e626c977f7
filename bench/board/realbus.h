// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"
#include "bench/board/vehiclebus.h"

#include <QTimer>

#include <deque>

/**
 * A real CAN bus: frames leave through a raw socket on an interface at the other end of can0's
 * cable, or on can0 itself where that is a virtual one. What has come of them is asked of the
 * kernel: the interfaces' counters, and the controller's own socket. Error frames cannot be put on
 * a real bus and are left out.
 */
class RealBus : public VehicleBus
{
    Q_OBJECT

public:
    explicit RealBus(const QString &interfaceName);
    ~RealBus() override; ///< can0 is down again if it was found so

    /// What keeps this process from using the interface: missing, no CAN, down, or no right.
    static QString faultOf(const QString &interfaceName);

    QString build() override;
    void send(const BusFrame &frame) override;
    bool isUp() const override;
    void setUp(bool up, const QString &command) override;
    void disconnectDevice() override;
    qint64 devicePid() const override { return mDevicePid; }
    quint64 sent() const override { return mSent; }
    quint64 lost() const override;
    quint64 waiting() const override;

private:
    void flush();
    void lookForDevice();
    quint64 delivered() const;
    quint64 queuedFrames() const;

    const QString mInterface;
    Descriptor mSocket;
    Descriptor mDevice; ///< the controller's own socket
    qint64 mDevicePid = 0;
    bool mWasUp = false;
    quint64 mSent = 0;
    quint64 mLostBefore = 0;       ///< with the devices before this one
    std::deque<BusFrame> mWaiting; ///< for room in the interface's queue
    QTimer mFlush;
    QTimer mLook;
    quint64 mReceivedBefore = 0; ///< can0's counter when the first frame was sent
    bool mIsLosing = false;
};
