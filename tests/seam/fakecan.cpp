// SPDX-License-Identifier: MIT

#include "tests/seam/fakecan.h"

#include "tests/seam/effects.h"

#include <QCanBus>
#include <QVariant>

namespace fakecan {

bool isPluginPresent = true;
bool isInterfacePresent = true;
bool isCreateFailing = false;
FakeCanDevice *device = nullptr;

static QObject *gDevices = nullptr; // their parent: who asks for one does not delete it

void reset()
{
    isPluginPresent = true;
    isInterfacePresent = true;
    isCreateFailing = false;
    delete gDevices;
    gDevices = new QObject;
    device = nullptr;
}

QCanBusFrame frame(const QString &text)
{
    if (text == "error" || text == "invalid")
        return QCanBusFrame(text == "error" ? QCanBusFrame::ErrorFrame
                                            : QCanBusFrame::InvalidFrame);
    const QString id = text.section('#', 0, 0);
    const QString data = text.section('#', 1);
    QCanBusFrame frame(id.toUInt(nullptr, 16), QByteArray::fromHex(data.toLatin1()));
    if (data == "R")
        frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
    frame.setExtendedFrameFormat(id.size() > 3);
    return frame;
}

} // namespace fakecan

void FakeCanDevice::receive(const QVector<QCanBusFrame> &frames)
{
    enqueueReceivedFrames(frames);
}

bool FakeCanDevice::writeFrame(const QCanBusFrame &)
{
    effects::add(QStringLiteral("can write"));
    return true;
}

QString FakeCanDevice::interpretErrorFrame(const QCanBusFrame &)
{
    return QStringLiteral("bus error");
}

bool FakeCanDevice::open()
{
    const auto filters = configurationParameter(RawFilterKey).value<QList<Filter>>();
    for (const Filter &filter : filters)
        effects::add(QStringLiteral("can filter %1/%2 type %3 format %4")
                         .arg(filter.frameId)
                         .arg(filter.frameIdMask)
                         .arg(filter.type)
                         .arg(filter.format));
    const auto errors = configurationParameter(ErrorFilterKey).value<QCanBusFrame::FrameErrors>();
    effects::add(QStringLiteral("can errors %1, other keys %2")
                     .arg(static_cast<uint>(errors), 0, 16)
                     .arg(configurationKeys().size() - 2));
    if (!fakecan::isInterfacePresent) {
        setError(QStringLiteral("No such device"), ConnectionError);
        return false;
    }
    setState(ConnectedState);
    return true;
}

void FakeCanDevice::close()
{
    effects::add(QStringLiteral("can close"));
    setState(UnconnectedState);
}

// QCanBus of the Qt library, replaced for the sources under test. The names are the linker's.
extern "C" {

QStringList __wrap__ZNK7QCanBus7pluginsEv(const QCanBus *)
{
    return fakecan::isPluginPresent ? QStringList(QStringLiteral("socketcan")) : QStringList();
}

QCanBusDevice *__wrap__ZNK7QCanBus12createDeviceERK7QStringS2_PS0_(const QCanBus *,
                                                                   const QString &plugin,
                                                                   const QString &interfaceName,
                                                                   QString *errorMessage)
{
    effects::add(QStringLiteral("can create %1 %2").arg(plugin, interfaceName));
    if (fakecan::isCreateFailing) {
        *errorMessage = QStringLiteral("No such plugin: 'socketcan'");
        return nullptr;
    }
    fakecan::device = new FakeCanDevice;
    fakecan::device->setParent(fakecan::gDevices);
    QObject::connect(fakecan::device, &QObject::destroyed, [] { fakecan::device = nullptr; });
    return fakecan::device;
}

} // extern "C"
