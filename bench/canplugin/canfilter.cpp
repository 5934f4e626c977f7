#include "bench/canplugin/canfilter.h"

#include <linux/can.h>

#include <algorithm>

namespace {

using Filter = QCanBusDevice::Filter;

bool addFrameType(QCanBusFrame::FrameType type, uint32_t &id, uint32_t &mask)
{
    switch (type) {
    case QCanBusFrame::InvalidFrame: // data and remote frames alike
        return true;
    case QCanBusFrame::DataFrame:
        mask |= CAN_RTR_FLAG;
        return true;
    case QCanBusFrame::RemoteRequestFrame:
        id |= CAN_RTR_FLAG;
        mask |= CAN_RTR_FLAG;
        return true;
    case QCanBusFrame::ErrorFrame:
        id |= CAN_ERR_FLAG;
        mask |= CAN_ERR_FLAG;
        return true;
    default:
        return false;
    }
}

void addFrameFormat(int format, uint32_t &id, uint32_t &mask)
{
    if (format == Filter::MatchBaseFormat) {
        mask |= CAN_EFF_FLAG;
    } else if (format == Filter::MatchExtendedFormat) {
        id |= CAN_EFF_FLAG;
        mask |= CAN_EFF_FLAG;
    }
}

} // namespace

bool CanFilter::setRawFilters(const QList<Filter> &filters, int *badType)
{
    std::vector<Pair> pairs;
    for (const Filter &filter : filters) {
        Pair pair{filter.frameId, filter.frameIdMask};
        if (!addFrameType(filter.type, pair.id, pair.mask)) {
            *badType = filter.type;
            return false;
        }
        addFrameFormat(filter.format, pair.id, pair.mask);
        pairs.push_back(pair);
    }
    if (pairs.empty())
        pairs.push_back({0, 0});
    mPairs = pairs;
    return true;
}

void CanFilter::setErrorClasses(QCanBusFrame::FrameErrors classes)
{
    mErrorClasses = static_cast<uint32_t>(classes) & CAN_ERR_MASK;
}

bool CanFilter::passes(uint32_t id) const
{
    if ((id & CAN_ERR_FLAG) != 0 && (id & mErrorClasses) != 0)
        return true;
    return std::any_of(mPairs.begin(), mPairs.end(),
                       [id](const Pair &pair) { return matches(pair, id); });
}

// As the kernel matches: a pair with the error flag in its mask subscribes to error classes and to
// nothing else, and one for standard identifiers looks at 11 bits only.
bool CanFilter::matches(const Pair &pair, uint32_t id)
{
    const bool isErrorFrame = (id & CAN_ERR_FLAG) != 0;
    const bool isErrorPair = (pair.mask & CAN_ERR_FLAG) != 0;
    if (isErrorFrame || isErrorPair)
        return isErrorFrame && isErrorPair && (id & pair.mask & CAN_ERR_MASK) != 0;
    uint32_t mask = pair.mask;
    if ((mask & CAN_EFF_FLAG) != 0 && (pair.id & CAN_EFF_FLAG) == 0)
        mask &= CAN_SFF_MASK | CAN_EFF_FLAG | CAN_RTR_FLAG;
    return (id & mask) == (pair.id & mask);
}
