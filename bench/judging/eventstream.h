// SPDX-License-Identifier: MIT

#pragma once

#include "bench/drive/driveclock.h"

#include <QString>

#include <limits>
#include <vector>

/**
 * Commands or log lines as they came, and which of them a drive has accounted for. Events are told
 * apart by their number, from 0 on. Times are real microseconds since drive time 0.
 */
class EventStream
{
public:
    static constexpr size_t kNowhere = std::numeric_limits<size_t>::max(); ///< no event

    /// @p isFoundByPart: a text that an event holds finds it; otherwise the whole text does.
    explicit EventStream(bool isFoundByPart) : mIsFoundByPart(isFoundByPart) {}

    void add(const QString &text, int64_t us) { mEvents.push_back({text, us, 0}); }

    size_t end() const { return mEvents.size(); }
    size_t firstOpen() const { return mOpen; } ///< the first event that is not accounted for
    int64_t timeOf(size_t event) const { return mEvents[event].us; }
    QString textOf(size_t event) const; ///< printable, in quotes

    /// The first event from @p first on, no later than @p latestUs, that @p text finds, or
    /// kNowhere; an empty text finds any.
    size_t find(const QString &text, size_t first, int64_t latestUs) const;

    /// The expectation of that line in the drive accounts for all before @p end.
    void account(size_t end, int line);

    /// Why an expected event is not there, in words.
    QString whyMissing(const QString &text, const DriveClock &clock) const;

private:
    struct Event
    {
        QString text;
        int64_t us;
        int accountedBy; ///< line in the drive, 0 for none
    };
    bool isFound(const Event &event, const QString &text) const;

    std::vector<Event> mEvents;
    size_t mOpen = 0;
    const bool mIsFoundByPart;
};
