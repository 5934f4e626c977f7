// SPDX-License-Identifier: MIT

#include "bench/judging/expectations.h"

#include "bench/board/printable.h"

#include <algorithm>
#include <utility>

namespace {

constexpr size_t kLinesKept = 1000;

QString seconds(int64_t us)
{
    return DriveClock::seconds(us) + " s";
}

} // namespace

Expectations::Expectations(const DriveClock &clock, const std::vector<Statement> &statements,
                           Report report)
    : mClock(clock), mReport(std::move(report))
{
    for (const Statement &statement : statements)
        foresee(statement);
    mStates[{Fact::Kind::Picture, {}}] = "PVM";
}

void Expectations::foresee(const Statement &statement)
{
    if (!statement.isExpectation())
        return;
    ++mAsked;
    if (statement.kind == Fact::Kind::Log)
        mLogTexts << statement.value;
}

void Expectations::ask(const Statement &statement, int64_t nowUs)
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

void Expectations::take(const Fact &fact, int64_t nowUs)
{
    advance(nowUs - 1); // what was due before this came is settled without it
    if (fact.kind == Fact::Kind::Log) {
        mLines.push_back({nowUs, fact.subject});
        if (mLines.size() > kLinesKept)
            mLines.pop_front();
    }
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

void Expectations::takeState(const Fact &fact)
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

bool Expectations::isLogWanted(const QString &line) const
{
    return std::any_of(mLogTexts.begin(), mLogTexts.end(),
                       [&line](const QString &text) { return line.contains(text); });
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
    const QString what = statement.text.section(' ', 1);
    const QString text =
        isHolding ? what + ": ok" + whenHeld(expectation, nowUs)
                  : QStringLiteral("expected %1, but %2").arg(what, whyFailed(expectation));
    ++(isHolding ? mHeld : mFailed);
    mReport({isHolding, statement.line, what, text, statement.kind, expectation.askedUs,
             statement.comment});
    account(expectation, isHolding);
    return true;
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
        return mStates.value({statement.kind, statement.subject}) == statement.value;
    }
}

/// The first event of this expectation's, or EventStream::kNowhere.
size_t Expectations::find(const Expectation &expectation)
{
    const bool isWatch = expectation.statement.verb == Verb::ExpectNone;
    return expectation.stream->find(
        expectation.statement.value,
        isWatch ? expectation.firstEvent : expectation.stream->firstOpen(), expectation.dueUs);
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

/// The line since the asking that shares most words with the one that was expected.
QString Expectations::nearestLine(const Expectation &expectation) const
{
    const QStringList words = expectation.statement.value.split(' ', Qt::SkipEmptyParts);
    const QPair<int64_t, QString> *nearest = nullptr;
    int most = 0;
    for (const auto &line : mLines) {
        const QStringList others = line.second.split(' ', Qt::SkipEmptyParts);
        const auto shared = static_cast<int>(
            std::count_if(words.begin(), words.end(),
                          [&others](const QString &word) { return others.contains(word); }));
        if (line.first < expectation.askedUs || shared <= most)
            continue;
        most = shared;
        nearest = &line;
    }
    return nearest ? QStringLiteral("; the nearest was \"%1\" at %2")
                         .arg(printable(nearest->second),
                              DriveClock::seconds(mClock.driveUs(nearest->first)))
                   : QString();
}

QString Expectations::whyFailed(const Expectation &expectation) const
{
    const Statement &statement = expectation.statement;
    switch (statement.verb) {
    case Verb::ExpectEvent:
        return expectation.stream->whyMissing(statement.value, mClock) +
               (statement.kind == Fact::Kind::Log ? nearestLine(expectation) : QString());
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
