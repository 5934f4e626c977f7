// SPDX-License-Identifier: MIT

#include "bench/playing/player.h"

#include "bench/playing/performance.h"

#include <algorithm>

namespace {

/// Plays each frame and each statement of a file at its time. What is due at one wake-up goes out
/// at once.
class Player : public Performance
{
public:
    Player(Board &board, const Drive &drive, const Playing &how)
        : Performance(board, drive, how, Foresight::All),
          mIsLog(std::none_of(drive.statements.begin(), drive.statements.end(),
                              [](const Statement &s) { return s.isOfVehicle(); }))
    {}

private:
    QString opening() const override
    {
        return QStringLiteral("lasts %1 s and has %2 frames")
            .arg(DriveClock::seconds(mDrive.endUs, 1))
            .arg(mDrive.frames.size());
    }

    void onReady() override
    {
        if (!mClock.isStarted()) // else it is another life of the board
            startClock();
    }

    bool isStatementNext() const
    {
        if (mNextStatement == mDrive.statements.size())
            return false;
        return mNextFrame == mDrive.frames.size() ||
               mDrive.statements[mNextStatement].atUs <= mDrive.timeOf(mDrive.frames[mNextFrame]);
    }

    int64_t nextItemUs() const override
    {
        if (isStatementNext())
            return mClock.realUs(mDrive.statements[mNextStatement].atUs);
        if (mNextFrame < mDrive.frames.size())
            return mClock.realUs(mDrive.timeOf(mDrive.frames[mNextFrame]));
        return kNever;
    }

    void playDue(int64_t now) override
    {
        for (int64_t due = nextItemUs(); due <= now && !isFinished(); due = nextItemUs()) {
            mWorstLatenessUs = std::max(mWorstLatenessUs, now - due);
            if (isStatementNext())
                perform(mDrive.statements[mNextStatement++]);
            else
                send(mDrive.frames[mNextFrame++], now);
        }
    }

    bool isOver(int64_t now) const override
    {
        return nextItemUs() == kNever && now >= mClock.realUs(mDrive.endUs);
    }

    QString liveText(int64_t now) const override
    {
        return QStringLiteral("%1%2 of %3 s, bus %4 %, %5 of %6 expectations held, %7 failed")
            .arg(mTimeline.picture(), -3)
            .arg(mClock.column(now), DriveClock::seconds(mDrive.endUs, 1))
            .arg(load())
            .arg(mExpectations.held())
            .arg(mExpectations.asked())
            .arg(mExpectations.failed());
    }

    bool isLog() const override { return mIsLog; }

    const bool mIsLog;
    size_t mNextFrame = 0;
    size_t mNextStatement = 0;
};

} // namespace

Outcome playDrive(Board &board, const Drive &drive, const Playing &how, sandbox::Inside &inside)
{
    Player player(board, drive, how);
    inside.watch([&player](int signal) { player.interrupt(signal); });
    return player.run();
}
