#pragma once

#include "bench/board/fact.h"
#include "bench/drive/words.h"

#include <QHash>

#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <vector>

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
    using Report = std::function<void(const QString &text, bool held)>;

    /// @p speed: drive seconds per real second.
    Expectations(double speed, Report report);

    void ask(const Statement &statement, int64_t nowUs);
    void take(const Fact &fact, int64_t nowUs);

    /// Settles what is due. Wanted at nextDueUs() at the latest.
    void advance(int64_t nowUs);
    int64_t nextDueUs() const { return mNextDueUs; } ///< INT64_MAX when nothing waits

    /// True while an expectation of this state is waiting for it.
    bool isAwaited(Fact::Kind kind, const QString &value) const;

    int held() const { return mHeld; }
    int failed() const { return mFailed; }
    int waiting() const { return static_cast<int>(mWaiting.size()); }

private:
    struct Event
    {
        QString text;
        int64_t us;
    };
    struct Stream
    {
        std::vector<Event> events;
        size_t accounted = 0;    ///< events that nobody asks for any more
        bool holdsLines = false; ///< of the log: found by a part of them
    };
    struct Expectation
    {
        Statement statement;
        int64_t askedUs;
        int64_t dueUs;            ///< end of `within` or `for`; the asking itself without either
        bool isBegun = false;     ///< its turn has come
        size_t firstEvent = 0;    ///< for ExpectNone: where its watch begins
        uint64_t feeds = 0;       ///< watchdog feeds when it was asked
        Stream *stream = nullptr; ///< of commands or log lines, null for the others
    };

    void takeState(const Fact &fact);
    bool settle(Expectation &expectation, int64_t nowUs);
    bool holds(const Expectation &expectation) const;
    static size_t find(const Expectation &expectation);
    static void account(const Expectation &expectation, bool isHolding);
    QString praise(const Expectation &expectation, int64_t nowUs) const;
    QString complaint(const Expectation &expectation) const;
    static QString missing(const Expectation &expectation);

    const double mSpeed;
    const Report mReport;
    std::list<Expectation> mWaiting;
    Stream mCommands;
    Stream mLog;
    QHash<QString, QString> mStates; ///< last value by "kind subject"
    uint64_t mFeeds = 0;
    int64_t mNextDueUs = std::numeric_limits<int64_t>::max();
    int mHeld = 0;
    int mFailed = 0;
};
