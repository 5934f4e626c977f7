// SPDX-License-Identifier: MIT

#include "can/cantest.h"

#include "can/caninterface.h"
#include "devicedata/devicedatashare.h"

#include <QByteArray>
#include <QCanBusFrame>
#include <QDebug>

namespace {

constexpr unsigned int kChannel = 0;
constexpr unsigned int kBitrate = 500000;
constexpr unsigned int kRestartMs = 100;

// A gear is taken on the frame after this many with the same code.
constexpr int kGearLimit1004501 = 4;
constexpr int kGearLimit1004001 = 10;

// The hour on the bus is 8 behind the clock in the vehicle.
constexpr int kHourShift = 8;

// The one way to a payload byte: a frame may be shorter than its identifier promises.
int payloadByte(const QByteArray &payload, int index)
{
    return index < payload.size() ? static_cast<unsigned char>(payload[index]) : 0;
}

int lightStatusOf(int code)
{
    switch (code) {
    case 0x45:
    case 0x49:
        return DeviceData::kLightRight;
    case 0x51:
    case 0x61:
        return DeviceData::kLightLeft;
    default:
        return DeviceData::kLightOff;
    }
}

int keyStatusOf(int code)
{
    switch (code) {
    case 0x54:
        return DeviceData::kIgnitionOn;
    case 0x04:
        return DeviceData::kKeyStatus1;
    default:
        return DeviceData::kKeyOff;
    }
}

// Both gear frames carry the same code in a nibble.
int gearOf(int code)
{
    switch (code) {
    case 0x0:
        return DeviceData::kGearP;
    case 0x7:
        return DeviceData::kGearR;
    case 0x6:
        return DeviceData::kGearN;
    case 0x5:
        return DeviceData::kGearD;
    default:
        return DeviceData::kNoGear;
    }
}

int radarLevelOf(int raw)
{
    return raw >= 1 && raw <= 3 ? 4 - raw : 0;
}

// Level of the 3-bit value at bit shift of payload byte index, put at bit startBit of group.
int addRadarLevel(int group, int startBit, const QByteArray &payload, int index, int shift)
{
    return setBits(group, startBit, 4, radarLevelOf((payloadByte(payload, index) >> shift) & 0x7));
}

} // namespace

CanTest::CanTest(QObject *parent) : QObject(parent), mCanInterface(new CANInterface(nullptr))
{
    mCanInterface->openCANDevice(kChannel, kBitrate, kRestartMs);
    if (mCanInterface->mCanDevice != nullptr)
        connect(mCanInterface->mCanDevice, SIGNAL(framesReceived()), this,
                SLOT(onProcesscan0receivedframes()));
}

void CanTest::onProcesscan0receivedframes()
{
    while (mCanInterface->hasFrame()) {
        const QCanBusFrame frame = mCanInterface->mCanDevice->readFrame();
        if (frame.frameType() == QCanBusFrame::ErrorFrame || !frame.isValid())
            continue;
        decodeFrame(frame);
    }
}

void CanTest::decodeFrame(const QCanBusFrame &frame)
{
    // The payload is copied for the few identifiers that are known, not for the whole bus.
    switch (frame.frameId()) {
    case 0x413:
        decodeLightStatus(frame.payload());
        break;
    case 0x3E0:
        decodeKeyStatus(frame.payload());
        break;
    case 0x681AA02:
        decodeSpeed(frame.payload());
        break;
    case 0x4812501:
        decodeAngle(frame.payload());
        break;
    case 0x1004501:
        decodeGear1004501(frame.payload());
        break;
    case 0x1004001:
        decodeGear1004001(frame.payload());
        break;
    case 0x3E5:
        decodeRadar3E5(frame.payload());
        break;
    case 0x3E6:
        decodeRadar3E6(frame.payload());
        break;
    case 0x371:
        decodeDateTime(frame);
        break;
    default:
        break;
    }
}

void CanTest::store(int &member, int value, unsigned char id)
{
    if (member == value)
        return;
    member = value;
    Q_EMIT canTestDataChangedSignal(id);
}

void CanTest::decodeLightStatus(const QByteArray &payload)
{
    store(mLightStatus, lightStatusOf(payloadByte(payload, 7)), CAN_SIG_LIGHT_STATUS);
}

void CanTest::decodeKeyStatus(const QByteArray &payload)
{
    store(mKeyStatus, keyStatusOf(payloadByte(payload, 4)), CAN_SIG_KEY_STATUS);
}

void CanTest::decodeSpeed(const QByteArray &payload)
{
    store(mSpeed, payloadByte(payload, 0), CAN_SIG_SPEED);
}

void CanTest::decodeAngle(const QByteArray &payload)
{
    store(mAngle, payloadByte(payload, 3) + 256 * payloadByte(payload, 4), CAN_SIG_ANGLE);
}

void CanTest::decodeGear1004501(const QByteArray &payload)
{
    debounceGear(gearOf(payloadByte(payload, 5) >> 4), kGearLimit1004501);
}

void CanTest::decodeGear1004001(const QByteArray &payload)
{
    debounceGear(gearOf(payloadByte(payload, 4) & 0x0F), kGearLimit1004001);
}

void CanTest::debounceGear(int gear, int limit)
{
    if (gear == DeviceData::kNoGear) {
        // An undefined code ends the run, so that a gear is only taken on its full unbroken one.
        mGearCandidate = DeviceData::kNoGear;
        return;
    }
    if (gear != mGearCandidate) {
        mGearCandidate = gear;
        mGearStableCount = 1;
        return;
    }
    if (mGearStableCount < limit) {
        ++mGearStableCount;
        return;
    }
    mGearStableCount = 0;
    store(mGearStatus, gear, CAN_SIG_GEAR);
}

void CanTest::decodeRadar3E5(const QByteArray &payload)
{
    int group = 0;
    group = addRadarLevel(group, 0, payload, 5, 3);
    group = addRadarLevel(group, 4, payload, 3, 3);
    group = addRadarLevel(group, 8, payload, 4, 3);
    storeRadarGroup(static_cast<quint32>(group), 0x00000FFFU);
}

void CanTest::decodeRadar3E6(const QByteArray &payload)
{
    int group = 0;
    group = addRadarLevel(group, 12, payload, 4, 0);
    group = addRadarLevel(group, 16, payload, 2, 0);
    group = addRadarLevel(group, 20, payload, 3, 0);
    storeRadarGroup(static_cast<quint32>(group), 0x00FFF000U);
}

void CanTest::storeRadarGroup(quint32 levels, quint32 groupMask)
{
    if ((mRadarStatus & groupMask) == levels)
        return;
    // The 32-bit mask clears the upper half of the word too; bits 24 to 31 keep their ones.
    mRadarStatus = (mRadarStatus & ~groupMask) + levels;
    Q_EMIT canTestDataChangedSignal(CAN_SIG_RADAR);
}

void CanTest::decodeDateTime(const QCanBusFrame &frame)
{
    const QByteArray payload = frame.payload();
    const qint64 year = payloadByte(payload, 0) + 256 * payloadByte(payload, 1);
    const qint64 month = payloadByte(payload, 2);
    const qint64 date = year * 10000 + month * 100 + payloadByte(payload, 3);
    const qint64 hour = payloadByte(payload, 4) + kHourShift;
    const qint64 time = hour * 100 + payloadByte(payload, 5);
    if (date == mCanDate && time == mCanTime)
        return;
    qDebug() << "DATETIME:" << frame.toString();
    mCanDate = date;
    mCanTime = time;
    Q_EMIT canTestDataChangedSignal(CAN_SIG_DATETIME);
}
