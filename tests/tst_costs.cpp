// SPDX-License-Identifier: MIT

// Ticks, exchanges and frames allocate nothing of their own, as long as there is nothing to log.
// Each test function does a fixed number of them: costs/instructions runs it under callgrind.

#include "app/pvmmain.h"
#include "board/serdescontrol.h"
#include "devicedata/sharedmemorycontrol.h"

#include <QCanBus>
#include <QtTest>

#include <fcntl.h>

/// A device whose frames come from the test.
struct Device : QCanBusDevice
{
    Device() { setState(ConnectedState); }
    bool open() override { return true; }
    void close() override {}
    bool writeFrame(const QCanBusFrame &) override { return false; }
    QString interpretErrorFrame(const QCanBusFrame &) override { return {}; }
    using QCanBusDevice::enqueueReceivedFrames;
};

static thread_local int tAllocations = 0;
static Device *gDevice = nullptr;

// The C library's allocator, for the whole process, and what the linker puts in between.
extern "C" {

void *__libc_malloc(size_t size);
void *malloc(size_t size)
{
    ++tAllocations;
    return __libc_malloc(size);
}

void *__libc_realloc(void *old, size_t size);
void *realloc(void *old, size_t size)
{
    ++tAllocations;
    return __libc_realloc(old, size);
}

// A line or a watchdog: gives zeros, takes all.
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *, int flags, ...)
{
    return __real_open("/dev/zero", flags);
}

int __wrap_system(const char *)
{
    return 0;
}

// Timers do not run: Qt allocates for each start.
void __wrap__ZN6QTimer5startEi(QTimer *, int)
{}

QCanBusDevice *__wrap__ZNK7QCanBus12createDeviceERK7QStringS2_PS0_(const QCanBus *, const QString &,
                                                                   const QString &, QString *)
{
    return gDevice = new Device;
}

} // extern "C"

class TestCosts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ticks();
    void exchanges();
    void frames();
};

template <typename Work> static int allocationsOf(int times, const Work &work)
{
    const int before = tAllocations;
    for (int i = 0; i < times; ++i)
        work();
    return tAllocations - before;
}

void TestCosts::ticks()
{
    SerdesControl board(nullptr);
    const auto tick = [&board] { board.onPer10ms(); };
    allocationsOf(20, tick); // until the lines are accepted
    QCOMPARE(allocationsOf(980, tick), 0);
}

void TestCosts::exchanges()
{
    auto *link = new SharedMemoryControl(true, nullptr); // its thread has no end
    const auto exchange = [link] { link->on_runTimerOut(); };
    allocationsOf(20, exchange); // until the renderer is known to be missing
    QCOMPARE(allocationsOf(980, exchange), 0);
}

// The speed and the angle are news each time.
void TestCosts::frames()
{
    PvmMain controller(nullptr);
    for (int round = 0; round < 100; ++round) {
        QVector<QCanBusFrame> batch;
        for (const quint32 id :
             {0x1004501, 0x1004001, 0x413, 0x3E0, 0x3E5, 0x3E6, 0x1234, 0x158B9A75})
            batch.append(QCanBusFrame(id, QByteArray(8, '\0')));
        for (const quint32 id : {0x681AA02, 0x4812501})
            batch.append(QCanBusFrame(id, QByteArray(8, static_cast<char>(round % 10 + 1))));
        const int count = allocationsOf(1, [&] { gDevice->enqueueReceivedFrames(batch); });
        // By then the gear is accepted, and what is logged once has been. The device's queue is
        // Qt's; Qt 6 keeps what it has allocated for it.
        if (round >= 10)
            QVERIFY2(count <= 1, qPrintable(QString::number(count)));
    }
}

QTEST_GUILESS_MAIN(TestCosts)
#include "tst_costs.moc"
