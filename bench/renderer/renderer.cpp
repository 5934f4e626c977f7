// SPDX-License-Identifier: MIT

#include "bench/renderer/renderer.h"

#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kHeartbeatPeriodMs = 200;
constexpr int kProbePeriodMs = 50;

void print(const QByteArray &line)
{
    puts(line.constData());
    fflush(stdout);
}

QByteArray word(std::initializer_list<const char *> words, int code)
{
    const auto count = static_cast<int>(words.size());
    return code >= 0 && code < count ? QByteArray(words.begin()[code]) : QByteArray::number(code);
}

QMap<QByteArray, QByteArray> texts(const DeviceData &record)
{
    return {{"gear", word({"-", "P", "R", "N", "D"}, record.gear)},
            {"light", word({"OFF", "LEFT", "RIGHT", "HAZARD"}, record.lightStatus)},
            {"key", word({"OFF", "1", "ON"}, record.keyStatus)},
            {"speed", QByteArray::number(record.speed)},
            {"angle", QByteArray::number(record.angle)},
            {"radar",
             QByteArray::number(static_cast<quint32>(record.radar), 16).rightJustified(8, '0')}};
}

std::unique_ptr<SharedMemoryControl> makeLink()
{
    // The record's manager has to be there before the link's thread.
    DeviceDatasManager::self();
    return std::make_unique<SharedMemoryControl>(false, nullptr);
}

} // namespace

Renderer::Flags Renderer::usualFlags()
{
    return {{"heartbeat", true}, {"turn-switch", true}, {"initialised", true}, {"slog", false}};
}

Renderer::Renderer(const Flags &flags, QObject *parent) : QObject(parent), mLink(makeLink())
{
    connect(&mHeartbeat, &QTimer::timeout, this, [this] { mLink->updatemAVMRunCount(); });
    connect(&mProbeTimer, &QTimer::timeout, this, &Renderer::checkLink);
    // The link announces on its own thread; printing is done here.
    connect(DeviceDatasManager::self().data(), SIGNAL(deviceDataChangedSignal()), this,
            SLOT(on_recordChanged()), Qt::QueuedConnection);
    for (auto flag = flags.begin(); flag != flags.end(); ++flag)
        setFlag(flag.key(), flag.value());
    mProbeTimer.start(kProbePeriodMs);

    auto *notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] { readCommands(); });
}

Renderer::~Renderer() = default;

void Renderer::readCommands()
{
    char buffer[1024];
    const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
    if (size <= 0) {
        QCoreApplication::quit();
        return;
    }
    mInput.append(buffer, static_cast<int>(size));
    int end = 0;
    while ((end = mInput.indexOf('\n')) >= 0) {
        handleCommand(mInput.left(end));
        mInput.remove(0, end + 1);
    }
}

void Renderer::handleCommand(const QByteArray &line)
{
    const QList<QByteArray> words = line.split(' ');
    if (words.first() == "hold")
        print(mProbe.hold() ? "holding" : "cannot hold");
    else if (words.size() == 2)
        setFlag(words[0], words[1] == "on");
}

void Renderer::setFlag(const QByteArray &flag, bool on)
{
    if (flag == "heartbeat")
        on ? mHeartbeat.start(kHeartbeatPeriodMs) : mHeartbeat.stop();
    else if (flag == "turn-switch")
        mLink->setIsTurnSwitchEnable(on);
    else if (flag == "initialised")
        mLink->setIsAVMInited(on);
    else if (flag == "slog")
        mLink->setIsSlogEnable(on);
}

void Renderer::checkLink()
{
    if (!mProbe.isLinkLive())
        return;
    mProbeTimer.stop();
    on_recordChanged();
    print("attached");
}

void Renderer::on_recordChanged()
{
    const DeviceData record = DeviceDatasManager::self()->deviceData();
    // A segment that no controller has written yet is all zeros.
    if (record.spare0 != 0xFF)
        return;
    const QMap<QByteArray, QByteArray> current = texts(record);
    for (auto field = current.begin(); field != current.end(); ++field) {
        if (mPrinted.value(field.key()) != field.value())
            print("record " + field.key() + ' ' + field.value());
    }
    mPrinted = current;
}
