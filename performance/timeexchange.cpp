// SPDX-License-Identifier: MIT

// Times how long the link's semaphore is held by an exchange, and by the same two locks around a
// copy of the record's 28 bytes. Prints for each pair the median and the worst of both, the
// exchange's first.

#include "devicedata/sharedmemorycontrol.h"

#include <QCoreApplication>
#include <QSystemSemaphore>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <unistd.h>

using Clock = std::chrono::steady_clock;
static Clock::time_point gTaken;
static std::vector<double> *gHeld = nullptr; // microseconds; null while nobody counts

// The semaphore, with a look at the clock. The names are the linker's.
extern "C" {

bool __real__ZN16QSystemSemaphore7acquireEv(QSystemSemaphore *semaphore);
bool __real__ZN16QSystemSemaphore7releaseEi(QSystemSemaphore *semaphore, int count);

bool __wrap__ZN16QSystemSemaphore7acquireEv(QSystemSemaphore *semaphore)
{
    const bool ok = __real__ZN16QSystemSemaphore7acquireEv(semaphore);
    gTaken = Clock::now();
    return ok;
}

bool __wrap__ZN16QSystemSemaphore7releaseEi(QSystemSemaphore *semaphore, int count)
{
    if (gHeld != nullptr)
        gHeld->push_back(std::chrono::duration<double, std::micro>(Clock::now() - gTaken).count());
    return __real__ZN16QSystemSemaphore7releaseEi(semaphore, count);
}

} // extern "C"

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    auto *control = new SharedMemoryControl(true, nullptr);
    QSharedMemory segment("FloorSegment");
    segment.create(64);
    QSystemSemaphore semaphore("FloorSemaphore", 1);
    const char record[28] = {};

    for (int pair = 0; pair < 25; ++pair) {
        std::vector<double> ours, floors;
        const auto takeTurns = [&] {
            for (int i = 0; i < 10000; ++i) {
                gHeld = &ours;
                control->on_runTimerOut();
                gHeld = &floors;
                semaphore.acquire();
                segment.lock();
                memcpy(segment.data(), record, sizeof record);
                segment.unlock();
                semaphore.release();
            }
            gHeld = nullptr;
        };
        // On the link's own thread: its timer would else come between.
        QMetaObject::invokeMethod(control, takeTurns, Qt::BlockingQueuedConnection);
        std::sort(ours.begin(), ours.end());
        std::sort(floors.begin(), floors.end());
        printf("%f %f %f %f\n", ours[5000], floors[5000], ours.back(), floors.back());
    }
    fflush(stdout);
    _exit(EXIT_SUCCESS); // the link's thread has no end, as in the controller
}
