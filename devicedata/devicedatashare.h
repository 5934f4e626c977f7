// SPDX-License-Identifier: MIT

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

/**
 * The vehicle data that the renderer draws with.
 *
 * The record lies byte for byte at the start of the shared segment, so its layout is a wire
 * format: natural alignment, the processor's byte order, 28 bytes. docs/renderer-link.md has the
 * picture of it. The spare bytes are never set by the controller and stay 0xFF.
 */
struct DeviceData
{
    // What the decoder makes of the codes on the bus. They stand here, since a renderer may well
    // have an enumeration Gear of its own.
    enum Gear { kNoGear = 0, kGearP = 1, kGearR = 2, kGearN = 3, kGearD = 4 };
    enum LightStatus { kLightOff = 0, kLightLeft = 1, kLightRight = 2, kLightHazard = 3 };
    enum KeyStatus { kKeyOff = 0, kKeyStatus1 = 1, kIgnitionOn = 2 };

    uint8_t spare0;
    uint8_t spare1;
    uint8_t spare2;
    int32_t speed;    ///< the vehicle's own unit, 0 to 255; see docs/picture-decision.md
    char keyStatus;   ///< KeyStatus
    char lightStatus; ///< LightStatus; no frame gives hazard today
    int32_t angle;    ///< steering wheel, -2838 to 2838; positive where the bus counts up from 0
    uint8_t spare16;
    uint8_t spare17;
    char gear; ///< Gear; kNoGear until the first one
    uint8_t spare19;
    uint8_t spare20;
    int32_t radar; ///< six 4-bit levels, sensor 0 in bits 0 to 3
};

static_assert(std::is_trivially_copyable<DeviceData>::value, "the record is copied as bytes");
static_assert(sizeof(DeviceData) == 28, "the renderer expects 28 bytes");
static_assert(offsetof(DeviceData, speed) == 4, "wire format");
static_assert(offsetof(DeviceData, keyStatus) == 8, "wire format");
static_assert(offsetof(DeviceData, lightStatus) == 9, "wire format");
static_assert(offsetof(DeviceData, angle) == 12, "wire format");
static_assert(offsetof(DeviceData, spare16) == 16, "wire format");
static_assert(offsetof(DeviceData, gear) == 18, "wire format");
static_assert(offsetof(DeviceData, spare20) == 20, "wire format");
static_assert(offsetof(DeviceData, radar) == 24, "wire format");

/// Length of the record in bytes, always 28.
int getDeviceDataLen();

/// True if any field differs, spare bytes included. Padding is not looked at.
bool isDeviceDataChanged(const DeviceData *a, const DeviceData *b);

/**
 * The field of @p bitCount bits of @p data that starts at bit @p startBit (0 is the least
 * significant), without sign extension. -1 with a log line when the field does not lie within
 * bits 0 to 31 or is empty. Nothing calls it today.
 */
int getBits(int data, int startBit, int bitCount);

/**
 * @p data with that field replaced by @p value; @p data itself is not changed. -1 with a log line
 * when the field is not valid or @p value needs more bits. A negative value is cut to the width of
 * the field.
 */
int setBits(int data, int startBit, int bitCount, int value);
