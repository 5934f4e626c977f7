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

    SharedMemoryControl link(false, nullptr);
    link.setIsTurnSwitchEnable(true); // a turn light may bring the picture up
    link.setIsAVMInited(true);        // pictures can be shown

    // Stands for the loop that draws. Without a heartbeat the controller takes the renderer for
    // dead and the board is reset: one with each frame, so that a picture that stands still is
    // noticed, and at least every 200 ms, since under a turning wheel the controller waits no
    // longer than 500.
    QTimer frame;
    QObject::connect(&frame, &QTimer::timeout, [&link] { link.updatemAVMRunCount(); });
    frame.start(40);

    // Announced on the link's thread; drawing belongs to this one.
    QObject::connect(DeviceDatasManager::self().data(),
                     &DeviceDatasManager::deviceDataChangedSignal, &application, show,
                     Qt::QueuedConnection);
    return QCoreApplication::exec();
}
