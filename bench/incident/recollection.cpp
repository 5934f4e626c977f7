// SPDX-License-Identifier: MIT

#include "bench/incident/recollection.h"

#include "bench/car/vehicle.h"
#include "bench/incident/carwords.h"
#include "bench/incident/said.h"
#include "bench/incident/stalls.h"
#include "bench/why/groupof.h"

#include <algorithm>
#include <cmath>

namespace {

// How long before its line something was done. A line of the board is accepted with the 7th reading
// of 10 ms.
constexpr int64_t kDebounceUs = 75'000;
constexpr int64_t kLongPressUs = 3'070'000;
constexpr int64_t kClickUs = 300'000;    ///< any press that is no long one
constexpr int64_t kFlagUs = 120'000;     ///< until the renderer has written it
constexpr int64_t kRendererUs = 600'000; ///< until it has started and is heard
constexpr int64_t kAtOnceUs = 50'000;
constexpr int64_t kBacklightUs = 410'000; ///< its 40 ticks
constexpr int64_t kLongestScriptUs = 20'000'000;
constexpr int64_t kScriptUs = 100'000;      ///< before a request, so that its script is meant
constexpr int64_t kSlowUs = 50'000;         ///< a script that takes longer is worth a word
constexpr int64_t kReadAgainUs = 100'000;   ///< a line that is not complained of for so long
constexpr int64_t kRestartUs = 1'050'000;   ///< from the end of a controller to the next
constexpr int64_t kAccHeldUs = 9'900'000;   ///< until the board reboots
constexpr int64_t kWatchdogUs = 29'000'000; ///< without a feed until it resets the board
constexpr int64_t kBackUs =
    10'000'000; ///< when a renderer is taken to be back that nothing tells of
constexpr int64_t kFastStopUs = 750'000; ///< ten exchanges while the wheel is turned
constexpr int64_t kSpeedUs = 1'000'000;  ///< a speed is not older
constexpr int64_t kToleranceUs = 500'000;
constexpr int64_t kFlagToleranceUs = 1'500'000; ///< flags are looked at once a second

QString seconds(int64_t us)
{
    return QString::number(static_cast<double>(us) / 1e6, 'f', 3);
}

class Recaller
{
public:
    Recaller(const Journal &journal, const std::vector<BusFrame> &frames, const Part &part)
        : mJournal(journal), mLines(journal.lines), mFrames(frames), mPart(part)
    {
        mResult.endUs = part.toUs;
        for (const char *subject : {"gear", "light", "key", "radar", "speed"})
            mNow.car[subject] = "";
    }

    Recollection recall()
    {
        for (size_t i = 0; i < mLines.size() && mLines[i].us <= mResult.endUs; ++i) {
            if (!mIsTelling && mLines[i].us >= mPart.fromUs)
                begin(i);
            take(i);
            if (!mLines[i].isBoot())
                mLastUs = mLines[i].us;
        }
        return mResult;
    }

private:
    // What is put to the drive, if its part has begun.

    void put(int64_t us, const QString &words, const QString &comment = {})
    {
        if (mIsTelling)
            mResult.inputs.push_back({std::max(us, mPart.zeroUs), words, comment});
    }

    void putForAll(const QString &words)
    {
        if (mIsTelling && !mResult.forAll.contains(words))
            mResult.forAll << words;
    }

    void begin(size_t first)
    {
        mIsTelling = true;
        if (mPart.isFromStart) {
            mNow.car = {{"gear", "P"},
                        {"light", "OFF"},
                        {"key", "ON"},
                        {"radar", "000000"},
                        {"speed", "0"}};
            mNow.board = {{"acc", "off"},
                          {"deserializer-lock", "on"},
                          {"serializer-lock", "on"},
                          {"turn-switch", "on"},
                          {"initialised", "on"}};
            return;
        }
        mHasLife = true;
        guessStart(first);
        mResult.start = mNow;
        if (!mNow.isGearHeard && first > 0)
            mCarWords.wake(first - 1, mResult.endUs, false);
    }

    /// What was not told before is told by what the first change changes.
    void guessStart(size_t first)
    {
        for (size_t i = first; i < mLines.size() && !isLifesEnd(mJournal, i, mResult.endUs); ++i) {
            const Said car = saidOfCar(mLines[i].text);
            if (car.subject == "gear" && car.before == "-1")
                mNow.isGearHeard = false;
            if (!car.before.isEmpty() && car.before != "-1" &&
                mNow.car.value(car.subject).isEmpty())
                mNow.car[car.subject] = car.before;
            const Said board = saidOfBoard(mLines[i].text);
            if (mNow.board.contains(board.subject) && mNow.board[board.subject].isEmpty())
                mNow.board[board.subject] = board.value == "on" ? "off" : "on";
            const QString request = requestOf(mLines[i].text);
            if (!request.isEmpty() && mNow.picture.isEmpty() && !isRefused(mJournal, i))
                mNow.picture =
                    (request == "1") == (backlightBehind(mJournal, i, 2 * kBacklightUs) > 0) ? "0"
                                                                                             : "1";
            if (!request.isEmpty() && mNow.picture.isEmpty())
                mNow.picture = "1"; // only leaving it is refused
        }
        for (const char *flag : {"turn-switch", "initialised"})
            if (mNow.board[flag].isEmpty())
                mNow.board[flag] = "on";
    }

    void take(size_t i)
    {
        const JournalLine &line = mLines[i];
        if (line.isBoot()) {
            mIsBooted = true;
        } else if (line.isEnd()) {
            mEndedUs = line.us;
        } else if (line.text.startsWith("PvmMain ")) {
            takeStart(i);
        } else if (line.isControllers) {
            takeCar(i);
            takeBoard(i);
            takeSwitch(i);
            takeRenderer(i);
            takeRequest(i);
            takeTrouble(line);
        }
    }

    // A life of the controller.

    void takeStart(size_t i)
    {
        if (mIsTelling && mHasLife) {
            const bool isRestart = mEndedUs > 0 || (!mIsBooted && whyOff(mLines[i].us).isEmpty());
            if (isRestart)
                restart(i);
            else if (!boot(i))
                return;
        }
        const bool isFirst = mIsTelling && !mHasLife;
        mHasLife = true;
        mIsBooted = false;
        mEndedUs = 0;
        mLifeUs = mLines[i].us;
        mNow.picture = "1";
        mNow.isSpeedTakingPvmAway = true;
        if (!mIsTelling) {
            mNow.board["turn-switch"] = mNow.board["initialised"] = "off";
            return;
        }
        if (isFirst || mIsBusAsleep)
            mCarWords.wake(i, mResult.endUs, mIsBusAsleep);
        else
            mCarWords.change(i, mResult.endUs);
        mIsBusAsleep = false;
        if (isFirst)
            startRenderer(i);
    }

    void restart(size_t i)
    {
        const int64_t us = mEndedUs > 0 ? mEndedUs : mLines[i].us - kRestartUs;
        putForAll("board with service");
        putForAll("board may lose frames");
        put(us, "run \"kill -KILL $(pidof pvm-controller)\"", "the controller ended");
        mResult.events.push_back({us, "expect picture PVM within 1.5"});
    }

    /// What a board that is off then has lost its power by; empty if nothing tells.
    QString whyOff(int64_t us) const
    {
        if (mNow.board["acc"] == "on" && us - mAccUs > kAccHeldUs)
            return "reboot";
        return mStoppedUs > 0 && us - mStoppedUs > kWatchdogUs - 2'000'000 ? "watchdog" : "";
    }

    /// False if the drive has to end in front of it.
    bool boot(size_t i)
    {
        const QString why = whyOff(mLines[i].us);
        if (why.isEmpty()) {
            mResult.endUs = mLastUs;
            mResult.remarks << "the board lost its power, why is not told: the drive ends there";
            return false;
        }
        const int64_t fromUs = why == "reboot" ? mAccUs + kAccHeldUs : mStoppedUs + kWatchdogUs;
        putForAll("board may lose frames");
        mResult.events.push_back(
            {fromUs - 1'000'000, QStringLiteral("expect power off by %1 within 5").arg(why)});
        if (mFrames.empty())
            put(fromUs, "bus asleep", "the board is off, which may last longer in a car");
        mIsBusAsleep = true;
        mResult.silences.emplace_back(fromUs, mLines[i].us);
        mStoppedUs = 0;
        mIsRendererDead = false;
        return true;
    }

    /// The renderer of the first life: it runs from power-on unless it is heard of later.
    void startRenderer(size_t i)
    {
        int64_t heardUs = -1;
        bool isTurnSwitchOn = false;
        for (size_t next = i + 1;
             next < mLines.size() && !isLifesEnd(mJournal, next, mResult.endUs); ++next) {
            const Said said = saidOfBoard(mLines[next].text);
            if (heardUs >= 0 && mLines[next].us - heardUs > kRendererUs)
                break;
            if (said.subject == "initialised" && said.value == "on" && heardUs < 0)
                heardUs = mLines[next].us;
            isTurnSwitchOn |= said.subject == "turn-switch" && said.value == "on";
        }
        mIsRendererDead = heardUs < 0;
        if (heardUs < 0)
            put(mResult.endUs, "renderer start", "none was heard: it is kept away until here");
        else if (heardUs - mPart.zeroUs > kAtOnceUs)
            put(heardUs - kRendererUs, "renderer start", "heard at " + drive(heardUs));
        if (heardUs >= 0 && !isTurnSwitchOn) {
            put(heardUs - kRendererUs, "renderer turn-switch off");
            mNow.board["turn-switch"] = "off";
        }
        mHeardUs = heardUs;
    }

    QString drive(int64_t us) const { return seconds(us - mPart.zeroUs); }

    // The car, where no frames tell of it.

    void takeCar(size_t i)
    {
        if (!saidOfCar(mLines[i].text).subject.isEmpty())
            mChanges.push_back(mLines[i].us);
        mCarWords.take(i, mPvmUs);
    }

    int speedAt(int64_t us) const
    {
        const auto isBehind = [](int64_t moment, const BusFrame &frame) {
            return moment < frame.stampUs;
        };
        for (auto frame = std::upper_bound(mFrames.begin(), mFrames.end(), us, isBehind);
             frame != mFrames.begin() && (frame - 1)->stampUs > us - kSpeedUs; --frame)
            for (const vehicle::Reading &reading : vehicle::readings(*(frame - 1)))
                if (reading.subject == "speed")
                    return reading.value.toInt();
        return mNow.car["speed"].toInt();
    }

    // The board.

    void takeBoard(size_t i)
    {
        const Said said = saidOfBoard(mLines[i].text);
        if (said.subject.isEmpty() || said.subject == "turn-switch" ||
            said.subject == "initialised" || said.value == mNow.board[said.subject])
            return;
        put(mLines[i].us - kDebounceUs, said.subject + ' ' + said.value);
        mNow.board[said.subject] = said.value;
        if (said.subject == "acc")
            mAccUs = mLines[i].us;
    }

    void takeSwitch(size_t i)
    {
        const QString &text = mLines[i].text;
        const int64_t us = mLines[i].us;
        if (text.contains("SWITCH HARZARD shortly clicked")) {
            put(us - kClickUs - kDebounceUs, "switch click 0.3");
            if (mNow.picture == "1")
                mNow.isSpeedTakingPvmAway = true;
            else if (mNow.car["gear"] == "D")
                mNow.isSpeedTakingPvmAway = speedAt(us) == 0;
        } else if (text.startsWith("RESET SER PWDN: LOW")) {
            put(us - kLongPressUs, "switch press");
            put(us + kClickUs, "switch release", "when it was let go is not told");
        }
    }

    // The renderer.

    void takeRenderer(size_t i)
    {
        const int64_t us = mLines[i].us;
        if (mLines[i].text.contains("=== avm stop"))
            return takeStop(i);
        const Said said = saidOfBoard(mLines[i].text);
        if (said.subject != "turn-switch" && said.subject != "initialised")
            return;
        const bool isChange = said.value != mNow.board[said.subject];
        mNow.board[said.subject] = said.value;
        if (mIsRendererDead && us != mHeardUs) {
            put(us - kRendererUs, "renderer start", "heard at " + drive(us));
            mNow.board["turn-switch"] = mNow.board["initialised"] = "on"; // as it will say
        } else if (isChange) {
            put(us - kFlagUs, "renderer " + said.subject + ' ' + said.value);
        }
        mIsRendererDead = false;
    }

    /// Ten exchanges without a heartbeat.
    void takeStop(size_t i)
    {
        const int64_t us = mLines[i].us;
        const bool isHeardLater = mHeardUs > us;
        mStoppedUs = us;
        if (isHeardLater || (mIsRendererDead && mHeardUs < 0))
            return; // it had not started yet
        if (mIsRendererDead)
            put((mStopSeenUs + us) / 2, "renderer start", "when it was back is not told");
        const int64_t beatUs = lastBeatUs(mFrames, mChanges, us);
        if (beatUs < mLifeUs && mFrames.empty()) {
            // Too soon for an exchange a second: the wheel was turned, which makes more of them.
            put(us - kFastStopUs, "renderer kill", "when is not told");
            put(us - kFastStopUs + 100'000, "angle 990 over 1", "it must have been turned");
            put(us + kFastStopUs, "angle 0 over 1");
        } else {
            put(beatUs, "renderer kill",
                mFrames.empty() ? "or later, if the wheel was turned" : "");
        }
        mIsRendererDead = true;
        mStopSeenUs = us;
        for (size_t next = i + 1;
             next < mLines.size() && !isLifesEnd(mJournal, next, mResult.endUs); ++next) {
            const QString &text = mLines[next].text;
            if (text.contains("isAVMInited") || text.contains("=== avm stop"))
                return;
            if (mLines[next].us > us + kWatchdogUs) {
                put(us + kBackUs, "renderer start", "when it was back is not told");
                mIsRendererDead = false;
                mStoppedUs = 0;
                return;
            }
        }
    }

    // What the controller asked for.

    void takeRequest(size_t i)
    {
        const QString &text = mLines[i].text;
        const int64_t us = mLines[i].us;
        if (text.contains("enter Trun") || text.contains("enter Turn update"))
            mNow.isPvmBeforeTurn = mNow.picture == "1";
        if (text.contains("enter Turn update"))
            mFlagUs = us;
        const QString request = requestOf(text);
        if (request.isEmpty())
            return;
        const bool isRequestRefused = isRefused(mJournal, i);
        const bool isChange =
            !isRequestRefused && !mNow.picture.isEmpty() && mNow.picture != request;
        if (isChange)
            takeScript(i);
        if (mIsTelling && us >= mPart.zeroUs)
            mResult.requests.push_back({us, request, isRequestRefused, isChange,
                                        us - mFlagUs < kAtOnceUs ? kFlagToleranceUs : kToleranceUs,
                                        mScriptUs});
        if (!isRequestRefused)
            mNow.picture = request;
        if (isChange && request == "1")
            mPvmUs = us;
    }

    /// How long the board's scripts take: two of them and the ticks between lie before the
    /// backlight.
    void takeScript(size_t i)
    {
        const size_t lit = backlightBehind(mJournal, i, kLongestScriptUs);
        for (size_t next = i + 1; next <= lit; ++next)
            if (!requestOf(mLines[next].text).isEmpty() ||
                isLifesEnd(mJournal, next, mResult.endUs))
                return; // the ticks were counted anew
        if (lit == 0)
            return;
        const int64_t us = (mLines[lit].us - mLines[i].us - kBacklightUs) / 2;
        const bool isSlow = us > kSlowUs;
        if (isSlow && std::abs(us - mScriptUs) > us / 5) {
            put(mLines[i].us - kScriptUs, "scripts slow " + seconds(us));
            putForAll("board may lose frames");
            mScriptUs = us;
        } else if (!isSlow && mScriptUs > 0) {
            put(mLines[i].us - kScriptUs, "scripts normal");
            mScriptUs = 0;
        }
    }

    // What does not work.

    void takeTrouble(const JournalLine &line)
    {
        static const QMap<QString, QString> inputs{{"269", "switch"},
                                                   {"116", "acc"},
                                                   {"122", "deserializer-lock"},
                                                   {"270", "serializer-lock"}};
        endTroubles(line.us - kReadAgainUs);
        const QString input = inputs.value(groupOf("Failed get GPIO-(\\d+) value", line.text));
        if (!input.isEmpty()) {
            if (!mUnreadable.contains(input))
                put(line.us - 10'000, input + " unreadable");
            mUnreadable[input] = line.us;
        }
        if (line.text.contains("open(/dev/watchdog) failed"))
            putForAll("board without watchdog");
    }

    /// Of lines that were last complained of before then.
    void endTroubles(int64_t beforeUs)
    {
        for (auto line = mUnreadable.begin(); line != mUnreadable.end();) {
            if (line.value() >= beforeUs) {
                ++line;
                continue;
            }
            put(line.value() + 5'000, line.key() + " readable");
            line = mUnreadable.erase(line);
        }
    }

    const Journal &mJournal;
    const std::vector<JournalLine> &mLines;
    const std::vector<BusFrame> &mFrames;
    const Part mPart;
    Recollection mResult;
    CarState mNow;
    CarWords mCarWords{mJournal, mPart.zeroUs, mNow.car, [this](int64_t us, const QString &words) {
                           if (mFrames.empty())
                               put(us, words);
                       }};
    bool mIsTelling = false; ///< the part has begun
    bool mHasLife = false;   ///< the drive's board has one
    bool mIsBooted = false;
    int64_t mEndedUs = 0;
    int64_t mLifeUs = 0; ///< since when
    int64_t mLastUs = 0;
    bool mIsBusAsleep = false;
    int64_t mAccUs = 0;
    int64_t mStoppedUs = 0;              ///< since when no heartbeat is heard, 0 if one is
    int64_t mStopSeenUs = 0;             ///< the last time
    int64_t mHeardUs = -1;               ///< when the first life's renderer was heard first
    int64_t mFlagUs = -kFlagToleranceUs; ///< when a flag asked for a picture
    int64_t mPvmUs = 0;                  ///< when it was last asked for
    int64_t mScriptUs = 0;               ///< what scripts take in the drive
    bool mIsRendererDead = false;
    std::vector<int64_t> mChanges;      ///< of the record, as far as the controller tells
    QMap<QString, int64_t> mUnreadable; ///< lines, and when they were last complained of
};

} // namespace

Recollection recollect(const Journal &journal, const std::vector<BusFrame> &frames,
                       const Part &part)
{
    return Recaller(journal, frames, part).recall();
}
