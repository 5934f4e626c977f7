// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/boardlines.h"
#include "bench/board/gpiotree.h"

#include <QTimer>

/**
 * The board's input lines, by a drive's words for them, the finger on its switch and how cleanly
 * that contact works. They belong to the vehicle: they outlive the board's power. Times are real
 * ones.
 */
class Inputs : public QObject
{
    Q_OBJECT

public:
    explicit Inputs(GpioTree &gpio) : mGpio(gpio)
    {
        for (QTimer *timer : {&mRelease, &mFlip, &mBounceEnd}) {
            timer->setTimerType(Qt::PreciseTimer);
            timer->setSingleShot(timer != &mFlip);
        }
        connect(&mRelease, &QTimer::timeout, this, [this] { pressSwitch(false); });
        connect(&mFlip, &QTimer::timeout, this, &Inputs::flip);
        connect(&mBounceEnd, &QTimer::timeout, this, &Inputs::settle);
    }

    void set(const QString &line, bool level)
    {
        mGpio.setLine(boardlines::inputOf(line), level);
        report(line, level ? "on" : "off");
    }

    /// Its value file can be opened.
    void setReadable(const QString &line, bool readable)
    {
        mGpio.setExported(boardlines::inputOf(line), readable);
        report(line, readable ? "readable" : "unreadable");
    }

    /// Ends a bounce and forgets a release that is due.
    void pressSwitch(bool pressed)
    {
        const bool isMove = pressed != mIsPressed;
        mRelease.stop();
        mBounceEnd.stop();
        mIsPressed = pressed;
        settle();
        if (isMove)
            report("switch", pressed ? "pressed" : "released");
    }

    /// Pressed for this long.
    void clickSwitch(int ms)
    {
        pressSwitch(true);
        mRelease.start(ms);
    }

    /// The line flips faster than anyone presses, ends as it was.
    void bounceSwitch(int ms)
    {
        report("switch", "bounces");
        mFlip.start(kFlipMs);
        mBounceEnd.start(ms);
    }

Q_SIGNALS:
    void happened(const Fact &fact); ///< what the drive did

private:
    // Far enough from the 10 ms of the controller's readings and from their half: readings in step
    // with the flips would see one level only, which is no bounce.
    static constexpr int kFlipMs = 4;

    void report(const QString &line, const QString &what)
    {
        Q_EMIT happened({Fact::Kind::Input, line, what});
    }

    void flip()
    {
        mIsHigh = !mIsHigh;
        mGpio.setLine(boardlines::kSwitch, mIsHigh);
    }

    void settle()
    {
        mFlip.stop();
        mIsHigh = mIsPressed;
        mGpio.setLine(boardlines::kSwitch, mIsHigh);
    }

    GpioTree &mGpio;
    QTimer mRelease;
    QTimer mFlip;
    QTimer mBounceEnd;
    bool mIsPressed = false; ///< by the finger
    bool mIsHigh = false;    ///< the switch's line
};
