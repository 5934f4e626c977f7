// SPDX-License-Identifier: MIT

#pragma once

#include "devicedatashare.h"

#include <QObject>
#include <QSharedPointer>
#include <QTimer>

#include <mutex>

/**
 * The process's one DeviceData record and the detection of its changes.
 *
 * Lives on the main thread, where the timer runs. The link's worker thread copies the record out
 * (and in peer mode in) at any time; a mutex keeps those copies whole. It is held for one field
 * store, one copy of the record, or one comparison with the last announced record.
 */
class DeviceDatasManager : public QObject
{
    Q_OBJECT

public:
    explicit DeviceDatasManager(QObject *parent = nullptr);

    /// The one manager, created by the first call. Keep the pointer for one call only. The first
    /// call must be made before a second thread exists; a renderer's link makes it.
    static QSharedPointer<DeviceDatasManager> self();

    /// A copy of the record.
    DeviceData deviceData() const;

    // The setters only store. A caller that changes fields calls handleSendDataChanged() once
    // afterwards.
    void setGear(char gear);
    void setRadar(int radar);
    void setSpeed(int speed);
    void setAngle(int angle);
    void setLightStatus(char lightStatus);
    void setKeyStaus(char keyStatus);

    /// Sending direction: a record that differs from the last announced one is announced by
    /// deviceDataChangedSignal() 50 ms after the first change of a burst.
    void handleSendDataChanged();

    /// Receiving direction: announces a changed record at once, on the calling thread. Returns
    /// whether it had changed.
    bool handleRcvDataChanged();

    /// Copies the record's 28 bytes, padding included, into @p buffer.
    void structToCharArray(char *buffer) const;

    /// Replaces the record by @p data when @p len is 28; otherwise logs and keeps the record.
    void charArrayToStruct(const char *data, int len);

Q_SIGNALS:
    void deviceDataChangedSignal();

public Q_SLOTS:
    void on_delayTimerOut();

private:
    template <typename Field> void store(Field DeviceData::*field, Field value);
    bool takeChange();

    DeviceData mDeviceData;
    DeviceData mLastDeviceData; ///< the record as of the last detected change
    int mDataLen;               ///< bytes
    QTimer mDelayTimer;         ///< 50 ms from a burst's first change to its announcement
    mutable std::mutex mMutex;  ///< guards the two records
};
