// SPDX-License-Identifier: MIT

#include "bench/board/handswitch.h"

namespace {

// Far enough from the 10 ms of the controller's readings and from their half: readings in step with
// the flips would see one level only, which is no bounce.
constexpr int kFlipMs = 4;

} // namespace

HandSwitch::HandSwitch(QObject *parent) : QObject(parent)
{
    mFlip.setInterval(kFlipMs);
    for (QTimer *timer : {&mRelease, &mFlip, &mBounceEnd})
        timer->setTimerType(Qt::PreciseTimer);
    for (QTimer *timer : {&mRelease, &mBounceEnd})
        timer->setSingleShot(true);
    connect(&mRelease, &QTimer::timeout, this, [this] { set(false); });
    connect(&mFlip, &QTimer::timeout, this, &HandSwitch::flip);
    connect(&mBounceEnd, &QTimer::timeout, this, &HandSwitch::settle);
}

void HandSwitch::set(bool pressed)
{
    const bool isMove = pressed != mIsPressed;
    mRelease.stop();
    mBounceEnd.stop();
    mIsPressed = pressed;
    settle();
    if (isMove)
        Q_EMIT moved(pressed);
}

void HandSwitch::releaseAfter(int ms)
{
    mRelease.start(ms);
}

void HandSwitch::bounce(int ms)
{
    mFlip.start();
    mBounceEnd.start(ms);
}

void HandSwitch::settle()
{
    mFlip.stop();
    mIsFlipped = false;
    Q_EMIT lineChanged(mIsPressed);
}

void HandSwitch::flip()
{
    mIsFlipped = !mIsFlipped;
    Q_EMIT lineChanged(mIsPressed != mIsFlipped);
}
