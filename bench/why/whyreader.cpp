// SPDX-License-Identifier: MIT

#include "bench/why/whyreader.h"

#include "bench/board/places.h"
#include "bench/car/vehicle.h"
#include "bench/why/groupof.h"
#include "bench/why/words.h"

#include <algorithm>
#include <linux/can.h>

namespace {

constexpr int64_t kSameEventUs = 50'000; ///< a request follows its cause at once
constexpr int64_t kToldUs = 90'000;      ///< a gear comes each 10 or 20 ms

QString gearName(const QString &number)
{
    static const QMap<QString, QString> names{{"1", "P"}, {"2", "R"}, {"3", "N"}, {"4", "D"}};
    return names.value(number);
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
                mWasAskedAway = mNewest.isFor("DA");
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
