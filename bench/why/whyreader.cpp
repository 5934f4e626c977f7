// SPDX-License-Identifier: MIT

#include "bench/why/whyreader.h"

#include "bench/board/places.h"
#include "bench/car/vehicle.h"
#include "bench/why/groupof.h"

#include <QStringList>

#include <algorithm>
#include <linux/can.h>

namespace {

constexpr int kSpeedLimit = 15;          ///< rising above it asks for DA
constexpr int64_t kSameEventUs = 50'000; ///< a request follows its cause at once
constexpr int64_t kUnheardUs = 100'000;  ///< so long may a frame be under way
constexpr int64_t kScriptUs = 500'000;   ///< so long may a script take to begin
constexpr int64_t kLossUs = 500'000;     ///< a loss counts for so long
constexpr int64_t kToldUs = 90'000;      ///< a gear comes each 10 or 20 ms
constexpr int kManyFrames = 20;          ///< in a row; more than any gear takes
constexpr int64_t kQuietUs = 1'500'000;  ///< the controller feeds the watchdog each second
constexpr uint32_t kGearId = 0x1004501;  ///< 5 frames in a row, of the other identifier 11
constexpr char kUnknown[] = "the log does not tell";

QString at(int64_t us)
{
    return us < 0 ? QStringLiteral("start")
                  : QString::number(static_cast<double>(us) / 1e6, 'f', 3);
}

QString gearName(const QString &number)
{
    static const QMap<QString, QString> names{{"1", "P"}, {"2", "R"}, {"3", "N"}, {"4", "D"}};
    return names.value(number);
}

QString lightText(const QString &light)
{
    return "turn light " + light.toLower();
}

} // namespace

void WhyReader::take(const Fact &fact, int64_t us)
{
    switch (fact.kind) {
    case Fact::Kind::Log:
        return takeLog(fact.subject, us);
    case Fact::Kind::Command:
        return takeCommand(fact.subject, us);
    case Fact::Kind::Exit:
        mRunning.clear();
        if (fact.subject.startsWith(places::kPictureScript))
            mScript.result = fact.value;
        return;
    case Fact::Kind::Picture:
        return takePicture(fact.value, us);
    case Fact::Kind::Power:
        return takePower(fact.value);
    case Fact::Kind::Bus:
        if (fact.value != "connected")
            mDownUs = fact.value == "down" ? us : -1;
        return;
    case Fact::Kind::Renderer:
        if (fact.value.startsWith("started") || fact.value.startsWith("ended")) {
            mIsRendererRunning = fact.value == "started";
            mRendererEndedUs = mIsRendererRunning ? -1 : us;
        } else if (fact.value.endsWith(" on") || fact.value.endsWith(" off"))
            mIsRendererRunning = true; // who sets a flag runs
        if (fact.value.startsWith("turn-switch"))
            mSwitchedOnUs = fact.value.endsWith("on") ? us : -1;
        return;
    case Fact::Kind::Watchdog:
        mIsFeeding = fact.value == "fed";
        mSignUs = us;
        return;
    case Fact::Kind::Controller:
        if (fact.value.startsWith("ended"))
            forgetController();
        return;
    default:
        return;
    }
}

void WhyReader::takeLog(const QString &line, int64_t us)
{
    mIsControllerEnded = false;
    mSignUs = us;
    if (line.startsWith("=== avm stop"))
        mIsFeeding = false;
    takeSignal(line, us);
    if (line.startsWith("sh: ") && line.contains(places::kPictureScript))
        mNewest.shellSaid = line.section(": ", -1);
    if (line.contains("toSwitchVideo"))
        takeRequest(line, us);
    else
        takeCause(line, us);
}

void WhyReader::takeSignal(const QString &line, int64_t us)
{
    const QString gear = gearName(groupOf("CAN SIG GEAR .*change to: (\\d+)", line));
    const QString light = groupOf("CAN SIG LIGHT_STATUS .*change to: \"\\[(\\w+)\\]\"", line);
    const QString isAllowed = groupOf("isTurnSwitchEnable  (true|false)", line);
    if (!gear.isEmpty() && gear != mGear) {
        mGear = gear;
        mGearUs = us;
        mIsGearWithinDelay = mDelayUs >= 0;
        mClickUs = -1;
        for (Told &told : mTold) // what comes from now on is another wish
            told.longest = 0;
    } else if (!light.isEmpty()) {
        mLight = light;
        mLightUs = us;
        mClickUs = -1;
    } else if (!isAllowed.isEmpty()) {
        mIsAllowed = isAllowed == "true";
        mIsAllowanceKnown = true;
        mAllowanceUs = us;
    } else if (line.contains("start delayQuitRvcTimer")) {
        mDelayUs = us;
    } else if (line.contains("==== quit RVC") && mGear == "D") {
        mByHandUs = -1;
    } else if (line.contains("on_delayQuitRvcTimerOut")) {
        mDelayUs = -1;
    }
}

void WhyReader::takeCause(const QString &line, int64_t us)
{
    struct Cause
    {
        const char *pattern; ///< with what is told in a group
        QString text;
    };
    const Cause causes[] = {
        {"==== (enter RVC) ====", "R"},
        {"==== (quit R Enter P) ====", "P out of R"},
        {"quit R NeedOutFromPVM ====  speed  (\\d+)", "R left at speed %1"},
        {"==== (Enter P) ====", "P"},
        {"==== (init to DA) ====", "first gear, " + mGear},
        {"==== (enter Trun) ====", lightText(mLight)},
        {"==== (enter Turn update) ====", lightText(mLight) + ", now allowed"},
        {"quit (Trun mShowPVMBeforeSwitchTurnLight)", "turn light off"},
        {"quit Trun NeedOutFromPVM ====  speed  (\\d+)", "turn light off at speed %1"},
        {"(SWITCH HARZARD shortly clicked)", "click"},
        {"(avmInitOkSlot)", "renderer initialised"},
    };
    for (const Cause &cause : causes) {
        const QString value = groupOf(cause.pattern, line);
        if (value.isEmpty())
            continue;
        mCause = cause.text.contains("%1") ? cause.text.arg(value) : cause.text;
        mCauseUs = us;
        if (mCause == "click")
            mClickUs = us;
        return;
    }
    // The one cause that is told behind its request.
    const QString speed = groupOf("greater than LIMTT_SPEED ====  curSpeed  (\\d+)", line);
    if (speed.isEmpty())
        return;
    for (Request *request : {&mNewest, &mScript.request, &mShownBy})
        if (request->us == mSpeedAsked.us && request->what == mSpeedAsked.what)
            request->what = "speed rose to " + speed;
    if (mNewest.us == mSpeedAsked.us)
        mSpeedAsked = mNewest;
}

void WhyReader::takeRequest(const QString &line, int64_t us)
{
    const QString picture = groupOf("isToPVM  (\\d+)", line);
    if (picture.isEmpty())
        return takeRefusal(line);
    const bool isCaused = !mCause.isEmpty() && us - mCauseUs < kSameEventUs;
    const QString rise = mSpeed > kSpeedLimit ? QStringLiteral("speed rose to %1").arg(mSpeed)
                                              : QStringLiteral("speed above %1").arg(kSpeedLimit);
    mBefore = mNewest;
    mNewest = {picture == "0" ? "DA" : "PVM", isCaused ? mCause : rise, us, {}, false, {}};
    if (!isCaused)
        mSpeedAsked = mNewest;
    if (mNewest.what == "click" && mNewest.picture == "DA")
        mByHandUs = -1;
    else if (mNewest.what == "click" && mGear == "D")
        mByHandUs = mSpeed > 0 ? us : -1;
    mClickUs = -1;
    mCause.clear();
}

void WhyReader::takeRefusal(const QString &line)
{
    if (line.contains("isCanOutFromPVM  false"))
        mNewest.refusedBy = holder();
    else if (line.contains("Wait for AVM inited"))
        mNewest.refusedBy = "renderer not initialised";
    if (mSpeedAsked.us == mNewest.us)
        mSpeedAsked.refusedBy = mNewest.refusedBy;
    // What is refused for the picture that is shown anyway leaves the request before it standing.
    if (mNewest.picture == mPicture)
        mNewest = mBefore;
}

/// What keeps PVM on, as the controller has heard of it.
QString WhyReader::holder() const
{
    if (mGear != "R")
        return isLightOn(mLight) ? lightText(mLight) : QString();
    return isLightOn(mLight) && mIsAllowed ? "gear R and " + lightText(mLight) : "gear R";
}

void WhyReader::takeCommand(const QString &command, int64_t us)
{
    const QString script = places::kPictureScript;
    if (command.startsWith("/etc/")) {
        mRunning = command.section('/', -1);
        mRunningUs = us;
    }
    if (command != script + " 0" && command != script + " 1")
        return;
    mScript = {{}, command.endsWith('1') ? "PVM" : "DA", us, {}};
    if (mIsControllerEnded)
        mScript.request = {mScript.picture, "put back by the service", us, {}, true, {}};
    else if (mNewest.isFor(mScript.picture) && mNewest.refusedBy.isEmpty())
        mScript.request = mNewest;
    mNewest.hasScript |= mNewest.isFor(mScript.picture);
}

void WhyReader::takePicture(const QString &picture, int64_t us)
{
    if (picture != mPicture)
        mShownUs = us;
    if (picture != mPicture || mScript.request.isFor(picture))
        mShownBy = mScript.request;
    mPicture = picture;
}

void WhyReader::takePower(const QString &value)
{
    forgetController();
    mRunning.clear();
    mPicture = value == "on" ? "PVM" : "off"; // as the board wakes up
    mShownBy = {};
    mScript = {};
    mIsRendererRunning = mIsFeeding = false;
    mRendererEndedUs = -1;
    mIsControllerEnded = false;
}

/// Another one begins with nothing.
void WhyReader::forgetController()
{
    mCause.clear();
    mRunning.clear();
    mNewest = mSpeedAsked = {};
    mGear.clear();
    mLight.clear();
    mIsAllowed = mIsAllowanceKnown = mIsGearWithinDelay = false;
    mDelayUs = mClickUs = mByHandUs = -1;
    mIsControllerEnded = true;
}

bool WhyReader::takeFrame(const BusFrame &frame, int64_t us)
{
    bool isNews = false;
    for (const vehicle::Reading &reading : vehicle::readings(frame)) {
        if (reading.subject == "gear") {
            isNews |= takeGear(frame.id & CAN_EFF_MASK, reading.value, us);
        } else if (reading.subject == "light" && reading.value != mLightSent) {
            mLightSent = reading.value;
            mLightSentUs = us;
            isNews = true;
        } else if (reading.subject == "speed" && reading.value.toInt() != mSpeed) {
            mSpeed = reading.value.toInt();
            if (mSpeed <= kSpeedLimit)
                mFastUs = -1;
            else if (mFastUs < 0) {
                mFastUs = us;
                mWasRuleOff = mByHandUs >= 0;
            }
            isNews = true;
        }
    }
    return isNews;
}

bool WhyReader::takeGear(uint32_t id, const QString &gear, int64_t us)
{
    const bool wasTold = isTold(gear, us);
    mInARow = gear == mRun ? mInARow + 1 : 1;
    mRun = gear;
    Told &told = mTold[gear];
    if (!wasTold)
        told = {id, us, us, 0};
    if (id == kGearId)
        told.id = id; // whose frames are enough, where both tell it
    told.lastUs = us;
    told.longest = std::max(told.longest, mInARow);
    return !wasTold || gear != mGear;
}

/// Whether somebody on the bus says so now.
bool WhyReader::isTold(const QString &gear, int64_t us) const
{
    const auto told = mTold.constFind(gear);
    return told != mTold.constEnd() && us - told->lastUs < kToldUs;
}

Why WhyReader::now(int64_t us) const
{
    if (mPicture == "off")
        return {mPicture, "the board has no power", {}};
    if (mPicture == "?")
        return {mPicture, kUnknown, {}};
    return {mPicture, because() + drawnBy(), unmet(us)};
}

QString WhyReader::because() const
{
    const bool isNewestUseful = mNewest.isFor(mPicture) && mNewest.refusedBy.isEmpty() &&
                                (mNewest.what == "R" || mNewest.what.startsWith("turn light l") ||
                                 mNewest.what.startsWith("turn light r"));
    const auto isStillWanted = [this](const Request &request) {
        return request.what == "R" ? mGear == "R"
               : request.what.startsWith("turn light") && request.picture == "PVM"
                   ? isLightOn(mLight)
                   : true;
    };
    const Request &request = isNewestUseful && isStillWanted(mNewest) ? mNewest : mShownBy;
    if (!request.isFor(mPicture))
        return mScript.picture.isEmpty() ? "nobody asked: as at start" : kUnknown;
    if (request.what == "R" && isStillWanted(request))
        return "R since " + at(request.us);
    const QString text = request.what + " at " + at(request.us);
    return isStillWanted(request) ? text : text + ", kept since";
}

/// PVM is routed all the same when nobody is there to draw it.
QString WhyReader::drawnBy() const
{
    return mPicture == "PVM" && mRendererEndedUs >= 0
               ? "; no renderer runs since " + at(mRendererEndedUs)
               : QString();
}

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
    return mWasRuleOff ? wish + "only its rise asks, and the rule was off then" : kUnknown;
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
