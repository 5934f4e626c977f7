// SPDX-License-Identifier: MIT

#include "bench/incident/stalls.h"

#include "bench/car/vehicle.h"

#include <QMap>

#include <algorithm>

namespace {

constexpr int64_t kLookUs = 30'000'000; ///< more than ten exchanges
constexpr int64_t kPeriodUs = 1'000'000;
constexpr int64_t kBurstUs = 50'000;
constexpr size_t kStalls = 10;
constexpr int64_t kBehindUs = 20'000; ///< the exchange with the last beat

std::vector<int64_t> changesIn(const std::vector<BusFrame> &frames, int64_t fromUs, int64_t toUs)
{
    const auto isBefore = [](const BusFrame &frame, int64_t us) { return frame.stampUs < us; };
    std::vector<int64_t> changes;
    QMap<QString, QString> told;
    for (auto frame = std::lower_bound(frames.begin(), frames.end(), fromUs, isBefore);
         frame != frames.end() && frame->stampUs <= toUs; ++frame)
        for (const vehicle::Reading &reading : vehicle::readings(*frame)) {
            QString &last = told[reading.subject];
            if (!last.isEmpty() && last != reading.value)
                changes.push_back(frame->stampUs);
            last = reading.value;
        }
    return changes;
}

} // namespace

int64_t lastBeatUs(const std::vector<BusFrame> &frames, std::vector<int64_t> changes,
                   int64_t stopUs)
{
    const int64_t fromUs = stopUs - kLookUs;
    if (!frames.empty())
        changes = changesIn(frames, fromUs, stopUs);
    auto change = std::lower_bound(changes.begin(), changes.end(), fromUs);
    std::vector<int64_t> exchanges;
    for (int64_t us = fromUs; us <= stopUs + kBehindUs;) {
        us = change != changes.end() && *change + kBurstUs < us + kPeriodUs ? *change + kBurstUs
                                                                            : us + kPeriodUs;
        exchanges.push_back(us);
        change = std::lower_bound(change, changes.end(), us);
    }
    exchanges.pop_back(); // behind the stop
    const int64_t shiftUs = stopUs - exchanges.back();
    return exchanges[exchanges.size() - kStalls - 1] + shiftUs + kBehindUs;
}
