// SPDX-License-Identifier: MIT

#pragma once

#include <QCanBusDeviceInfo>
#include <QCanBusFactory>
#include <QObject>

/// Offers the bench's CAN devices under the key of Qt's own SocketCAN plugin.
class BenchCanPlugin : public QObject, public QCanBusFactoryV2
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QCanBusFactory" FILE "benchcan.json")
    Q_INTERFACES(QCanBusFactoryV2)

public:
    /// Always a device; whether its interface exists shows when it connects.
    QCanBusDevice *createDevice(const QString &interfaceName, QString *errorMessage) const override;

    QList<QCanBusDeviceInfo> availableDevices(QString *errorMessage) const override;
};
