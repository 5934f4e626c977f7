// SPDX-License-Identifier: MIT

#include "bench/canplugin/benchcanplugin.h"

#include "bench/canplugin/benchcandevice.h"

QCanBusDevice *BenchCanPlugin::createDevice(const QString &interfaceName, QString *) const
{
    return new BenchCanDevice(interfaceName);
}

QList<QCanBusDeviceInfo> BenchCanPlugin::availableDevices(QString *) const
{
    return BenchCanDevice::interfaces();
}
