// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/drive/driveclock.h"
#include "bench/judging/eventstream.h"
#include "bench/language/statement.h"

#include <QMap>
#include <QPair>
#include <QStringList>

#include <deque>
#include <functional>
#include <limits>
#include <list>
#include <vector>

/// An expectation that has come to its end.
struct Settled
{
    bool isHeld;
    int line;        ///< in the drive
    QString what;    ///< was expected
    QString text;    ///< and what came of it
    Fact::Kind kind; ///< what it looked at
    int64_t askedUs; ///< real time
    QString comment; ///< of its line in the drive
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
    Expectations(const DriveClock &clock, const std::vector<Statement> &statements, Report report);

    /// One that was not known at first.
    void foresee(const Statement &statement);

    /// The whole log is kept, since nobody knows what will be asked of it.
    void keepLog() { mLogTexts << QString(); }

    /// The moment of the statement, an expectation, has come. May settle it at once.
    void ask(const Statement &statement, int64_t nowUs);

    /// Settles what this fact decides, and what was due before it came.
    void take(const Fact &fact, int64_t nowUs);

    /// Settles what is due. Wanted at nextDueUs() at the latest.
    void advance(int64_t nowUs);

    int64_t nextDueUs() const { return mNextDueUs; } ///< INT64_MAX when nothing waits

    /// True while an expectation of this state is waiting for it.
    bool isAwaited(Fact::Kind kind, const QString &value) const;

    int asked() const { return mAsked; }   ///< by the whole drive
    int held() const { return mHeld; }     ///< so far
    int failed() const { return mFailed; } ///< so far
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

    void takeState(const Fact &fact);
    bool isLogWanted(const QString &line) const;
    bool settle(Expectation &expectation, int64_t nowUs);
    bool holds(const Expectation &expectation) const;
    static size_t find(const Expectation &expectation);
    static void account(const Expectation &expectation, bool isHolding);
    static QString whenHeld(const Expectation &expectation, int64_t nowUs);
    QString nearestLine(const Expectation &expectation) const;
    QString whyFailed(const Expectation &expectation) const;

    const DriveClock &mClock;
    const Report mReport;
    std::deque<QPair<int64_t, QString>> mLines; ///< of the log, the last ones
    QStringList mLogTexts;                      ///< of all statements about the log
    std::list<Expectation> mWaiting;
    EventStream mCommands{false};
    EventStream mLog{true};
    QMap<State, QString> mStates; ///< last values
    uint64_t mFeeds = 0;
    int64_t mNextDueUs = std::numeric_limits<int64_t>::max();
    int mAsked = 0;
    int mHeld = 0;
    int mFailed = 0;
};
