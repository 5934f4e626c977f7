// SPDX-License-Identifier: MIT

#pragma once

#include "bench/telling/facts.h"
#include "bench/telling/timeline.h"
#include "bench/why/whyreader.h"

/**
 * Tells why to a timeline and as facts, when it has stood for a while: what lies between two steps
 * of the controller is none. Times are real microseconds since drive time 0.
 */
class WhyTeller
{
public:
    WhyTeller(const DriveClock &clock, Timeline &timeline, Facts &facts)
        : mClock(clock), mTimeline(timeline), mFacts(facts)
    {}

    /// What the board told. Returns why the picture is shown now.
    QString take(const Fact &fact, int64_t us);

    /// What the vehicle sent, and that a frame was lost.
    void takeFrame(const BusFrame &frame, int64_t us);
    void takeLoss(int64_t us) { mReader.takeLoss(mClock.driveUs(us)); }

    /// Tells what has stood long enough. Wanted behind each take() and several times a second.
    void follow(int64_t us);

    /// Tells what holds, however short it has stood.
    void tellNow(int64_t us);

    Why now(int64_t us) const { return mReader.now(mClock.driveUs(us)); }

private:
    void tell();

    const DriveClock &mClock;
    Timeline &mTimeline;
    Facts &mFacts;
    WhyReader mReader;
    Why mWhy; ///< of now
    Why mTold;
    int64_t mSinceUs = 0;
    int64_t mPictureSinceUs = 0; ///< since when the picture is that of mWhy
};
