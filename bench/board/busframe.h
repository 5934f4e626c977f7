// SPDX-License-Identifier: MIT

#pragma once

#include <cstdint>

/**
 * One frame between the bench's bus and its CAN plugin, one per datagram.
 * The identifier carries the flags of <linux/can.h>: CAN_EFF_FLAG, CAN_RTR_FLAG, CAN_ERR_FLAG.
 */
struct BusFrame
{
    int64_t stampUs = 0; ///< time stamp, microseconds
    uint32_t id = 0;
    uint8_t length = 0; ///< 0 to 8
    uint8_t data[8] = {};
};
