// SPDX-License-Identifier: MIT

#include "bench/telling/whyteller.h"

namespace {

constexpr int64_t kStandsUs = 60'000; ///< longer than a gear's run of frames

} // namespace

QString WhyTeller::take(const Fact &fact, int64_t us)
{
    mReader.take(fact, mClock.driveUs(us));
    return now(us).because;
}

void WhyTeller::takeFrame(const BusFrame &frame, int64_t us)
{
    if (mReader.takeFrame(frame, mClock.driveUs(us)))
        follow(us);
}

void WhyTeller::follow(int64_t us)
{
    const bool isPictureOld = us - mPictureSinceUs >= kStandsUs && mWhy.picture != mTold.picture;
    if (us - mSinceUs >= kStandsUs || isPictureOld)
        tell();
    const Why why = now(us);
    if (why == mWhy)
        return;
    if (why.picture != mWhy.picture)
        mPictureSinceUs = us;
    mWhy = why;
    mSinceUs = us;
}

void WhyTeller::tellNow(int64_t us)
{
    follow(us);
    tell();
}

void WhyTeller::tell()
{
    if (mWhy == mTold)
        return;
    mTold = mWhy;
    mFacts.addWhy(mWhy, mSinceUs);
    mTimeline.tellUnmet(mWhy, mSinceUs);
}
