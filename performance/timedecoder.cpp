// SPDX-License-Identifier: MIT

// Times the decoder over devices with frames waiting, and a loop that takes and drops them; 64,000
// times the batch at each repetition. Usage: time-decoder LOG [BENCHMARK_OPTION...]; LOG as
// `candump -L` writes it.

#include "can/caninterface.h"
#include "can/cantest.h"

#include <QCanBusDevice>
#include <QCoreApplication>
#include <QFile>

#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <unistd.h>

class FilledDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    FilledDevice() { setState(ConnectedState); }
    using QCanBusDevice::enqueueReceivedFrames;
    bool writeFrame(const QCanBusFrame &) override { return false; }
    QString interpretErrorFrame(const QCanBusFrame &) override { return {}; }

protected:
    bool open() override { return true; }
    void close() override {}
};

static QVector<QCanBusFrame> gDrive;
static CanTest *gDecoder = nullptr;

/// Hands the drive out a batch at a time, and times how long @p drain takes to empty the devices:
/// many of them, since looking at the clock takes time too.
static void timeDrain(benchmark::State &state, void (*drain)(QCanBusDevice *))
{
    const int batch = static_cast<int>(state.range(0));
    std::array<FilledDevice, 64> devices;
    int next = 0;
    for ([[maybe_unused]] auto ignored : state) {
        for (FilledDevice &device : devices) {
            device.enqueueReceivedFrames(gDrive.mid(next, batch));
            next = next + batch < gDrive.size() - batch ? next + batch : 0;
        }
        const auto begin = std::chrono::steady_clock::now();
        for (FilledDevice &device : devices)
            drain(&device);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(taken.count() / (batch * static_cast<double>(devices.size())));
    }
}

// Each a function of its own, so that its instructions can be counted by its name.

[[gnu::noinline]] static void decode(QCanBusDevice *device)
{
    gDecoder->mCanInterface->mCanDevice = device;
    gDecoder->onProcesscan0receivedframes();
}

[[gnu::noinline]] static void takeAndDrop(QCanBusDevice *device)
{
    while (device->framesAvailable() != 0)
        benchmark::DoNotOptimize(device->readFrame());
}

BENCHMARK_CAPTURE(timeDrain, decode, decode)->Arg(1)->Arg(16)->UseManualTime()->Iterations(1000);
BENCHMARK_CAPTURE(timeDrain, takeAndDrop, takeAndDrop)
    ->Arg(1)
    ->Arg(16)
    ->UseManualTime()
    ->Iterations(1000);

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    QFile log(argv[1]);
    log.open(QIODevice::ReadOnly);
    for (const QByteArray &line : log.readAll().trimmed().split('\n')) {
        const QList<QByteArray> words = line.split(' ').last().split('#');
        gDrive.append(QCanBusFrame(words[0].toUInt(nullptr, 16), QByteArray::fromHex(words[1])));
    }
    CanTest decoder(nullptr);
    gDecoder = &decoder;
    benchmark::RunSpecifiedBenchmarks();
    fflush(stdout);
    _exit(EXIT_SUCCESS); // the decoder belongs to nobody, and the last device is gone
}

#include "timedecoder.moc"
