// SPDX-License-Identifier: MIT

#include "bench/drive/expectations.h"

#include "bench/board/printable.h"

#include <algorithm>

namespace {

/// Of a kind that is a state: its last value counts. Empty for the others.
QString wordOf(Fact::Kind kind)
{
    switch (kind) {
    case Fact::Kind::Picture:
        return QStringLiteral("picture");
    case Fact::Kind::Gpio:
        return QStringLiteral("gpio");
    case Fact::Kind::Record:
        return QStringLiteral("record");
    case Fact::Kind::Watchdog:
        return QStringLiteral("watchdog");
    case Fact::Kind::Bus:
        return QStringLiteral("bus");
    case Fact::Kind::Frames:
        return QStringLiteral("frames");
    case Fact::Kind::Power:
        return QStringLiteral("power");
    default:
        return {};
    }
}

QString stateKey(Fact::Kind kind, const QString &subject)
{
    return (wordOf(kind) + QLatin1Char(' ') + subject).trimmed();
}

QString stateKey(const Statement &statement)
{
    return stateKey(statement.kind, statement.subject);
}

QString seconds(int64_t us)
{
    return DriveClock::seconds(us) + QStringLiteral(" s");
}

} // namespace

Expectations::Expectations(const DriveClock &clock, const std::vector<Statement> &statements,
                           Report report)
    : mClock(clock), mReport(std::move(report))
{
    for (const Statement &statement : statements) {
        mAsked += statement.isExpectation() ? 1 : 0;
        if (statement.isExpectation() && statement.kind == Fact::Kind::Log)
            mLogTexts << statement.value;
    }
    mStates[wordOf(Fact::Kind::Picture)] = QStringLiteral("PVM");
}

void Expectations::ask(const Statement &statement, int64_t nowUs)
{
    Expectation expectation;
    expectation.statement = statement;
    expectation.askedUs = nowUs;
    expectation.dueUs = nowUs;
    expectation.feeds = mFeeds;
    if (statement.verb == Verb::ExpectEvent || statement.verb == Verb::ExpectNone)
        expectation.stream = statement.kind == Fact::Kind::Log ? &mLog : &mCommands;
    if (statement.limit == Limit::Within)
        expectation.dueUs = nowUs + statement.limitUs;
    else if (statement.limit == Limit::For)
        expectation.dueUs = mClock.realUs(statement.atUs + statement.limitUs);
    mWaiting.push_back(expectation);
    advance(nowUs);
}

void Expectations::take(const Fact &fact, int64_t nowUs)
{
    advance(nowUs - 1); // what was due before this came is settled without it
    if (fact.kind == Fact::Kind::Command && nowUs >= 0)
        mCommands.add(fact.subject, nowUs);
    else if (fact.kind == Fact::Kind::Log && nowUs >= 0 && isLogWanted(fact.subject))
        mLog.add(fact.subject, nowUs);
    else if (fact.kind == Fact::Kind::Watchdog && fact.value == QLatin1String("fed"))
        ++mFeeds;
    else
        takeState(fact);
    advance(nowUs);
}

bool Expectations::isLogWanted(const QString &line) const
{
    return std::any_of(mLogTexts.begin(), mLogTexts.end(),
                       [&line](const QString &text) { return line.contains(text); });
}

void Expectations::takeState(const Fact &fact)
{
    if (fact.kind == Fact::Kind::Bus && fact.value == QLatin1String("connected"))
        return;
    if (fact.kind == Fact::Kind::Power) {
        const QString off = stateKey(Fact::Kind::Power, QStringLiteral("off"));
        const QString lost = wordOf(Fact::Kind::Frames);
        const QString why = fact.value == QLatin1String("off") ? fact.subject : mStates[off];
        mStates = {{wordOf(Fact::Kind::Picture), QStringLiteral("PVM")},
                   {off, why},
                   {lost, mStates[lost]},
                   {wordOf(Fact::Kind::Power), fact.value}};
        return;
    }
    const bool isOfMany = fact.kind == Fact::Kind::Gpio || fact.kind == Fact::Kind::Record;
    if (!wordOf(fact.kind).isEmpty())
        mStates[stateKey(fact.kind, isOfMany ? fact.subject : QString())] = fact.value;
}

void Expectations::advance(int64_t nowUs)
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

bool Expectations::isAwaited(Fact::Kind kind, const QString &value) const
{
    return std::any_of(mWaiting.begin(), mWaiting.end(), [&](const Expectation &e) {
        return e.statement.verb == Verb::ExpectState && e.statement.limit == Limit::Within &&
               e.statement.kind == kind &&
               (e.statement.value == value || e.statement.subject == value);
    });
}

bool Expectations::settle(Expectation &expectation, int64_t nowUs)
{
    const Statement &statement = expectation.statement;
    if (!expectation.isBegun && statement.verb == Verb::ExpectNone)
        expectation.firstEvent = expectation.stream->firstOpen();
    expectation.isBegun = true;
    const bool isHolding = holds(expectation);
    const bool isOver = nowUs >= expectation.dueUs;
    if (!isOver && isHolding != (statement.limit == Limit::Within))
        return false;
    const QString what = statement.text.section(QLatin1Char(' '), 1);
    if (isHolding) {
        ++mHeld;
        mReport(QStringLiteral("%1: ok%2").arg(what, whenHeld(expectation, nowUs)), true);
    } else {
        mFailures << QStringLiteral("FAILED (line %1): expected %2, but %3")
                         .arg(statement.line)
                         .arg(what, whyFailed(expectation));
        mReport(mFailures.last(), false);
    }
    account(expectation, isHolding);
    return true;
}

/// The first event of this expectation's, or EventStream::kNowhere.
size_t Expectations::find(const Expectation &expectation)
{
    const bool isWatch = expectation.statement.verb == Verb::ExpectNone;
    return expectation.stream->find(
        expectation.statement.value,
        isWatch ? expectation.firstEvent : expectation.stream->firstOpen(), expectation.dueUs);
}

bool Expectations::holds(const Expectation &expectation) const
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
        return mStates.value(stateKey(statement)) == statement.value;
    }
}

void Expectations::account(const Expectation &expectation, bool isHolding)
{
    const Statement &statement = expectation.statement;
    if (statement.verb == Verb::ExpectEvent && isHolding)
        expectation.stream->account(find(expectation) + 1, statement.line);
    // An unexpected command is told once, not by each expectation that follows.
    else if (statement.verb == Verb::ExpectNone && statement.value.isEmpty())
        expectation.stream->account(expectation.stream->end(), statement.line);
}

QString Expectations::whenHeld(const Expectation &expectation, int64_t nowUs)
{
    if (expectation.statement.verb == Verb::ExpectEvent) {
        const int64_t after = expectation.stream->timeOf(find(expectation)) - expectation.askedUs;
        return after < 0 ? QStringLiteral(", %1 before").arg(seconds(-after))
                         : QStringLiteral(", after %1").arg(seconds(after));
    }
    if (expectation.statement.limit == Limit::Within)
        return QStringLiteral(", after %1").arg(seconds(nowUs - expectation.askedUs));
    return {};
}

QString Expectations::whyFailed(const Expectation &expectation) const
{
    switch (expectation.statement.verb) {
    case Verb::ExpectEvent:
        return expectation.stream->whyMissing(expectation.statement.value, mClock);
    case Verb::ExpectNone: {
        const size_t event = find(expectation);
        return QStringLiteral("there was %1 at %2")
            .arg(expectation.stream->textOf(event),
                 DriveClock::seconds(mClock.driveUs(expectation.stream->timeOf(event))));
    }
    case Verb::ExpectFed:
        return QStringLiteral("it was not");
    case Verb::ExpectUnfed:
        return QStringLiteral("it was fed");
    default: {
        const QString value = mStates.value(stateKey(expectation.statement));
        return value.isEmpty() ? QStringLiteral("nothing has been seen of it")
                               : QStringLiteral("it is %1").arg(printable(value));
    }
    }
}
