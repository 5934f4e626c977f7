// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/fact.h"

#include <QMap>
#include <QString>

#include <limits>

/// What is told of one moment.
struct Why
{
    QString picture; ///< "PVM", "DA", "off", or "?" before anything is known
    QString because; ///< why it is shown: what asked for it, and when
    QString unmet;   ///< which wish is not fulfilled, and why; empty without one

    bool operator==(const Why &other) const
    {
        return picture == other.picture && because == other.because && unmet == other.unmet;
    }
};

/**
 * Tells why a picture is shown and why the other is not. It reads the controller's own words, the
 * commands and how they ended, the picture routed and what the vehicle sends; which picture would
 * be right it does not know. A wish is what the lever, a turn light, the speed or a request of the
 * controller ask for. One that is not fulfilled has always a cause; "the log does not tell" if none
 * is known.
 *
 * Times are microseconds of drive time, negative before it. They never run backwards.
 */
class WhyReader
{
public:
    /// What the board told. Facts that tell nothing of a picture may come too.
    void take(const Fact &fact, int64_t us);

    /// What the vehicle sent. True if it may have changed what now() tells.
    bool takeFrame(const BusFrame &frame, int64_t us);

    /// A frame was lost on its way to the controller.
    void takeLoss(int64_t us) { mLostUs = us; }

    /// What holds when all has been taken in.
    Why now(int64_t us) const;

private:
    /// What asked for a picture.
    struct Request
    {
        QString picture; ///< empty: none yet
        QString what;    ///< such as "R", or "speed rose to 16"
        int64_t us = 0;
        QString refusedBy; ///< "gear R" or "turn light left"; empty: it was not
        bool hasScript = false;
        QString shellSaid; ///< why the script could not be run

        bool isFor(const QString &other) const { return !picture.isEmpty() && picture == other; }
    };

    struct Script
    {
        Request request;
        QString picture; ///< empty: none has run yet
        int64_t us = 0;
        QString result; ///< exit status, empty while it runs
    };

    /// A gear that frames on the bus tell. Two nodes may tell different ones.
    struct Told
    {
        uint32_t id = 0; ///< who tells it
        int64_t sinceUs = 0;
        int64_t lastUs = 0;
        int longest = 0; ///< frames in a row
    };

    void takeLog(const QString &line, int64_t us);
    void takeSignal(const QString &line, int64_t us);
    void takeRequest(const QString &line, int64_t us);
    void takeRefusal(const QString &line);
    void takeCause(const QString &line, int64_t us);
    void takeCommand(const QString &command, int64_t us);
    void takePicture(const QString &picture, int64_t us);
    void takePower(const QString &value);
    bool takeGear(uint32_t id, const QString &gear, int64_t us);
    bool isTold(const QString &gear, int64_t us) const;
    void forgetController();

    bool isLightOn(const QString &light) const { return light == "LEFT" || light == "RIGHT"; }
    QString holder() const;
    QString because() const;
    QString drawnBy() const;
    QString unmet(int64_t us) const;

    // Each tells why its wish is not fulfilled; empty if it is or nothing is wished.
    QString unmetRequest(int64_t us) const;
    QString unmetClick() const;
    QString unmetDelay() const;
    QString unmetLever(int64_t us) const;
    QString unmetRear() const;
    QString unmetPark() const;
    QString unmetLight(int64_t us) const;
    QString whyNotAllowed() const;
    QString unmetSpeed(int64_t us) const;
    bool isWishOver(const Request &request) const;
    QString whyUnheard(int64_t us) const;

    QString mPicture = "off";
    int64_t mShownUs = 0;

    // The controller, in its own words.
    QString mCause; ///< of a request that follows at once
    int64_t mCauseUs = 0;
    Request mNewest;
    Request mBefore; ///< it
    Request mShownBy;
    Script mScript;
    QString mRunning; ///< the script that the controller waits for
    int64_t mRunningUs = 0;
    QString mGear;
    int64_t mGearUs = 0;
    bool mIsGearWithinDelay = false; ///< taken while the 100 ms ran
    QString mLight;
    int64_t mLightUs = 0;
    int64_t mDelayUs = -1;    ///< since when R is left and not yet acted on
    int64_t mClickUs = -1;    ///< of one that asked for nothing
    int64_t mByHandUs = -1;   ///< PVM was opened by a click in D while moving, and no rule undid it
    Request mSpeedAsked;      ///< the last one of the speed
    int64_t mAllowanceUs = 0; ///< since when the turn light may bring PVM, or may not
    int64_t mRendererEndedUs = -1; ///< since when none runs, where one did
    int64_t mSwitchedOnUs = -1;    ///< the renderer's turn switch, by itself
    int64_t mSignUs = 0;           ///< the last of the controller
    bool mIsAllowed = false;       ///< the turn light may bring PVM
    bool mIsAllowanceKnown = false;
    bool mIsRendererRunning = false;
    bool mIsFeeding = false; ///< the watchdog, once a second
    bool mIsControllerEnded = false;

    // The vehicle and the bus.
    QMap<QString, Told> mTold; ///< by gear
    QString mRun;              ///< the gear of the last frame
    int mInARow = 0;
    QString mLightSent;
    int64_t mLightSentUs = 0;
    int mSpeed = -1;            ///< nobody has told it yet
    int64_t mFastUs = -1;       ///< since when the speed is above the limit
    bool mWasRuleOff = false;   ///< when it rose above it, since PVM was opened by hand
    bool mWasAskedAway = false; ///< when it rose above it, DA was asked for already
    int64_t mDownUs = -1;       ///< since when can0 is down
    int64_t mLostUs = std::numeric_limits<int64_t>::min(); ///< when a frame was lost last
};
