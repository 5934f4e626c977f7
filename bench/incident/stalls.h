// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"

#include <vector>

/// When the renderer's last heartbeat was heard, if its stop was told at @p stopUs: ten exchanges
/// before. There is one a second, and one 50 ms behind the first change of the record in a burst.
/// Changes are those that the frames tell, or without frames the given ones, in order.
int64_t lastBeatUs(const std::vector<BusFrame> &frames, std::vector<int64_t> changes,
                   int64_t stopUs);
