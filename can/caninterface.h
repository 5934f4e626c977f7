// SPDX-License-Identifier: MIT

#pragma once

#include <QCanBusDevice>
#include <QList>
#include <QObject>

/**
 * One CAN network interface of the board, through Qt's "socketcan" plugin.
 *
 * Bit rate and listen-only mode come from the `ip` command that openCANDevice() runs; the process
 * needs the privilege to run it. There is no reconnection logic: recovery from bus-off is the
 * kernel's, through the restart delay. The device is deleted by closeCANDevice() while it is
 * connected and by opening again, not with this object, which lives until the process ends. No call
 * throws; a failure ends in a log line and in members that tell the state.
 */
class CANInterface : public QObject
{
    Q_OBJECT

public:
    explicit CANInterface(QObject *parent = nullptr);

    /**
     * Brings the interface of @p channel (0 "can0", 1 "awlink1") down and up again with
     * @p bitrate in bit/s, listen-only, restarting @p restartMs milliseconds after bus-off, and
     * connects a device to it. Releases a device that is already open. For any other channel no
     * command runs, and a device that is held is connected once more.
     * Returns 0 on every path: the outcome is in mCanIndex and in the log.
     */
    int openCANDevice(unsigned int channel, unsigned int bitrate, unsigned int restartMs);

    /// Disconnects and deletes the connected device and brings its interface down. The controller
    /// never closes.
    void closeCANDevice();

    /// Sets both frame counters to 0. Nothing calls it today.
    void resetCANDevice();

    /// The device's QCanBusDevice::CanBusDeviceState, 0 without a device. Nothing calls it
    /// today.
    int getstatus() const;

    /// Hands @p filters to the device as its raw filters. Without a device does nothing.
    void setfilter(const QList<QCanBusDevice::Filter> &filters);

    /// Whether readFrame() of the device has a frame to give.
    bool hasFrame() const;

    /// Writes @p frame to the device; false when that fails or there is no device. Nothing in the
    /// controller sends.
    bool sendFrame(const QCanBusFrame &frame);

    /// The device that openCANDevice() made; the decoder reads its frames.
    QCanBusDevice *mCanDevice = nullptr;
    QList<QCanBusDevice::Filter> mFilterList; ///< what openCANDevice() applies
    int mCanIndex = -1;                       ///< channel of the connected device, -1 without
    qint64 mFramesWritten = 0;
    qint64 mFramesReceived = 0; ///< frames seen by processReceivedFrames() without any flag

public Q_SLOTS:
    // For a user that connects the device's signals to them; openCANDevice() connects none.
    void processErrors(QCanBusDevice::CanBusError error);
    void processReceivedFrames();
    void processFramesWritten(qint64 count);

private:
    void releaseDevice();
};
