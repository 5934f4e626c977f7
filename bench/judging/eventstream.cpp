// SPDX-License-Identifier: MIT

#include "bench/judging/eventstream.h"

#include "bench/board/printable.h"

#include <QStringList>

QString EventStream::textOf(size_t event) const
{
    return '"' + printable(mEvents[event].text) + '"';
}

size_t EventStream::find(const QString &text, size_t first, int64_t latestUs) const
{
    for (size_t i = first; i < mEvents.size() && mEvents[i].us <= latestUs; ++i)
        if (isFound(mEvents[i], text))
            return i;
    return kNowhere;
}

void EventStream::account(size_t end, int line)
{
    for (; mOpen < end; ++mOpen)
        mEvents[mOpen].accountedBy = line;
}

QString EventStream::whyMissing(const QString &text, const DriveClock &clock) const
{
    for (size_t i = mOpen; i-- > 0;) {
        if (isFound(mEvents[i], text))
            return QStringLiteral("it came at %1, before what line %2 accounts for")
                .arg(DriveClock::seconds(clock.driveUs(mEvents[i].us)))
                .arg(mEvents[i].accountedBy);
    }
    if (mIsFoundByPart)
        return "no such line came";
    QStringList seen;
    for (size_t i = mOpen; i < mEvents.size() && seen.size() < 3; ++i)
        seen << textOf(i);
    if (seen.isEmpty())
        return "nothing came";
    const auto more = static_cast<int>(mEvents.size() - mOpen) - seen.size();
    return QStringLiteral("there was only %1%2")
        .arg(seen.join(", "), more > 0 ? QStringLiteral(" and %1 more").arg(more) : QString());
}

bool EventStream::isFound(const Event &event, const QString &text) const
{
    return text.isEmpty() || (mIsFoundByPart ? event.text.contains(text) : event.text == text);
}
