// SPDX-License-Identifier: MIT

#pragma once

#include "bench/language/statement.h"

#include <memory>
#include <vector>

/**
 * A vehicle made of a drive's words, and the frames that it puts on a bus of 500 kbit/s: the nine
 * identifiers that the controller knows at their cycle times, whatever else the drive asks for, one
 * frame on the wire at a time and the lowest identifier first. The same words always give the same
 * frames.
 *
 * Before the first word it stands in P with the key on, everything off, and nobody else talks.
 */
namespace vehicle {

/// The time stamp of drive time 0; any day will do.
constexpr int64_t kStartUs = 1'700'000'000'000'000;

/// Everything that it sends, until `end` or until all that the words ask for is over.
std::vector<BusFrame> frames(const std::vector<Statement> &statements);

/// One to which words come while it drives. It sends what frames() has of the same words.
class Live
{
public:
    Live();
    ~Live();
    Q_DISABLE_COPY(Live)

    /// Not earlier than the last until().
    void take(const Statement &statement);

    /// The next frames, those that begin before this drive time.
    std::vector<BusFrame> until(int64_t us);

    /// When the next one begins, INT64_MAX while nothing is sent.
    int64_t nextUs() const;

private:
    class Car;
    std::unique_ptr<Car> mCar;
};

/// One thing that a frame tells, in a drive's words.
struct Reading
{
    QString subject; ///< such as "gear", or "radar 5"
    QString value;
};
std::vector<Reading> readings(const BusFrame &frame);

/// The moment, of those at which it sends frames of this identifier, that is nearest to @p us.
int64_t slotUs(uint32_t identifier, int64_t us);

/// How long a frame keeps the bus of 500 kbit/s.
int64_t wireUs(const BusFrame &frame);

/// Whether the controller looks at this identifier, flags of <linux/can.h> aside.
bool isKnown(uint32_t id);

} // namespace vehicle
