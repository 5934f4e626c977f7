// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QCanBusDevice>

/// A CAN device that the test feeds. Records what it is asked for; opening fails on request, with
/// the words of the real plugin for an interface that is not there.
class FakeCanDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    void receive(const QVector<QCanBusFrame> &frames);

    bool writeFrame(const QCanBusFrame &frame) override;
    QString interpretErrorFrame(const QCanBusFrame &frame) override;

protected:
    bool open() override;
    void close() override;
};

namespace fakecan {

/// As candump writes it, an "R" for a remote request; or "error", "invalid".
QCanBusFrame frame(const QString &text);

void reset(); ///< plugin present, interface present, no device
extern bool isPluginPresent;
extern bool isInterfacePresent;
extern bool isCreateFailing;  ///< createDevice() gives no device
extern FakeCanDevice *device; ///< the last one made; null once it is deleted

} // namespace fakecan
