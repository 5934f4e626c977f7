#pragma once

#include "bench/board/handswitch.h"

#include <QObject>

class GpioTree;

/// The board's input lines. They belong to the vehicle: they outlive the board's power.
class Inputs : public QObject
{
    Q_OBJECT

public:
    enum class Line { Switch, Acc, DeserializerLock, SerializerLock };

    explicit Inputs(GpioTree &gpio, QObject *parent = nullptr);

    void set(Line line, bool level);
    void setReadable(Line line, bool readable); ///< its value file can be opened
    void clickSwitch(int ms);                   ///< pressed for this long, real time
    void bounceSwitch(int ms);                  ///< the line flips and ends as it was, real time

Q_SIGNALS:
    /// What the drive did, in words: a line's name and such as "on".
    void changed(const QString &name, const QString &what);

private:
    void report(Line line, const char *what);

    GpioTree &mGpio;
    HandSwitch mSwitch;
};
