// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>

class CANInterface;
class QByteArray;
class QCanBusFrame;

/// What CanTest::canTestDataChangedSignal() reports. The decoder emits only those in the table of
/// README.md; CAN_SIG_HARZARD_SWITCH is the switch on the board, the others are never seen.
enum CanSignalId : unsigned char {
    CAN_SIG_NETWORK = 0,
    CAN_SIG_NIGHT = 1,
    CAN_SIG_DRIVING_DIRECTION = 2,
    CAN_SIG_SPEED = 3,
    CAN_SIG_KEY_STATUS = 5,
    CAN_SIG_LIGHT_STATUS = 6,
    CAN_SIG_ANGLE = 7,
    CAN_SIG_LIGHTS = 9,
    CAN_SIG_GEAR = 10,
    CAN_SIG_HAND_BREAK = 11,
    CAN_SIG_DOOR = 12,
    CAN_SIG_RADAR = 13,
    CAN_SIG_HARZARD_SWITCH = 14,
    CAN_SIG_DATETIME = 15
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
    explicit CanTest(QObject *parent);

    CANInterface *mCanInterface; ///< lives until the process ends

    // The vehicle-signal state, in the order of the identifiers; -1 until received, unless another
    // value stands here.
    int mNetworkStatus = -1;
    int mNightMode = -1;
    int mDrivingDirection = -1;
    int mSpeed = -1;       ///< 0 to 255, the vehicle's own unit
    int mUnused4 = -1;     ///< identifier 4 has no meaning
    int mKeyStatus = -1;   ///< KeyStatus
    int mLightStatus = -1; ///< LightStatus, never hazard
    int mAngle = 0x8000;   ///< raw steering word, 16 bits; the controller clamps it in place
    int mUnused8 = -1;     ///< identifier 8 has no meaning
    int mLights = -1;
    int mGearStatus = -1;    ///< accepted Gear
    int mGearCandidate = -1; ///< Gear of the latest gear frame, kNoGear after an undefined code
    int mHandBreak = -1;
    int mDoorStatus = -1;
    quint64 mRadarStatus = 0xFFFFFFFFU; ///< six 4-bit levels in bits 0 to 23
    qint64 mCanDate = -1;               ///< YYYYMMDD as a decimal number
    qint64 mCanTime = -1;     ///< HHMM as a decimal number; the bus hour plus 8, not wrapped
    int mGearStableCount = 0; ///< frames in a row with mGearCandidate; stale while that is kNoGear

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
    void decodeDateTime(const QByteArray &payload, const QCanBusFrame &frame);
    void debounceGear(int gear, int limit);
    void storeRadarGroup(quint32 levels, quint32 groupMask);
    void store(int &member, int value, unsigned char id);
};
