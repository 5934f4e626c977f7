// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/descriptor.h"

#include <QCanBusDevice>
#include <QCanBusDeviceInfo>

class QSocketNotifier;

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
    explicit BenchCanDevice(const QString &interfaceName);

    static QList<QCanBusDeviceInfo> interfaces();

    void setConfigurationParameter(int key, const QVariant &value) override;
    bool writeFrame(const QCanBusFrame &frame) override; ///< always fails
    QString interpretErrorFrame(const QCanBusFrame &errorFrame) override;

protected:
    bool open() override;
    void close() override;

private:
    bool isKnown(int key, const QVariant &value) const;
    bool passes(uint32_t id) const;
    void readSocket();

    QString mInterface;
    Descriptor mSocket;
    QSocketNotifier *mNotifier = nullptr;
};
