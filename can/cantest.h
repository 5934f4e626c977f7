// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>

class CANInterface;
class QByteArray;
class QCanBusFrame;

/// What CanTest::canTestDataChangedSignal() reports. The decoder emits those with a comment;
/// CAN_SIG_HARZARD_SWITCH is the switch on the board, the others are never seen.
enum CanSignalId : unsigned char {
    CAN_SIG_NETWORK = 0,
    CAN_SIG_NIGHT = 1,
    CAN_SIG_DRIVING_DIRECTION = 2,
    CAN_SIG_SPEED = 3,        ///< 0x681AA02
    CAN_SIG_KEY_STATUS = 5,   ///< 0x3E0
    CAN_SIG_LIGHT_STATUS = 6, ///< 0x413
    CAN_SIG_ANGLE = 7,        ///< 0x4812501
    CAN_SIG_LIGHTS = 9,
    CAN_SIG_GEAR = 10, ///< 0x1004501 and 0x1004001
    CAN_SIG_HAND_BREAK = 11,
    CAN_SIG_DOOR = 12,
    CAN_SIG_RADAR = 13, ///< 0x3E5 and 0x3E6
    CAN_SIG_HARZARD_SWITCH = 14,
    CAN_SIG_DATETIME = 15 ///< 0x371
};

/**
 * Decodes the frames of the vehicle bus into the members below.
 *
 * The constructor opens can0 at 500000 bit/s, listen-only. Each change of a value is announced by
 * one canTestDataChangedSignal() after the member has been updated. A payload byte that a frame
 * does not carry reads as 0. When the bus cannot be opened, nothing is ever decoded.
 */
class CanTest : public QObject
{
    Q_OBJECT

public:
    explicit CanTest(QObject *parent = nullptr);

    CANInterface *mCanInterface; ///< lives until the process ends

    // The vehicle-signal state, in the order of the identifiers; -1 until received, unless another
    // value stands here.
    int mNetworkStatus = -1;
    int mNightMode = -1;
    int mDrivingDirection = -1;
    int mSpeed = -1;       ///< 0 to 255, the vehicle's own unit
    int mUnused4 = -1;     ///< identifier 4 has no meaning
    int mKeyStatus = -1;   ///< DeviceData::KeyStatus
    int mLightStatus = -1; ///< DeviceData::LightStatus, never hazard
    int mAngle = 0x8000;   ///< raw steering word, 16 bits; the controller clamps it in place
    int mUnused8 = -1;     ///< identifier 8 has no meaning
    int mLights = -1;
    int mGearStatus = -1;    ///< accepted DeviceData::Gear
    int mGearCandidate = -1; ///< that of the latest gear frame, kNoGear after an undefined code
    int mHandBreak = -1;
    int mDoorStatus = -1;
    quint64 mRadarStatus = 0xFFFFFFFFU; ///< six 4-bit levels in bits 0 to 23
    qint64 mCanDate = -1;               ///< YYYYMMDD as a decimal number
    qint64 mCanTime = -1; ///< HHMM as a decimal number; the bus hour plus 8, not wrapped
    /// Frames in a row with mGearCandidate since the last one that was enough to take it; stale
    /// while the candidate is kNoGear.
    int mGearStableCount = 0;

Q_SIGNALS:
    void canTestDataChangedSignal(unsigned char id);

public Q_SLOTS:
    /// Decodes every frame that is pending.
    void onProcesscan0receivedframes();

private:
    void decodeFrame(const QCanBusFrame &frame);
    void decodeLightStatus(const QByteArray &payload);
    void decodeKeyStatus(const QByteArray &payload);
    void decodeSpeed(const QByteArray &payload);
    void decodeAngle(const QByteArray &payload);
    void decodeGear1004501(const QByteArray &payload);
    void decodeGear1004001(const QByteArray &payload);
    void decodeRadar3E5(const QByteArray &payload);
    void decodeRadar3E6(const QByteArray &payload);
    void decodeDateTime(const QCanBusFrame &frame);
    void debounceGear(int gear, int limit);
    void storeRadarGroup(quint32 levels, quint32 groupMask);
    void store(int &member, int value, unsigned char id);
};
