// SPDX-License-Identifier: MIT

#include "bench/board/inputs.h"

#include "bench/board/boardlines.h"

namespace {

// Far enough from the 10 ms of the controller's readings and from their half: readings in step
// with the flips would see one level only, which is no bounce.
constexpr int kFlipMs = 4;

} // namespace

Inputs::Inputs(GpioTree &gpio) : mGpio(gpio)
{
    for (QTimer *timer : {&mRelease, &mFlip, &mBounceEnd}) {
        timer->setTimerType(Qt::PreciseTimer);
        timer->setSingleShot(timer != &mFlip);
    }
    connect(&mRelease, &QTimer::timeout, this, [this] { pressSwitch(false); });
    connect(&mFlip, &QTimer::timeout, this, &Inputs::flip);
    connect(&mBounceEnd, &QTimer::timeout, this, &Inputs::settle);
}

void Inputs::set(const QString &line, bool level)
{
    mGpio.setLine(boardlines::inputOf(line), level);
    report(line, level ? "on" : "off");
}

void Inputs::setReadable(const QString &line, bool readable)
{
    mGpio.setExported(boardlines::inputOf(line), readable);
    report(line, readable ? "readable" : "unreadable");
}

void Inputs::pressSwitch(bool pressed)
{
    const bool isMove = pressed != mIsPressed;
    mRelease.stop();
    mBounceEnd.stop();
    mIsPressed = pressed;
    settle();
    if (isMove)
        report("switch", pressed ? "pressed" : "released");
}

void Inputs::clickSwitch(int ms)
{
    pressSwitch(true);
    mRelease.start(ms);
}

void Inputs::bounceSwitch(int ms)
{
    report("switch", "bounces");
    mFlip.start(kFlipMs);
    mBounceEnd.start(ms);
}

void Inputs::report(const QString &line, const QString &what)
{
    Q_EMIT happened({Fact::Kind::Input, line, what});
}

void Inputs::flip()
{
    mIsHigh = !mIsHigh;
    mGpio.setLine(boardlines::kSwitch, mIsHigh);
}

void Inputs::settle()
{
    mFlip.stop();
    mIsHigh = mIsPressed;
    mGpio.setLine(boardlines::kSwitch, mIsHigh);
}
