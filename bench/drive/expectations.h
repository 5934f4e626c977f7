// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/drive/driveclock.h"
#include "bench/drive/eventstream.h"
#include "bench/drive/words.h"

#include <QHash>
#include <QStringList>

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

    /// Of the log only lines that one of the @p statements may ask for are kept.
    Expectations(const DriveClock &clock, const std::vector<Statement> &statements, Report report);

    void ask(const Statement &statement, int64_t nowUs);
    void take(const Fact &fact, int64_t nowUs);

    /// Settles what is due. Wanted at nextDueUs() at the latest.
    void advance(int64_t nowUs);
    int64_t nextDueUs() const { return mNextDueUs; } ///< INT64_MAX when nothing waits

    /// True while an expectation of this state is waiting for it.
    bool isAwaited(Fact::Kind kind, const QString &value) const;

    int asked() const { return mAsked; } ///< by the whole drive
    int held() const { return mHeld; }
    const QStringList &failures() const { return mFailures; }
    bool isWaiting() const { return !mWaiting.empty(); }

private:
    struct Expectation
    {
        Statement statement;
        int64_t askedUs;
        int64_t dueUs;                 ///< end of `within` or `for`; the asking itself without
        EventStream *stream = nullptr; ///< of commands or log lines, null for the others
        bool isBegun = false;          ///< its turn has come
        size_t firstEvent = 0;         ///< for ExpectNone: where its watch begins
        uint64_t feeds = 0;            ///< watchdog feeds when it was asked
    };

    void takeState(const Fact &fact);
    bool isLogWanted(const QString &line) const;
    bool settle(Expectation &expectation, int64_t nowUs);
    bool holds(const Expectation &expectation) const;
    static size_t find(const Expectation &expectation);
    static void account(const Expectation &expectation, bool isHolding);
    static QString whenHeld(const Expectation &expectation, int64_t nowUs);
    QString whyFailed(const Expectation &expectation) const;

    const DriveClock &mClock;
    const Report mReport;
    QStringList mLogTexts; ///< of all statements about the log
    std::list<Expectation> mWaiting;
    EventStream mCommands{false};
    EventStream mLog{true};
    QHash<QString, QString> mStates; ///< last value by "kind subject"
    uint64_t mFeeds = 0;
    int64_t mNextDueUs = std::numeric_limits<int64_t>::max();
    int mAsked = 0;
    int mHeld = 0;
    QStringList mFailures;
};
