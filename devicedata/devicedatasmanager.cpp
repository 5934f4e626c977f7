// SPDX-License-Identifier: MIT

#include "devicedata/devicedatasmanager.h"

#include <QDebug>

#include <cstring>

namespace {

constexpr int kAnnounceDelayMs = 50;
constexpr int kInitialRadar = 0x00FFFFFF;

} // namespace

// Destroyed at program exit, after the event loop. Empty until the first self().
QSharedPointer<DeviceDatasManager> gDeviceDatasManager;

DeviceDatasManager::DeviceDatasManager(QObject *parent)
    : QObject(parent), mDataLen(getDeviceDataLen())
{
    // The spare and padding bytes go to the renderer too: they keep this fill for good.
    std::memset(&mDeviceData, 0xFF, static_cast<size_t>(mDataLen));
    mDeviceData.speed = 0;
    mDeviceData.keyStatus = 0;
    mDeviceData.lightStatus = 0;
    mDeviceData.angle = 0;
    mDeviceData.gear = 0;
    mDeviceData.radar = kInitialRadar;
    std::memcpy(&mLastDeviceData, &mDeviceData, sizeof(DeviceData));
    qDebug() << " sizeof DeviceData" << mDataLen;
    connect(&mDelayTimer, SIGNAL(timeout()), this, SLOT(on_delayTimerOut()));
}

QSharedPointer<DeviceDatasManager> DeviceDatasManager::self()
{
    if (gDeviceDatasManager.isNull()) {
        gDeviceDatasManager = QSharedPointer<DeviceDatasManager>(new DeviceDatasManager(nullptr));
        qDebug() << "DeviceDatasManager init !";
    }
    return gDeviceDatasManager;
}

DeviceData DeviceDatasManager::deviceData() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mDeviceData;
}

template <typename Field> void DeviceDatasManager::store(Field DeviceData::*field, Field value)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mDeviceData.*field = value;
}

void DeviceDatasManager::setGear(char gear)
{
    store(&DeviceData::gear, gear);
}

void DeviceDatasManager::setRadar(int radar)
{
    store(&DeviceData::radar, radar);
}

void DeviceDatasManager::setSpeed(int speed)
{
    store(&DeviceData::speed, speed);
}

void DeviceDatasManager::setAngle(int angle)
{
    store(&DeviceData::angle, angle);
}

void DeviceDatasManager::setLightStatus(char lightStatus)
{
    store(&DeviceData::lightStatus, lightStatus);
}

void DeviceDatasManager::setKeyStaus(char keyStatus)
{
    store(&DeviceData::keyStatus, keyStatus);
}

void DeviceDatasManager::handleSendDataChanged()
{
    if (!takeChange())
        return;
    // A running timer is left alone: a steady stream of changes must not put the announcement off.
    if (!mDelayTimer.isActive())
        mDelayTimer.start(kAnnounceDelayMs);
}

bool DeviceDatasManager::handleRcvDataChanged()
{
    if (!takeChange())
        return false;
    Q_EMIT deviceDataChangedSignal();
    return true;
}

bool DeviceDatasManager::takeChange()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (!isDeviceDataChanged(&mDeviceData, &mLastDeviceData))
        return false;
    std::memcpy(&mLastDeviceData, &mDeviceData, sizeof(DeviceData));
    return true;
}

void DeviceDatasManager::structToCharArray(char *buffer) const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    std::memcpy(buffer, &mDeviceData, sizeof(DeviceData));
}

void DeviceDatasManager::charArrayToStruct(const char *data, int len)
{
    if (len != mDataLen) {
        qDebug() << " size error " << len << " dataLen " << mDataLen;
        return;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    std::memcpy(&mDeviceData, data, static_cast<size_t>(len));
}

void DeviceDatasManager::on_delayTimerOut()
{
    mDelayTimer.stop();
    Q_EMIT deviceDataChangedSignal();
}
