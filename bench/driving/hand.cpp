// SPDX-License-Identifier: MIT

#include "bench/driving/hand.h"

#include "bench/car/vehicle.h"
#include "bench/language/words.h"

#include <QStringList>

#include <algorithm>

namespace {

constexpr int kSpeedStep = 5;
constexpr int kFastest = 255;
constexpr char kClickSeconds[] = "0.2";

/// Words that are for a board before it is powered, or for the whole drive.
bool isForTheBeginning(Verb verb)
{
    return verb == Verb::OmitWatchdog || verb == Verb::RestartController ||
           verb == Verb::AllowLoss || verb == Verb::Pace;
}

} // namespace

QString Hand::read(const QString &words, Statement *statement)
{
    QString fault = parseWords(words, statement);
    if (!fault.isEmpty())
        return fault.remove(" after the time"); // there is none
    if (isForTheBeginning(statement->verb))
        return "this stands at 0 of a drive's file; the board runs already";
    if (statement->isOfVehicle() && !mHasVehicle)
        return "what the vehicle does comes from the live frames";
    if (statement->needsStandIn() && !mHasStandIn)
        return "this needs the bench's own renderer";
    // A drive whose first word to it is this one begins without a renderer.
    if (statement->verb == Verb::StartRenderer && !mIsRendererTouched)
        return "the renderer runs already";
    mIsRendererTouched |= statement->isOfRenderer();
    // The next key may come before the next frame.
    if (statement->verb == Verb::SetSpeed && statement->spanUs > 0)
        mSaid.remove("speed");
    else if (statement->verb == Verb::SetSpeed)
        mSaid["speed"] = statement->value;
    else if (statement->verb == Verb::SetLight)
        mSaid["light"] = statement->value;
    return {};
}

QString Hand::wordsOf(Key key) const
{
    switch (key) {
    case Key::Faster:
        return QStringLiteral("speed %1").arg(std::min(speed() + kSpeedStep, kFastest));
    case Key::Slower:
        return QStringLiteral("speed %1").arg(std::max(speed() - kSpeedStep, 0));
    case Key::Left:
        return turnTo("LEFT");
    case Key::Right:
        return turnTo("RIGHT");
    case Key::Park:
        return "gear P";
    case Key::Reverse:
        return "gear R";
    case Key::Neutral:
        return "gear N";
    case Key::Drive:
        return "gear D";
    case Key::Click:
        return QString("switch click ") + kClickSeconds;
    }
    return {};
}

void Hand::takeFrame(const BusFrame &frame)
{
    for (const vehicle::Reading &reading : vehicle::readings(frame))
        mTold[reading.subject] = reading.value;
}

QString Hand::status(const QString &picture, const Why &why) const
{
    const QString light = mTold.value("light", "OFF");
    QString text = QStringLiteral("%1 gear %2  speed %3%4  %5")
                       .arg(picture, -3)
                       .arg(mTold.value("gear", "?"), mTold.value("speed", "?"),
                            light == "OFF" ? QString() : "  " + light, why.because);
    if (!why.unmet.isEmpty())
        text += (why.picture == "PVM" ? "; not DA: " : "; not PVM: ") + why.unmet;
    return text;
}

QStringList Hand::help()
{
    return {"on an empty line: Up, Down speed; Left, Right turn light;",
            "P, R, N, D gear; C clicks the switch",
            "Ctrl-P, Ctrl-N what was typed; Tab completes words", "`end`, Ctrl-D or Ctrl-C end it"};
}

/// Or off, when it is that already.
QString Hand::turnTo(const QString &side) const
{
    return "light " + (mSaid.value("light") == side ? QString("OFF") : side);
}
