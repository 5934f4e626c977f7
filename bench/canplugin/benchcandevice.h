#pragma once

#include "bench/board/busframe.h"
#include "bench/canplugin/canfilter.h"

#include <QCanBusDevice>
#include <QCanBusDeviceInfo>

class QSocketNotifier;

/**
 * A CAN device with the habits of Qt's SocketCAN device over the kernel, fed from the bench's bus
 * instead: an interface is a socket of its name in the bench's folder of buses.
 *
 * The interface is listen-only: nothing can be written. An interface that goes down leaves the
 * device connected and silent. After each read the device tells the bus how many frames it has
 * taken so far, filtered ones included, so that the bench sees how far the process has got.
 */
class BenchCanDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    explicit BenchCanDevice(const QString &interfaceName);
    ~BenchCanDevice() override;

    static QList<QCanBusDeviceInfo> interfaces();

    void setConfigurationParameter(int key, const QVariant &value) override;
    bool writeFrame(const QCanBusFrame &frame) override; ///< always fails
    QString interpretErrorFrame(const QCanBusFrame &errorFrame) override;

protected:
    bool open() override;
    void close() override;

private:
    bool applyParameter(int key, const QVariant &value);
    void readSocket();
    void append(const BusFrame &busFrame, QVector<QCanBusFrame> &frames);
    void reportTaken();

    QString mInterface;
    int mSocket = -1;
    QSocketNotifier *mNotifier = nullptr;
    CanFilter mFilter;
    quint64 mTaken = 0; ///< frames since the connection
};
