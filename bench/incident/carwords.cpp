// SPDX-License-Identifier: MIT

#include "bench/incident/carwords.h"

#include "bench/car/vehicle.h"
#include "bench/incident/said.h"
#include "bench/why/groupof.h"

#include <algorithm>

namespace {

constexpr int64_t kGearUs = 30'000; ///< until the 5th frame of 10 ms
constexpr int64_t kAtOnceUs = 50'000;
constexpr int64_t kMeanwhileUs = 300'000; ///< before a start, when no controller runs
constexpr int64_t kBeforeUs = 100'000;    ///< a speed that is asked about is there by then
constexpr int64_t kBeforePvmUs = 200'000;
constexpr int kSpeedLimit = 15; ///< rising above it takes PVM away
constexpr int kStaySpeed = 16;  ///< above it PVM goes with R or the turn light

} // namespace

void CarWords::take(size_t i, int64_t pvmUs)
{
    const QString &text = mJournal.lines[i].text;
    const int64_t us = mJournal.lines[i].us;
    const Said said = saidOfCar(text);
    if (!said.subject.isEmpty() && said.subject != "speed") {
        if (said.value != mCar[said.subject])
            mPut(momentOf(said, us), said.subject + ' ' + said.value);
        mCar[said.subject] = said.value;
    }
    takeSpeed(i, pvmUs);
    // The clock's frame is told byte by byte.
    const QString clock = groupOf("DATETIME: \" *371 +\\[\\d\\]((?: [0-9A-F]{2}| )+)\"", text);
    if (!clock.isEmpty())
        mPut(us - 1000, "frame 371#" + QString(clock).remove(' ').left(16));
}

void CarWords::wake(size_t start, int64_t endUs, bool isAsleep)
{
    int64_t us = endUs;
    const QMap<QString, QString> first = firstSaid(start, endUs, &us);
    us -= 5'000; // the first frames come within them
    const bool isAtOnce = !isAsleep && us - mZeroUs < kAtOnceUs;
    if (isAtOnce)
        us = mZeroUs;
    else if (!isAsleep)
        mPut(mZeroUs, "bus asleep");
    putChanged(first, us);
    if (!isAtOnce && !first.isEmpty())
        mPut(us, "bus awake");
}

void CarWords::change(size_t start, int64_t endUs)
{
    int64_t us = endUs;
    putChanged(firstSaid(start, endUs, &us), mJournal.lines[start].us - kMeanwhileUs);
}

/// Of a life of the controller, and when it was told of the first.
QMap<QString, QString> CarWords::firstSaid(size_t start, int64_t endUs, int64_t *us) const
{
    QMap<QString, QString> first;
    for (size_t i = start + 1; i < mJournal.lines.size() && !isLifesEnd(mJournal, i, endUs); ++i) {
        const Said said = saidOfCar(mJournal.lines[i].text);
        if (said.subject.isEmpty() || said.subject == "speed" || first.contains(said.subject))
            continue;
        if (first.isEmpty())
            *us = mJournal.lines[i].us;
        first[said.subject] = said.value;
    }
    return first;
}

void CarWords::putChanged(const QMap<QString, QString> &values, int64_t us)
{
    for (auto value = values.begin(); value != values.end(); ++value) {
        if (value.value() != mCar[value.key()])
            mPut(us, value.key() + ' ' + value.value());
        mCar[value.key()] = value.value();
    }
}

/// When the car has to say it.
int64_t CarWords::momentOf(const Said &said, int64_t us) const
{
    if (said.subject == "gear")
        return slotUs(0x1004501, us - kGearUs);
    if (said.subject == "radar") // which of its two frames has changed
        return slotUs(said.value.right(3) == said.before.right(3) ? 0x3E6 : 0x3E5, us);
    return slotUs(said.subject == "light" ? 0x413 : 0x3E0, us);
}

/// The moment, of those at which a car of words sends this, that is nearest.
int64_t CarWords::slotUs(uint32_t identifier, int64_t us) const
{
    return vehicle::slotUs(identifier, us - mZeroUs) + mZeroUs;
}

/// Speed is told where it decided something.
void CarWords::takeSpeed(size_t i, int64_t pvmUs)
{
    const QString &text = mJournal.lines[i].text;
    const QString next = i + 1 < mJournal.lines.size() ? mJournal.lines[i + 1].text : QString();
    const int64_t us = mJournal.lines[i].us;
    const int before = mCar["speed"].toInt();
    const QString risen = groupOf("LIMTT_SPEED ====  curSpeed  (\\d+)", text);
    if (!risen.isEmpty()) {
        setSpeed(groupOf("lastSpeed  (\\d+)", text), us - kBeforeUs);
        setSpeed(risen, slotUs(0x681AA02, us));
        return;
    }
    // PVM stayed, for which the speed must have fallen.
    const bool isEnd = text == "==== quit RVC ====" || text == "==== quit Trun ====";
    if (isEnd && before > kStaySpeed && !next.contains("==== quit ")) {
        setSpeed("0", us - kBeforeUs);
        return;
    }
    const QString speed = groupOf("(?:NeedOutFromPVM ====|toSwitchVideo)  speed  (\\d+)", text);
    if (speed.isEmpty() || next.contains("LIMTT_SPEED"))
        return;
    // A rise above the limit takes PVM away: this one was before PVM came.
    const bool isRise = before <= kSpeedLimit && speed.toInt() > kSpeedLimit;
    setSpeed(speed, isRise && pvmUs > 0 ? pvmUs - kBeforePvmUs : us - kBeforeUs);
}

void CarWords::setSpeed(const QString &told, int64_t us)
{
    const QString speed = QString::number(std::clamp(told.toInt(), 0, 255));
    if (speed != mCar["speed"])
        mPut(us, "speed " + speed);
    mCar["speed"] = speed;
}
