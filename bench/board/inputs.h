// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
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
    explicit Inputs(GpioTree &gpio);

    /// The line's level.
    void set(const QString &line, bool level);

    /// Its value file can be opened.
    void setReadable(const QString &line, bool readable);

    /// Ends a bounce and forgets a release that is due.
    void pressSwitch(bool pressed);

    /// Pressed for so many milliseconds.
    void clickSwitch(int ms);

    /// The line flips faster than anyone presses, for so many milliseconds, and ends as it was.
    void bounceSwitch(int ms);

Q_SIGNALS:
    void happened(const Fact &fact); ///< what the drive did

private:
    void report(const QString &line, const QString &what);
    void flip();
    void settle();

    GpioTree &mGpio;
    QTimer mRelease;
    QTimer mFlip;
    QTimer mBounceEnd;
    bool mIsPressed = false; ///< by the finger
    bool mIsHigh = false;    ///< the switch's line
};
