// SPDX-License-Identifier: MIT
//
// Which wish is not fulfilled, and why.

#include "bench/board/places.h"
#include "bench/why/whyreader.h"
#include "bench/why/words.h"

#include <QStringList>

#include <algorithm>

namespace {

constexpr int64_t kUnheardUs = 100'000; ///< so long may a frame be under way
constexpr int64_t kScriptUs = 500'000;  ///< so long may a script take to begin
constexpr int64_t kLossUs = 500'000;    ///< a loss counts for so long
constexpr int kManyFrames = 20;         ///< in a row; more than any gear takes
constexpr int64_t kQuietUs = 1'500'000; ///< the controller feeds the watchdog each second

} // namespace

QString WhyReader::unmet(int64_t us) const
{
    QStringList all;
    for (const QString &text : {unmetRequest(us), unmetClick(), unmetDelay(), unmetLever(us),
                                unmetRear(), unmetPark(), unmetLight(us), unmetSpeed(us)})
        if (!text.isEmpty())
            all << text;
    // What was sent just now may be under way.
    if (all.size() > 1)
        all.removeAll(kUnknown);
    if (all == QStringList{kUnknown} &&
        us - std::max({mLightSentUs, mFastUs, mGearUs}) < kUnheardUs)
        return "just sent";
    return all.join("; ");
}

QString WhyReader::unmetRequest(int64_t us) const
{
    if (mNewest.picture.isEmpty() || mNewest.picture == mPicture || isWishOver(mNewest))
        return {};
    const QString wish = mNewest.what + " at " + at(mNewest.us) + ": ";
    if (!mNewest.refusedBy.isEmpty())
        return wish + mNewest.picture + " refused by " + mNewest.refusedBy +
               (mNewest.refusedBy == holder() ? "" : ", asked only once");
    if (!mNewest.shellSaid.isEmpty())
        return wish + QString(places::kPictureScript).section('/', -1) + ": " + mNewest.shellSaid;
    if (!mNewest.hasScript)
        return wish + (us - mNewest.us < kScriptUs
                           ? QString("no script has begun yet")
                           : "no script, " + mNewest.picture + " was taken as routed");
    if (mScript.result.isEmpty())
        return wish + "script not ended yet";
    return mScript.result == "0" ? wish + kUnknown
                                 : wish + "script failed, status " + mScript.result;
}

/// A refused request whose reason is gone is not wished any more.
bool WhyReader::isWishOver(const Request &request) const
{
    if (request.refusedBy.isEmpty())
        return false;
    if (request.what.startsWith("speed"))
        return mSpeed >= 0 && mSpeed <= kSpeedLimit;
    if (request.what == "P" || request.what == "P out of R")
        return mGear != "P";
    if (request.what.startsWith("turn light off"))
        return isLightOn(mLight);
    return mGear == "R" && request.what.startsWith("R left");
}

QString WhyReader::unmetClick() const
{
    if (mClickUs < 0 || holder().isEmpty())
        return {};
    return "click at " + at(mClickUs) + ": held by " + holder();
}

QString WhyReader::unmetDelay() const
{
    if (mDelayUs < 0 || mPicture != "PVM")
        return {};
    return "R left at " + at(mDelayUs) + ": the 100 ms are not over";
}

/// What the lever says and the controller has not taken.
QString WhyReader::unmetLever(int64_t us) const
{
    QString gear;
    QStringList others;
    int64_t newestUs = 0; // what was not told again since then is the lever's past
    for (auto told = mTold.cbegin(); told != mTold.cend(); ++told)
        newestUs = std::max(newestUs, told->sinceUs);
    for (auto told = mTold.cbegin(); told != mTold.cend(); ++told) {
        if (!isTold(told.key(), us) || told->lastUs < newestUs || told->longest == 0)
            continue; // the last: not since a gear was taken
        const bool isWish = (told.key() == "R" && mGear != "R" && mPicture == "DA") ||
                            (told.key() == "P" && mGear != "P" && mPicture == "PVM") ||
                            told.key() == "undefined" || mGear == "R";
        if (told.key() == mGear || !isWish)
            others << QStringLiteral("0x%1 says %2").arg(told->id, 0, 16).arg(told.key());
        else if (gear != "R")
            gear = told.key();
    }
    if (gear.isEmpty())
        return {};
    const Told &told = mTold[gear];
    const QString wish = gear + " since " + at(told.sinceUs) + ": ";
    const int taken = told.id == kGearId ? 5 : 11;
    if (!whyUnheard(us).isEmpty())
        return wish + whyUnheard(us);
    if (gear == "undefined")
        return wish + "this code is no gear's";
    if (told.longest >
        kManyFrames) // a controller that is stopped: a count that goes on says nothing
        return wish + QStringLiteral("more than %1 frames in a row, not taken").arg(kManyFrames);
    return wish +
           QStringLiteral("at most %1 frame%2 in a row")
               .arg(told.longest)
               .arg(told.longest == 1 ? "" : "s") +
           (told.longest < taken ? QStringLiteral(" of the %1 that it takes").arg(taken) : "") +
           (others.isEmpty() ? "" : ", " + others.join(", "));
}

/// The controller is in R and has not asked for the rear view.
QString WhyReader::unmetRear() const
{
    if (mGear != "R" || mPicture == "PVM" || mNewest.isFor("PVM"))
        return {};
    return "R since " + at(mGearUs) +
           (mNewest.picture.isEmpty() || mNewest.us > mGearUs
                ? QStringLiteral(": ") + kUnknown
                : ": again within the 100 ms after R, nobody asks anew");
}

/// It has taken P and has not asked for DA.
QString WhyReader::unmetPark() const
{
    if (mGear != "P" || mDelayUs >= 0 || mPicture != "PVM" || !mShownBy.isFor("PVM") ||
        mShownBy.us > mGearUs || mNewest.us > mGearUs || isLightOn(mLight))
        return {};
    return "P since " + at(mGearUs) + ": " +
           (mIsGearWithinDelay ? "within the 100 ms after R, nobody asks" : kUnknown);
}

QString WhyReader::unmetLight(int64_t us) const
{
    // Without a frame the controller's word counts.
    const QString light = mLightSent.isEmpty() ? mLight : mLightSent;
    const int64_t sinceUs = mLightSent.isEmpty() ? mLightUs : mLightSentUs;
    if (!isLightOn(light) && isLightOn(mLight) && mPicture == "PVM" && !isTold("R", us))
        return whyUnheard(us).isEmpty()
                   ? kUnknown
                   : "turn light off since " + at(sinceUs) + ": " + whyUnheard(us);
    if (!isLightOn(light) || mPicture == "PVM" || mNewest.isFor("PVM"))
        return {};
    const QString wish = lightText(light) + " since " + at(sinceUs) + ": ";
    if (mLight != light)
        return whyUnheard(us).isEmpty() ? kUnknown : wish + whyUnheard(us);
    if (!mIsAllowed)
        return wish + whyNotAllowed();
    return wish + (mNewest.us > sinceUs ? "asked only once" : kUnknown);
}

QString WhyReader::whyNotAllowed() const
{
    if (!mIsRendererRunning)
        return mIsAllowanceKnown ? "no renderer runs, and its turn switch was off"
                                 : "no renderer runs";
    if (mSwitchedOnUs > mAllowanceUs)
        return "the renderer's turn switch is on since " + at(mSwitchedOnUs) +
               ", which the controller has not seen yet";
    return mIsAllowanceKnown ? "the renderer's turn switch is off since " + at(mAllowanceUs)
                             : "not allowed yet";
}

QString WhyReader::unmetSpeed(int64_t us) const
{
    if (mFastUs < 0 || mPicture != "PVM" || mNewest.isFor("DA"))
        return {};
    const QString wish =
        QStringLiteral("speed above %1 since %2: ").arg(kSpeedLimit).arg(at(mFastUs));
    if (mSpeedAsked.isFor("DA") && mSpeedAsked.us >= mFastUs)
        return wish + (mSpeedAsked.refusedBy.isEmpty()
                           ? "asked once, before this PVM"
                           : "asked once, refused by " + mSpeedAsked.refusedBy);
    if (mShownUs > mFastUs)
        return wish + "only its rise asks, and that was before PVM";
    if (!whyUnheard(us).isEmpty())
        return wish + whyUnheard(us);
    if (mByHandUs >= 0)
        return wish + "speed rule off since PVM was opened by hand at " + at(mByHandUs);
    if (mWasRuleOff)
        return wish + "only its rise asks, and the rule was off then";
    return mWasAskedAway ? wish + "only its rise asks, and DA was taken as routed then" : kUnknown;
}

/// Why the controller may not have heard what was sent; empty if it ought to have.
QString WhyReader::whyUnheard(int64_t us) const
{
    if (mIsControllerEnded)
        return "no controller runs";
    if (mDownUs >= 0)
        return "can0 is down since " + at(mDownUs);
    if (!mRunning.isEmpty())
        return "the controller waits for " + mRunning + " since " + at(mRunningUs);
    if (mIsFeeding && us - mSignUs > kQuietUs)
        return "no sign of the controller since " + at(mSignUs);
    return us - kLossUs < mLostUs ? QStringLiteral("frames are lost, not read in time") : QString();
}
