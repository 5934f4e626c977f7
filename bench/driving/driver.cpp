// SPDX-License-Identifier: MIT

#include "bench/driving/driver.h"

#include "bench/board/printable.h"
#include "bench/car/vehicle.h"
#include "bench/driving/console.h"
#include "bench/driving/hand.h"
#include "bench/driving/linereader.h"
#include "bench/driving/saveddrive.h"
#include "bench/language/candump.h"
#include "bench/playing/performance.h"

#include <algorithm>
#include <memory>

namespace {

constexpr int kBrokenTold = 3; // lines of a live log that cannot be read

/// Does what is said at once. Drive time 0 is when the board is ready, or the first live frame.
class Driver : public Performance
{
public:
    /// @p driven: all of it so far, from the start on.
    Driver(Board &board, Drive *driven, const Driving &driving, const Playing &how)
        : Performance(board, *driven, how, Foresight::None),
          mDriven(driven),
          mHasLiveFrames(driving.frames >= 0),
          mChannel(driving.channel),
          mHand(!mHasLiveFrames, driving.hasStandIn),
          mSaved(driving.saved),
          mConsole(driving.console)
    {
        mExpectations.keepLog();
        const auto end = [this] { mIsEnding = true; };
        if (mConsole) {
            connect(mConsole, &Console::said, this, &Driver::say);
            connect(mConsole, &Console::pressed, this,
                    [this](Key key) { say(mHand.wordsOf(key)); });
            connect(mConsole, &Console::ended, this, end);
        } else if (driving.words >= 0) {
            mWords = std::make_unique<LineReader>(
                driving.words, [this](const QString &line) { say(line); }, end);
        }
        if (mHasLiveFrames)
            mFrames = std::make_unique<LineReader>(
                driving.frames, [this](const QString &line) { takeFrameLine(line); }, end);
    }

private:
    QString opening() const override
    {
        return mConsole ? "type words; Tab completes them, `help` tells the keys"
                        : "what is said happens at once";
    }

    void onReady() override
    {
        if (mIsReady)
            return; // another life of the board
        mIsReady = true;
        if (mHasLiveFrames)
            mFrames->start();
        else
            startClock();
        if (mConsole)
            mConsole->start();
        if (mWords)
            mWords->start();
    }

    int64_t nextItemUs() const override { return mHasLiveFrames ? kNever : mVehicle.nextUs(); }

    void playDue(int64_t now) override
    {
        if (mHasLiveFrames)
            return;
        mWorstLatenessUs = std::max(mWorstLatenessUs, now - mVehicle.nextUs());
        for (const BusFrame &frame : mVehicle.until(now + 1))
            put(frame, now);
    }

    void put(const BusFrame &frame, int64_t now)
    {
        mHand.takeFrame(frame);
        mDriven->frames.push_back(frame);
        send(frame, now);
    }

    bool isOver(int64_t) const override { return mIsEnding; }

    bool isLog() const override { return mHasLiveFrames; }

    QString liveText(int64_t) const override
    {
        QString text = mHand.status(mTimeline.picture(), why());
        if (mConsole && mIsReady)
            mConsole->showStatus(text);
        return text;
    }

    void say(const QString &line)
    {
        const QString words = line.trimmed();
        if (isFinished() || mIsEnding || words.isEmpty() || words.startsWith('#'))
            return;
        if (words == "help") {
            for (const QString &text : Hand::help())
                mTimeline.note(mClock.nowUs(), "keys", text);
            return;
        }
        onDeadline(); // what is due was so before these words
        Statement statement;
        const QString fault = mClock.isStarted()
                                  ? mHand.read(words, &statement)
                                  : "drive time begins with the first frame, which has not come";
        if (fault.isEmpty())
            happen(&statement);
        else
            mTimeline.noteWhole(mClock.nowUs(), "not so", printable(fault, 1000));
    }

    void happen(Statement *statement)
    {
        // The next millisecond, as the saved drive has it: up to then all frames are sent.
        statement->atUs = (mClock.nowUs() / 1000 + 1) * 1000;
        if (statement->verb == Verb::End) {
            mIsEnding = true;
            return;
        }
        mSaved.take(*statement);
        lookAtSaved();
        statement->line = mSaved.lines();
        mDriven->statements.push_back(*statement);
        mExpectations.foresee(*statement);
        mVehicle.take(*statement);
        perform(*statement);
        onDeadline();
    }

    void takeFrameLine(const QString &text)
    {
        FrameLine line;
        const QString trimmed = text.trimmed();
        if (isFinished() || trimmed.isEmpty() || trimmed.startsWith("DROPCOUNT:"))
            return;
        const QString fault = readFrameLine(trimmed, &line);
        if (!fault.isEmpty()) {
            if (++mBroken <= kBrokenTold)
                mTimeline.note(mClock.nowUs(), "frames", "left out: " + fault);
            return;
        }
        if (mChannel.isEmpty())
            mChannel = line.channel;
        if (line.channel != mChannel) {
            if (++mElsewhere == 1)
                mTimeline.note(mClock.nowUs(), "frames",
                               QStringLiteral("those of %1 are left out, --channel takes them")
                                   .arg(line.channel));
            return;
        }
        if (!line.isPlayable) {
            ++mDriven->skipped;
            return;
        }
        if (!mClock.isStarted())
            startClock();
        const int64_t now = mClock.nowUs();
        line.frame.stampUs = vehicle::kStartUs + now;
        mSaved.takeFrame(line.frame);
        lookAtSaved();
        put(line.frame, now);
    }

    void onTold(const Fact &fact, int64_t now) override
    {
        mSaved.takeFact(fact, now);
        lookAtSaved();
    }

    void onFinish(int64_t now) override
    {
        if (mConsole)
            mConsole->stop();
        mSaved.end(now);
        if (mUnwritten.isEmpty() && !mSaved.fault().isEmpty())
            mUnwritten = "the saved drive: " + mSaved.fault();
        if (mBroken > kBrokenTold)
            mTimeline.note(now, "frames",
                           QStringLiteral("%1 more lines are left out").arg(mBroken - kBrokenTold));
    }

    void lookAtSaved()
    {
        if (!mSaved.fault().isEmpty())
            stopUnwritten("the saved drive: " + mSaved.fault());
    }

    Drive *const mDriven;
    const bool mHasLiveFrames;
    QString mChannel;
    Hand mHand;
    SavedDrive mSaved;
    vehicle::Live mVehicle;
    Console *const mConsole;
    std::unique_ptr<LineReader> mWords;
    std::unique_ptr<LineReader> mFrames;
    int mBroken = 0;    ///< lines that could not be read
    int mElsewhere = 0; ///< frames of other channels
    bool mIsReady = false;
    bool mIsEnding = false;
};

} // namespace

Outcome driveByHand(Board &board, const Driving &driving, const Playing &how,
                    sandbox::Inside &inside)
{
    Drive driven;
    driven.startUs = vehicle::kStartUs;
    Driver driver(board, &driven, driving, how);
    inside.watch([&driver](int signal) { driver.interrupt(signal); });
    return driver.run();
}
