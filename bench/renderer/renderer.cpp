// SPDX-License-Identifier: MIT

// Stands for the process that draws the panoramic view: the renderer's end of the link. Lines
// "FLAG on|off", "heartbeat MILLISECONDS", "hold" and "let go" on standard input tell it what to
// say, until the input's end; on standard output it tells what it has received.

#include "bench/board/places.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"

#include <QCoreApplication>
#include <QMap>
#include <QSharedMemory>
#include <QSocketNotifier>
#include <QSystemSemaphore>
#include <QTimer>

#include <cstdio>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kHeartbeatPeriodMs = 200; // as the page on the link asks for
constexpr int kProbePeriodMs = 50;

void print(const QByteArray &line)
{
    puts(line.constData());
    fflush(stdout);
}

/// The codes of the record in a drive's words.
const QMap<int, QByteArray> kGears{{DeviceData::kNoGear, "-"},
                                   {DeviceData::kGearP, "P"},
                                   {DeviceData::kGearR, "R"},
                                   {DeviceData::kGearN, "N"},
                                   {DeviceData::kGearD, "D"}};
const QMap<int, QByteArray> kLights{{DeviceData::kLightOff, "OFF"},
                                    {DeviceData::kLightLeft, "LEFT"},
                                    {DeviceData::kLightRight, "RIGHT"},
                                    {DeviceData::kLightHazard, "HAZARD"}};
const QMap<int, QByteArray> kKeys{
    {DeviceData::kKeyOff, "OFF"}, {DeviceData::kKeyStatus1, "1"}, {DeviceData::kIgnitionOn, "ON"}};

QByteArray word(const QMap<int, QByteArray> &words, int code)
{
    return words.value(code, QByteArray::number(code));
}

QMap<QByteArray, QByteArray> texts(const DeviceData &record)
{
    return {{"gear", word(kGears, record.gear)},
            {"light", word(kLights, record.lightStatus)},
            {"key", word(kKeys, record.keyStatus)},
            {"speed", QByteArray::number(record.speed)},
            {"angle", QByteArray::number(record.angle)},
            {"radar",
             QByteArray::number(static_cast<quint32>(record.radar), 16).rightJustified(8, '0')}};
}

/**
 * A look at the link's segment beside the exchanges themselves, under the same two locks.
 *
 * Tells when the controller has read this renderer's flags: a mark in the record's padding, which
 * nobody looks at, is gone once the controller has written the record again, and it reads the
 * flags in the same exchange.
 */
class LinkProbe
{
public:
    ~LinkProbe()
    {
        letGo(); // the link's thread may be waiting for it, and is waited for next
    }

    /// One step; call it every few ten milliseconds until it gives true.
    bool isLinkLive()
    {
        if (!attach() || !mSemaphore.acquire())
            return false;
        bool live = false;
        if (mSegment.lock()) {
            live = isMarkTaken(static_cast<char *>(mSegment.data()),
                               static_cast<int>(mSegment.size()));
            mSegment.unlock();
        }
        mSemaphore.release();
        return live;
    }

    /// Takes both locks and keeps them. False when there is no segment yet or a lock cannot be had.
    bool hold()
    {
        if (!mIsHolding)
            mIsHolding = attach() && mSemaphore.acquire() && mSegment.lock();
        return mIsHolding;
    }

    bool letGo()
    {
        return std::exchange(mIsHolding, false) && mSegment.unlock() && mSemaphore.release();
    }

private:
    static constexpr int kPaddingOffset = 3;
    static constexpr char kMark = 0x5A;
    static constexpr char kRecordFill = '\xFF'; ///< the record's first byte, never another
    static constexpr int kRunCountFromEnd = 4;  ///< never 0 once a renderer has written it
    static constexpr int kSmallestSegment = 32; ///< bytes: the record and the flags

    bool attach()
    {
        return (mSegment.isAttached() || mSegment.attach(QSharedMemory::ReadWrite)) &&
               mSegment.size() >= kSmallestSegment;
    }

    bool isMarkTaken(char *segment, int size)
    {
        // The controller clears a segment before its first record, flags and mark with it.
        if (segment[0] != kRecordFill || segment[size - kRunCountFromEnd] == 0)
            return false;
        if (!mIsMarked) {
            segment[kPaddingOffset] = kMark;
            mIsMarked = true;
        }
        return segment[kPaddingOffset] != kMark;
    }

    QSharedMemory mSegment{places::kSegmentKey};
    QSystemSemaphore mSemaphore{places::kSemaphoreKey, 1, QSystemSemaphore::Open};
    bool mIsMarked = false;
    bool mIsHolding = false;
};

} // namespace

class Renderer : public QObject
{
    Q_OBJECT

public:
    Renderer()
    {
        connect(&mHeartbeat, &QTimer::timeout, this, [this] { mLink.updatemAVMRunCount(); });
        connect(&mProbeTimer, &QTimer::timeout, this, &Renderer::checkLink);
        connect(&mCommands, &QSocketNotifier::activated, this, &Renderer::readCommands);
        // The link announces on its own thread; printing is done here.
        connect(DeviceDatasManager::self().data(), SIGNAL(deviceDataChangedSignal()), this,
                SLOT(on_recordChanged()), Qt::QueuedConnection);
        mHeartbeat.setInterval(kHeartbeatPeriodMs);
        for (const char *flag : {"heartbeat", "turn-switch", "initialised"})
            setFlag(flag, true);
        mProbeTimer.start(kProbePeriodMs);
    }

private Q_SLOTS:
    void on_recordChanged()
    {
        const DeviceData record = DeviceDatasManager::self()->deviceData();
        // A segment that no controller has written yet is all zeros.
        if (record.spare0 != 0xFF)
            return;
        const QMap<QByteArray, QByteArray> current = texts(record);
        for (auto field = current.begin(); field != current.end(); ++field)
            if (mPrinted.value(field.key()) != field.value())
                print("record " + field.key() + ' ' + field.value());
        mPrinted = current;
    }

private:
    void readCommands()
    {
        char buffer[1024];
        const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
        if (size <= 0)
            return QCoreApplication::quit();
        mInput.append(buffer, static_cast<int>(size));
        while (mInput.contains('\n')) {
            const auto end = mInput.indexOf('\n');
            handleCommand(mInput.left(end));
            mInput.remove(0, end + 1);
        }
    }

    void handleCommand(const QByteArray &line)
    {
        const QList<QByteArray> words = line.split(' ');
        if (words.first() == "hold")
            print(mProbe.hold() ? "holding" : "cannot hold");
        else if (words.first() == "let")
            print(mProbe.letGo() ? "free" : "holds nothing");
        else if (words.first() == "heartbeat" && words.last().toInt() > 0)
            mHeartbeat.setInterval(words.last().toInt());
        else if (words.size() == 2)
            setFlag(words[0], words[1] == "on");
    }

    void setFlag(const QByteArray &flag, bool on)
    {
        if (flag == "heartbeat")
            on ? mHeartbeat.start() : mHeartbeat.stop();
        else if (flag == "turn-switch")
            mLink.setIsTurnSwitchEnable(on);
        else if (flag == "initialised")
            mLink.setIsAVMInited(on);
        else if (flag == "slog")
            mLink.setIsSlogEnable(on);
    }

    void checkLink()
    {
        if (!mProbe.isLinkLive())
            return;
        mProbeTimer.stop();
        on_recordChanged();
        print("attached");
    }

    SharedMemoryControl mLink{false, nullptr};
    LinkProbe mProbe;
    QTimer mHeartbeat;
    QTimer mProbeTimer;
    QSocketNotifier mCommands{STDIN_FILENO, QSocketNotifier::Read};
    QByteArray mInput;                     ///< the beginning of a line
    QMap<QByteArray, QByteArray> mPrinted; ///< text of each field, as last printed
};

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    Renderer renderer;
    return QCoreApplication::exec();
}

#include "renderer.moc"
