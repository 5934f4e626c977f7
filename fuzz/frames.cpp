// SPDX-License-Identifier: MIT
//
// Any frames, with clicks, ticks and the renderer's flags between them, through the decoder and the
// picture decision. What must hold is looked at after each.

#include "board/serdescontrol.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "fuzz/check.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"
#include "tests/seam/fakelink.h"
#include "tests/seam/vehicle.h"

#include <QCoreApplication>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

const quint32 kIds[] = {0x413,     0x3E0, 0x681AA02, 0x4812501, 0x1004501,
                        0x1004001, 0x3E5, 0x3E6,     0x371};

bool isIn(int value, int low, int high)
{
    return value >= low && value <= high;
}

/// A buffer of exactly the payload's size, so that a read beyond it is seen.
class Payload
{
public:
    explicit Payload(const std::string &bytes) : mBytes(new char[bytes.size()]), mSize(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), mBytes.get());
    }
    QByteArray bytes() const
    {
        return QByteArray::fromRawData(mBytes.get(), static_cast<int>(mSize));
    }

private:
    std::unique_ptr<char[]> mBytes;
    size_t mSize;
};

class Drive
{
public:
    Drive()
    {
        effects::reset();
        effects::setFile("/sys/class/gpio/gpio150/value", "0\n");
        fakecan::reset();
        mVehicle = std::make_unique<Vehicle>();
        mCan = mVehicle->can;
        QObject::connect(mVehicle->controller.get(), &PvmMain::switchVideoSignal,
                         [this](int request) { checkRequest(request); });
        effects::take();
    }

    void step(FuzzedDataProvider &data)
    {
        switch (data.ConsumeIntegralInRange(0, 11)) {
        case 0:
            Q_EMIT mVehicle->controller->onPhySwitchTriggerSlot(1);
            break;
        case 1:
            gFakeLink->setIsTurnSwitchEnable(data.ConsumeBool());
            break;
        case 2:
            Q_EMIT gFakeLink->turnSwitchSignal();
            break;
        case 3:
            gFakeLink->setIsAVMInited(data.ConsumeBool());
            Q_EMIT gFakeLink->avmInitOkSignal();
            break;
        case 4:
            effects::fire(100);
            break;
        case 5:
            for (int ticks = data.ConsumeIntegralInRange(1, 50); ticks > 0; --ticks)
                effects::fire(10);
            break;
        default:
            receive(data);
        }
        checkDecoder();
        checkRecord();
        checkScripts();
    }

private:
    void receive(FuzzedDataProvider &data)
    {
        const quint32 id = data.ConsumeBool() ? data.PickValueInArray(kIds)
                                              : data.ConsumeIntegral<quint32>() & 0x1FFFFFFF;
        const auto type = data.ConsumeIntegralInRange(0, 15);
        const int count = data.ConsumeBool() ? 1 : data.ConsumeIntegralInRange(1, 12);
        const Payload payload(data.ConsumeBytesAsString(data.ConsumeIntegralInRange(0, 8)));
        QCanBusFrame frame(id, payload.bytes());
        if (type == 0)
            frame.setFrameType(QCanBusFrame::ErrorFrame);
        else if (type == 1)
            frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
        else if (type == 2)
            frame.setFrameType(QCanBusFrame::InvalidFrame);
        if (fakecan::device != nullptr)
            fakecan::device->receive(QVector<QCanBusFrame>(count, frame));
    }

    bool isTurning() const { return mCan->mLightStatus == 1 || mCan->mLightStatus == 2; }

    /// DA is never asked for in R, nor while a turn light is on that the renderer allows.
    void checkRequest(int request)
    {
        mRequest = request;
        if (request <= 0)
            check(mCan->mGearStatus != 2 && !(isTurning() && gFakeLink->getIsTurnSwitchEnable()),
                  "DA asked for");
    }

    void checkDecoder() const
    {
        check(isIn(mCan->mGearStatus, -1, 4) && mCan->mGearStatus != 0, "gear");
        check(isIn(mCan->mLightStatus, -1, 2), "light");
        check(isIn(mCan->mKeyStatus, -1, 2), "key");
        check(isIn(mCan->mSpeed, -1, 255), "speed");
        check(isIn(mCan->mAngle, -1, 65535), "angle");
        for (int sensor = 0; sensor < 6; ++sensor) {
            const int level = static_cast<int>(mCan->mRadarStatus >> (4 * sensor) & 0xF);
            check(isIn(level, 0, 3) || level == 0xF, "radar");
        }
    }

    /// The record holds what the decoder has, the gear while the 100 ms run excepted.
    void checkRecord()
    {
        const DeviceData record = DeviceDatasManager::self()->deviceData();
        check(record.speed == std::max(mCan->mSpeed, 0), "speed of the record");
        check(record.lightStatus == std::max(mCan->mLightStatus, 0), "light of the record");
        check(record.keyStatus == std::max(mCan->mKeyStatus, 0), "key of the record");
        check(isIn(record.angle, -2838, 2838), "angle of the record");
        check(record.gear == std::max(mCan->mGearStatus, 0) || record.gear == 2,
              "gear of the record");
    }

    /// The picture that was routed last is the one that was asked for last.
    void checkScripts()
    {
        for (const QString &line : effects::take())
            if (line.startsWith("system /etc/set_t840gmsl_0.sh"))
                mRouted = line.endsWith('1');
        check(mRequest < 0 || mRouted == (mRequest > 0), "the picture is not the one asked for");
    }

    std::unique_ptr<Vehicle> mVehicle;
    CanTest *mCan = nullptr;
    int mRequest = -1;
    bool mRouted = true;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    static int count = 0;
    static char name[] = "frames";
    static char *words[] = {name, nullptr};
    static QCoreApplication application(count, words);
    FuzzedDataProvider data(bytes, size);
    Drive drive;
    while (data.remaining_bytes() > 0)
        drive.step(data);
    return 0;
}
