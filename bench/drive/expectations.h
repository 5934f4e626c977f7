// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/printable.h"
#include "bench/drive/driveclock.h"
#include "bench/drive/words.h"

#include <QMap>
#include <QStringList>

#include <algorithm>
#include <functional>
#include <limits>
#include <list>
#include <vector>

/**
 * Commands or log lines as they came, and which of them a drive has accounted for. Times are real
 * microseconds since drive time 0.
 */
class EventStream
{
public:
    static constexpr size_t kNowhere = std::numeric_limits<size_t>::max();

    /// @p isFoundByPart: a text that an event holds finds it; otherwise the whole text does.
    explicit EventStream(bool isFoundByPart) : mIsFoundByPart(isFoundByPart) {}

    void add(const QString &text, int64_t us) { mEvents.push_back({text, us, 0}); }

    size_t end() const { return mEvents.size(); }
    size_t firstOpen() const { return mOpen; } ///< the first event that is not accounted for
    int64_t timeOf(size_t event) const { return mEvents[event].us; }
    QString textOf(size_t event) const { return '"' + printable(mEvents[event].text) + '"'; }

    /// The first event from @p first on, no later than @p latestUs, that @p text finds; an empty
    /// text finds any.
    size_t find(const QString &text, size_t first, int64_t latestUs) const
    {
        for (size_t i = first; i < mEvents.size() && mEvents[i].us <= latestUs; ++i)
            if (isFound(mEvents[i], text))
                return i;
        return kNowhere;
    }

    /// The expectation of that line in the drive accounts for all before @p end.
    void account(size_t end, int line)
    {
        for (; mOpen < end; ++mOpen)
            mEvents[mOpen].accountedBy = line;
    }

    /// Why an expected event is not there, in words.
    QString whyMissing(const QString &text, const DriveClock &clock) const
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

private:
    struct Event
    {
        QString text;
        int64_t us;
        int accountedBy; ///< line in the drive, 0 for none
    };
    bool isFound(const Event &event, const QString &text) const
    {
        return text.isEmpty() || (mIsFoundByPart ? event.text.contains(text) : event.text == text);
    }

    std::vector<Event> mEvents;
    size_t mOpen = 0;
    const bool mIsFoundByPart;
};

/// An expectation that has come to its end.
struct Settled
{
    bool isHeld;
    int line;        ///< in the drive
    QString what;    ///< was expected
    QString text;    ///< and what came of it
    int64_t askedUs; ///< real time
};

/**
 * What a drive expects, held against what happens on the board.
 *
 * Times are real microseconds since drive time 0. `within` counts from the moment of asking and in
 * real seconds, since the controller's own delays do not follow the speed of the drive; `for` ends
 * at a drive time.
 *
 * Commands and log lines are accounted for in order. An expected one accounts for everything up to
 * itself; expectations asked behind it wait until it has come or is overdue.
 */
class Expectations
{
public:
    /// Called once for each expectation, when it is settled.
    using Report = std::function<void(const Settled &settled)>;

    /// Of the log only lines that one of the @p statements may ask for are kept.
    Expectations(const DriveClock &clock, const std::vector<Statement> &statements, Report report)
        : mClock(clock), mReport(std::move(report))
    {
        for (const Statement &statement : statements) {
            mAsked += statement.isExpectation() ? 1 : 0;
            if (statement.isExpectation() && statement.kind == Fact::Kind::Log)
                mLogTexts << statement.value;
        }
        mStates[{Fact::Kind::Picture, {}}] = "PVM";
    }

    void ask(const Statement &statement, int64_t nowUs)
    {
        Expectation expectation{statement, nowUs, nowUs, mFeeds};
        if (statement.verb == Verb::ExpectEvent || statement.verb == Verb::ExpectNone)
            expectation.stream = statement.kind == Fact::Kind::Log ? &mLog : &mCommands;
        if (statement.limit == Limit::Within)
            expectation.dueUs = nowUs + statement.limitUs;
        else if (statement.limit == Limit::For)
            expectation.dueUs = mClock.realUs(statement.atUs + statement.limitUs);
        mWaiting.push_back(expectation);
        advance(nowUs);
    }

    void take(const Fact &fact, int64_t nowUs)
    {
        advance(nowUs - 1); // what was due before this came is settled without it
        if (fact.kind == Fact::Kind::Command && nowUs >= 0)
            mCommands.add(fact.subject, nowUs);
        else if (fact.kind == Fact::Kind::Log && nowUs >= 0 && isLogWanted(fact.subject))
            mLog.add(fact.subject, nowUs);
        else if (fact.kind == Fact::Kind::Watchdog && fact.value == "fed")
            ++mFeeds;
        else
            takeState(fact);
        advance(nowUs);
    }

    /// Settles what is due. Wanted at nextDueUs() at the latest.
    void advance(int64_t nowUs)
    {
        std::vector<EventStream *> barred; // an event is still expected there; what follows waits
        mNextDueUs = std::numeric_limits<int64_t>::max();
        for (auto it = mWaiting.begin(); it != mWaiting.end();) {
            const bool isBarred =
                it->stream && std::find(barred.begin(), barred.end(), it->stream) != barred.end();
            if (!isBarred && settle(*it, nowUs)) {
                it = mWaiting.erase(it);
                continue;
            }
            if (!isBarred)
                mNextDueUs = std::min(mNextDueUs, it->dueUs);
            if (it->statement.verb == Verb::ExpectEvent)
                barred.push_back(it->stream);
            ++it;
        }
    }

    int64_t nextDueUs() const { return mNextDueUs; } ///< INT64_MAX when nothing waits

    /// True while an expectation of this state is waiting for it.
    bool isAwaited(Fact::Kind kind, const QString &value) const
    {
        return std::any_of(mWaiting.begin(), mWaiting.end(), [&](const Expectation &e) {
            return e.statement.verb == Verb::ExpectState && e.statement.limit == Limit::Within &&
                   e.statement.kind == kind &&
                   (e.statement.value == value || e.statement.subject == value);
        });
    }

    int asked() const { return mAsked; } ///< by the whole drive
    int held() const { return mHeld; }
    const QStringList &failures() const { return mFailures; }
    bool isWaiting() const { return !mWaiting.empty(); }

private:
    using State = QPair<Fact::Kind, QString>; ///< and what of the kind, such as a line's number

    struct Expectation
    {
        Statement statement;
        int64_t askedUs;
        int64_t dueUs;                 ///< end of `within` or `for`; the asking itself without
        uint64_t feeds;                ///< of the watchdog when it was asked
        EventStream *stream = nullptr; ///< of commands or log lines, null for the others
        bool isBegun = false;          ///< its turn has come
        size_t firstEvent = 0;         ///< for ExpectNone: where its watch begins
    };

    static QString seconds(int64_t us) { return DriveClock::seconds(us) + " s"; }

    void takeState(const Fact &fact)
    {
        if (fact.kind == Fact::Kind::Bus && fact.value == "connected")
            return;
        if (fact.kind == Fact::Kind::Power) {
            const State off{Fact::Kind::Power, "off"};
            const State lost{Fact::Kind::Frames, {}};
            const QString why = fact.value == "off" ? fact.subject : mStates[off];
            mStates = {{{Fact::Kind::Picture, {}}, fact.value == "on" ? "PVM" : "off"},
                       {off, why},
                       {lost, mStates[lost]},
                       {{Fact::Kind::Power, {}}, fact.value}};
            return;
        }
        const bool isOfMany = fact.kind == Fact::Kind::Gpio || fact.kind == Fact::Kind::Record;
        mStates[{fact.kind, isOfMany ? fact.subject : QString()}] = fact.value;
    }

    bool isLogWanted(const QString &line) const
    {
        return std::any_of(mLogTexts.begin(), mLogTexts.end(),
                           [&line](const QString &text) { return line.contains(text); });
    }

    bool settle(Expectation &expectation, int64_t nowUs)
    {
        const Statement &statement = expectation.statement;
        if (!expectation.isBegun && statement.verb == Verb::ExpectNone)
            expectation.firstEvent = expectation.stream->firstOpen();
        expectation.isBegun = true;
        const bool isHolding = holds(expectation);
        const bool isOver = nowUs >= expectation.dueUs;
        if (!isOver && isHolding != (statement.limit == Limit::Within))
            return false;
        const QString what = statement.text.section(' ', 1);
        const QString text = isHolding ? what + ": ok" + whenHeld(expectation, nowUs)
                                       : QStringLiteral("FAILED (line %1): expected %2, but %3")
                                             .arg(statement.line)
                                             .arg(what, whyFailed(expectation));
        if (isHolding)
            ++mHeld;
        else
            mFailures << text;
        mReport({isHolding, statement.line, what, text, expectation.askedUs});
        account(expectation, isHolding);
        return true;
    }

    bool holds(const Expectation &expectation) const
    {
        const Statement &statement = expectation.statement;
        switch (statement.verb) {
        case Verb::ExpectEvent:
            return find(expectation) != EventStream::kNowhere;
        case Verb::ExpectNone:
            return find(expectation) == EventStream::kNowhere;
        case Verb::ExpectFed:
            return mFeeds > expectation.feeds;
        case Verb::ExpectUnfed:
            return mFeeds == expectation.feeds;
        default:
            return mStates.value({statement.kind, statement.subject}) == statement.value;
        }
    }

    /// The first event of this expectation's, or EventStream::kNowhere.
    static size_t find(const Expectation &expectation)
    {
        const bool isWatch = expectation.statement.verb == Verb::ExpectNone;
        return expectation.stream->find(
            expectation.statement.value,
            isWatch ? expectation.firstEvent : expectation.stream->firstOpen(), expectation.dueUs);
    }

    static void account(const Expectation &expectation, bool isHolding)
    {
        const Statement &statement = expectation.statement;
        if (statement.verb == Verb::ExpectEvent && isHolding)
            expectation.stream->account(find(expectation) + 1, statement.line);
        // An unexpected command is told once, not by each expectation that follows.
        else if (statement.verb == Verb::ExpectNone && statement.value.isEmpty())
            expectation.stream->account(expectation.stream->end(), statement.line);
    }

    static QString whenHeld(const Expectation &expectation, int64_t nowUs)
    {
        if (expectation.statement.verb == Verb::ExpectEvent) {
            const int64_t after =
                expectation.stream->timeOf(find(expectation)) - expectation.askedUs;
            return after < 0 ? QStringLiteral(", %1 before").arg(seconds(-after))
                             : QStringLiteral(", after %1").arg(seconds(after));
        }
        if (expectation.statement.limit == Limit::Within)
            return QStringLiteral(", after %1").arg(seconds(nowUs - expectation.askedUs));
        return {};
    }

    QString whyFailed(const Expectation &expectation) const
    {
        const Statement &statement = expectation.statement;
        switch (statement.verb) {
        case Verb::ExpectEvent:
            return expectation.stream->whyMissing(statement.value, mClock);
        case Verb::ExpectNone: {
            const size_t event = find(expectation);
            return QStringLiteral("there was %1 at %2")
                .arg(expectation.stream->textOf(event),
                     DriveClock::seconds(mClock.driveUs(expectation.stream->timeOf(event))));
        }
        case Verb::ExpectFed:
            return "it was not";
        case Verb::ExpectUnfed:
            return "it was fed";
        default: {
            const QString value = mStates.value({statement.kind, statement.subject});
            return value.isEmpty() ? "nothing has been seen of it"
                                   : QStringLiteral("it is %1").arg(printable(value));
        }
        }
    }

    const DriveClock &mClock;
    const Report mReport;
    QStringList mLogTexts; ///< of all statements about the log
    std::list<Expectation> mWaiting;
    EventStream mCommands{false};
    EventStream mLog{true};
    QMap<State, QString> mStates; ///< last values
    uint64_t mFeeds = 0;
    int64_t mNextDueUs = std::numeric_limits<int64_t>::max();
    int mAsked = 0;
    int mHeld = 0;
    QStringList mFailures;
};
