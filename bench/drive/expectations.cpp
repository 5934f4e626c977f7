#include "bench/drive/expectations.h"

#include <QStringList>

#include <algorithm>
#include <limits>

namespace {

constexpr size_t kNowhere = std::numeric_limits<size_t>::max();
constexpr int kEventsShown = 3;

/// The drive's word for a kind of state, or an empty text if it has none.
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
    case Fact::Kind::Power:
        return QStringLiteral("power");
    case Fact::Kind::Command:
    case Fact::Kind::Log:
    case Fact::Kind::Renderer:
    case Fact::Kind::Input:
        break;
    }
    return {};
}

/// "expect gpio 150 1" asks for the state "gpio 150", "expect picture PVM" for "picture".
QString stateKey(const Statement &statement)
{
    return statement.words.mid(1, statement.words.size() - 2).join(QLatin1Char(' '));
}

QString wantedState(const Statement &statement)
{
    return statement.words.last();
}

/// The text that an expectation of commands or log lines names, empty for any.
QString wantedText(const Statement &statement)
{
    const int named = statement.verb == Verb::ExpectNone ? 3 : 2;
    return statement.words.value(named);
}

bool isAboutLog(const Statement &statement)
{
    return statement.words.value(statement.verb == Verb::ExpectNone ? 2 : 1) ==
           QLatin1String("log");
}

QString seconds(int64_t us)
{
    return QString::number(static_cast<double>(us) / 1e6, 'f', 3) + QStringLiteral(" s");
}

} // namespace

Expectations::Expectations(double speed, Report report) : mSpeed(speed), mReport(std::move(report))
{
    mLog.holdsLines = true;
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
        expectation.stream = isAboutLog(statement) ? &mLog : &mCommands;
    if (statement.limit == Limit::Within)
        expectation.dueUs = nowUs + statement.spanUs;
    else if (statement.limit == Limit::For)
        expectation.dueUs =
            static_cast<int64_t>(static_cast<double>(statement.atUs + statement.spanUs) / mSpeed);
    mWaiting.push_back(expectation);
    advance(nowUs);
}

void Expectations::take(const Fact &fact, int64_t nowUs)
{
    advance(nowUs - 1); // what was due before this came is settled without it
    if (fact.kind == Fact::Kind::Command && nowUs >= 0)
        mCommands.events.push_back({fact.subject, nowUs});
    else if (fact.kind == Fact::Kind::Log && nowUs >= 0)
        mLog.events.push_back({fact.subject, nowUs});
    else if (fact.kind == Fact::Kind::Watchdog && fact.value == QLatin1String("fed"))
        ++mFeeds;
    else
        takeState(fact);
    advance(nowUs);
}

void Expectations::takeState(const Fact &fact)
{
    if (fact.kind == Fact::Kind::Bus && fact.value == QLatin1String("connected"))
        return;
    const QString powerOff = wordOf(Fact::Kind::Power) + QStringLiteral(" off");
    if (fact.kind == Fact::Kind::Power) {
        const QString why = fact.value == QLatin1String("off") ? fact.subject : mStates[powerOff];
        mStates.clear();
        mStates[wordOf(Fact::Kind::Picture)] = QStringLiteral("PVM");
        mStates[powerOff] = why;
    }
    const QString word = wordOf(fact.kind);
    if (fact.kind == Fact::Kind::Gpio || fact.kind == Fact::Kind::Record)
        mStates[word + QLatin1Char(' ') + fact.subject] = fact.value;
    else if (!word.isEmpty())
        mStates[word] = fact.value;
}

void Expectations::advance(int64_t nowUs)
{
    std::vector<Stream *> barred; // an event is still expected there; what follows waits for it
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
        if (e.statement.verb != Verb::ExpectState || e.statement.limit != Limit::Within)
            return false;
        const QString key = stateKey(e.statement);
        return key == wordOf(kind) ? wantedState(e.statement) == value
                                   : key == wordOf(kind) + QLatin1Char(' ') + value;
    });
}

bool Expectations::settle(Expectation &expectation, int64_t nowUs)
{
    const Statement &statement = expectation.statement;
    if (!expectation.isBegun && statement.verb == Verb::ExpectNone)
        expectation.firstEvent = expectation.stream->accounted;
    expectation.isBegun = true;
    const bool isHolding = holds(expectation);
    const bool isOver = nowUs >= expectation.dueUs;
    if (!isOver && isHolding != (statement.limit == Limit::Within))
        return false;
    const QString what = statement.text.mid(statement.text.indexOf(QLatin1Char(' '))).trimmed();
    if (isHolding)
        mReport(what + QStringLiteral(": ok") + praise(expectation, nowUs), true);
    else
        mReport(QStringLiteral("FAILED: expected %1, but %2").arg(what, complaint(expectation)),
                false);
    ++(isHolding ? mHeld : mFailed);
    account(expectation, isHolding);
    return true;
}

/// The first event of this expectation's, or kNowhere.
size_t Expectations::find(const Expectation &expectation)
{
    const Stream &stream = *expectation.stream;
    const QString text = wantedText(expectation.statement);
    const bool isWatch = expectation.statement.verb == Verb::ExpectNone;
    for (size_t i = isWatch ? expectation.firstEvent : stream.accounted; i < stream.events.size();
         ++i) {
        const Event &event = stream.events[i];
        if (event.us > expectation.dueUs)
            break;
        if (text.isEmpty() || (stream.holdsLines ? event.text.contains(text) : event.text == text))
            return i;
    }
    return kNowhere;
}

bool Expectations::holds(const Expectation &expectation) const
{
    switch (expectation.statement.verb) {
    case Verb::ExpectEvent:
        return find(expectation) != kNowhere;
    case Verb::ExpectNone:
        return find(expectation) == kNowhere;
    case Verb::ExpectFed:
        return mFeeds > expectation.feeds;
    case Verb::ExpectUnfed:
        return mFeeds == expectation.feeds;
    default:
        return mStates.value(stateKey(expectation.statement)) == wantedState(expectation.statement);
    }
}

void Expectations::account(const Expectation &expectation, bool isHolding)
{
    const Verb verb = expectation.statement.verb;
    if (verb == Verb::ExpectEvent && isHolding)
        expectation.stream->accounted = find(expectation) + 1;
    // An unexpected command is complained of once, not by each expectation that follows.
    else if (verb == Verb::ExpectNone && wantedText(expectation.statement).isEmpty())
        expectation.stream->accounted = expectation.stream->events.size();
}

QString Expectations::praise(const Expectation &expectation, int64_t nowUs) const
{
    const Statement &statement = expectation.statement;
    if (statement.verb == Verb::ExpectEvent) {
        const int64_t after =
            expectation.stream->events[find(expectation)].us - expectation.askedUs;
        return after < 0 ? QStringLiteral(", %1 before").arg(seconds(-after))
                         : QStringLiteral(", after %1").arg(seconds(after));
    }
    if (statement.limit == Limit::Within)
        return QStringLiteral(", after %1").arg(seconds(nowUs - expectation.askedUs));
    return {};
}

QString Expectations::complaint(const Expectation &expectation) const
{
    switch (expectation.statement.verb) {
    case Verb::ExpectEvent:
        return missing(expectation);
    case Verb::ExpectNone: {
        const Event &event = expectation.stream->events[find(expectation)];
        return QStringLiteral("there was \"%1\"").arg(printable(event.text));
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

QString Expectations::missing(const Expectation &expectation)
{
    const Stream &stream = *expectation.stream;
    if (stream.holdsLines)
        return QStringLiteral("no such line came");
    QStringList seen;
    for (size_t i = stream.accounted; i < stream.events.size() && seen.size() < kEventsShown; ++i)
        seen << QStringLiteral("\"%1\"").arg(printable(stream.events[i].text));
    if (seen.isEmpty())
        return QStringLiteral("nothing came");
    const auto more = static_cast<int>(stream.events.size() - stream.accounted) - seen.size();
    return QStringLiteral("there was only %1%2")
        .arg(seen.join(QStringLiteral(", ")),
             more > 0 ? QStringLiteral(" and %1 more").arg(more) : QString());
}
