// SPDX-License-Identifier: MIT

#include "devicedata/devicedatashare.h"

#include <QDebug>

namespace {

bool isValidField(int startBit, int bitCount)
{
    // Each bound is tested by itself first, so the sum cannot overflow.
    const bool valid = bitCount >= 1 && bitCount <= 32 && startBit >= 0 && startBit <= 31 &&
                       startBit + bitCount <= 32;
    if (!valid)
        qDebug() << "Invalid startBit or bitCount values.";
    return valid;
}

uint32_t lowestBits(int bitCount)
{
    return bitCount == 32 ? UINT32_MAX : (1U << bitCount) - 1U;
}

} // namespace

int getDeviceDataLen()
{
    return sizeof(DeviceData);
}

bool isDeviceDataChanged(const DeviceData *a, const DeviceData *b)
{
    return a->spare0 != b->spare0 || a->spare1 != b->spare1 || a->spare2 != b->spare2 ||
           a->speed != b->speed || a->keyStatus != b->keyStatus ||
           a->lightStatus != b->lightStatus || a->angle != b->angle || a->spare16 != b->spare16 ||
           a->spare17 != b->spare17 || a->gear != b->gear || a->spare19 != b->spare19 ||
           a->spare20 != b->spare20 || a->radar != b->radar;
}

int getBits(int data, int startBit, int bitCount)
{
    if (!isValidField(startBit, bitCount))
        return -1;
    // Unsigned, so that the shift is the same on every compiler; the mask drops what the sign of
    // data would have filled in.
    return static_cast<int>((static_cast<uint32_t>(data) >> startBit) & lowestBits(bitCount));
}

int setBits(int data, int startBit, int bitCount, int value)
{
    if (!isValidField(startBit, bitCount))
        return -1;
    if (static_cast<int64_t>(value) >= (int64_t{1} << bitCount)) {
        qDebug() << "Value is too large for the specified bitCount.";
        return -1;
    }
    // A negative value passes the test above; cutting it keeps the neighbouring fields whole.
    const uint32_t mask = lowestBits(bitCount);
    const uint32_t field = (static_cast<uint32_t>(value) & mask) << startBit;
    return static_cast<int>((static_cast<uint32_t>(data) & ~(mask << startBit)) | field);
}
