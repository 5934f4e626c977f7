// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/handswitch.h"

#include <QObject>

class GpioTree;

/// The board's input lines, by a drive's words for them. They belong to the vehicle: they outlive
/// the board's power.
class Inputs : public QObject
{
    Q_OBJECT

public:
    explicit Inputs(GpioTree &gpio, QObject *parent = nullptr);

    void set(const QString &line, bool level);
    void setReadable(const QString &line, bool readable); ///< its value file can be opened
    void pressSwitch(bool pressed);
    void clickSwitch(int ms);  ///< pressed for this long, real time
    void bounceSwitch(int ms); ///< the line flips and ends as it was, real time

Q_SIGNALS:
    /// What the drive did, in words: a line's word and such as "on".
    void changed(const QString &line, const QString &what);

private:
    GpioTree &mGpio;
    HandSwitch mSwitch;
};
