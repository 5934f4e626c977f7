// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/fact.h"

#include <QObject>

/// The bus that the controller's can0 sits on, and the one CAN device that may be open on it.
class VehicleBus : public QObject
{
    Q_OBJECT

public:
    /// Returns what is wrong, or an empty text.
    virtual QString build() = 0;

    /// Never blocks. What cannot go out is lost.
    virtual void send(const BusFrame &frame) = 0;

    virtual bool isUp() const = 0; ///< can0
    /// @p command: the one that did it, empty when it was a drive or the loss of power.
    virtual void setUp(bool up, const QString &command) = 0;

    virtual void disconnectDevice() = 0; ///< what waits in its queue is lost

    virtual qint64 devicePid() const = 0; ///< of the process that has opened it, 0 without

    // Frames, since the bus was built.
    virtual quint64 sent() const = 0;
    virtual quint64 lost() const = 0;
    virtual quint64 waiting() const = 0; ///< for the process that has opened the device
    quint64 received() const { return sent() - qMin(sent(), lost() + waiting()); }

Q_SIGNALS:
    void connected();                ///< a process has opened the device
    void happened(const Fact &fact); ///< a frame was lost, the first since the bus was made
};
