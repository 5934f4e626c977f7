#pragma once

#include <QCanBusDevice>
#include <QCanBusFrame>

#include <cstdint>
#include <vector>

/**
 * The receive filter of a raw CAN socket. Without any call everything but error frames passes, as
 * on a fresh socket.
 */
class CanFilter
{
public:
    /**
     * Translates the device's filters as Qt's SocketCAN plugin does; an empty list lets everything
     * pass. False, and no change, when a filter names a frame type that the kernel cannot filter
     * for; the type is then in @p badType.
     */
    bool setRawFilters(const QList<QCanBusDevice::Filter> &filters, int *badType);

    /// Error frames pass when they belong to one of these classes.
    void setErrorClasses(QCanBusFrame::FrameErrors classes);

    /// @p id with the flags of <linux/can.h>.
    bool passes(uint32_t id) const;

private:
    struct Pair
    {
        uint32_t id;
        uint32_t mask;
    };
    static bool matches(const Pair &pair, uint32_t id);

    std::vector<Pair> mPairs{{0, 0}};
    uint32_t mErrorClasses = 0;
};
