// SPDX-License-Identifier: MIT
//
// The renderer's end of the link: keeps the controller informed that it lives, and prints the
// vehicle data that a real one would draw with. It has to run as the controller's user, with the
// same /tmp and System V IPC.
#include <devicedata/devicedatasmanager.h>
#include <devicedata/sharedmemorycontrol.h>

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>

static void show()
{
    const DeviceData data = DeviceDatasManager::self()->deviceData();
    qDebug() << "gear" << int(data.gear) << "speed" << data.speed << "light"
             << int(data.lightStatus) << "angle" << data.angle;
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);

    // The record has to be there before the link's thread is.
    DeviceDatasManager::self();
    SharedMemoryControl link(false, nullptr);
    link.setIsTurnSwitchEnable(true); // a turn light may bring the picture up
    link.setIsAVMInited(true);        // pictures can be shown

    // Without a heartbeat the controller takes the renderer for dead and the board is reset. Beat
    // from the loop that draws, so that a picture that stands still is noticed.
    QTimer heartbeat;
    QObject::connect(&heartbeat, &QTimer::timeout, [&link] { link.updatemAVMRunCount(); });
    heartbeat.start(500);

    // Announced on the link's thread; drawing belongs to this one.
    QObject::connect(DeviceDatasManager::self().data(),
                     &DeviceDatasManager::deviceDataChangedSignal, &application, show,
                     Qt::QueuedConnection);
    return QCoreApplication::exec();
}
