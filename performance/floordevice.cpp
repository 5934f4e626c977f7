// SPDX-License-Identifier: MIT

// The least that a Qt program needs to sit on the bus: starts as the controller does, and takes
// every frame that comes. "reverse": it also looks for the gear, and runs the picture's script on
// the fifth frame in a row with R. "ticking": it also reads the board's inputs every 10 ms.

#include "performance/readlines.h"

#include <QApplication>
#include <QCanBus>
#include <QSharedMemory>
#include <QSystemSemaphore>
#include <QTimer>

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    const bool isReversing = application.arguments().contains("reverse");
    QSharedMemory segment("FloorSegment");
    segment.create(64);
    const QSystemSemaphore semaphore("FloorSemaphore", 1);

    [[maybe_unused]] int status = system("ip link set can0 down");
    status = system("ip link set up can0 type can bitrate 500000 listen-only on restart-ms 100");
    QCanBusDevice *device = QCanBus::instance()->createDevice("socketcan", "can0");
    int gearFrames = 0;
    QObject::connect(device, &QCanBusDevice::framesReceived, [&] {
        while (device->framesAvailable() != 0) {
            const QCanBusFrame frame = device->readFrame();
            if (!isReversing || frame.frameId() != 0x1004501)
                continue;
            gearFrames = (frame.payload().at(5) >> 4) == 7 ? gearFrames + 1 : 0;
            if (gearFrames == 5)
                status = system("/etc/set_t840gmsl_0.sh 1");
        }
    });
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, readLines);
    if (application.arguments().contains("ticking"))
        timer.start(10);
    if (!device->connectDevice())
        return EXIT_FAILURE;
    fputs("Open OK.\n", stderr);
    return QApplication::exec();
}
