// SPDX-License-Identifier: MIT

#include "bench/telling/whyteller.h"

namespace {

constexpr int64_t kStandsUs = 60'000; ///< longer than a gear's run of frames
constexpr int64_t kFirstUs = 10'000;  ///< what the controller says of a picture has come by then

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
    const bool isPictureNew = mWhy.picture != mTold.picture;
    const bool isPictureOld = isPictureNew && us - mPictureSinceUs >= kStandsUs;
    if (us - mSinceUs >= (isPictureNew ? kFirstUs : kStandsUs) || isPictureOld)
        tell();
    const Why why = now(us);
    if (why == mWhy)
        return;
    if (why.picture != mWhy.picture) {
        if (mWhy.picture != mTold.picture)
            tell(); // a picture is told however short it was
        mPictureSinceUs = us;
    }
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
    // The first why of a picture holds since that is shown: what the controller says of it comes a
    // little later.
    const int64_t sinceUs = mWhy.picture == mTold.picture ? mSinceUs : mPictureSinceUs;
    mTold = mWhy;
    mFacts.addWhy(mWhy, sinceUs);
    mTimeline.tellUnmet(mWhy, sinceUs);
}
