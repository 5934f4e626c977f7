#include "bench/board/inputs.h"

#include "bench/board/gpiotree.h"

namespace {

struct Input
{
    int number;
    const char *name;
};
// In the order of Inputs::Line.
constexpr Input kInputs[] = {
    {269, "switch"}, {116, "acc"}, {122, "deserializer-lock"}, {270, "serializer-lock"}};

const Input &inputOf(Inputs::Line line)
{
    return kInputs[static_cast<size_t>(line)];
}

} // namespace

Inputs::Inputs(GpioTree &gpio, QObject *parent) : QObject(parent), mGpio(gpio)
{
    connect(&mSwitch, &HandSwitch::lineChanged, this,
            [this](bool level) { mGpio.setLine(inputOf(Line::Switch).number, level); });
    connect(&mSwitch, &HandSwitch::moved, this,
            [this](bool pressed) { report(Line::Switch, pressed ? "pressed" : "released"); });
}

void Inputs::set(Line line, bool level)
{
    if (line == Line::Switch) {
        mSwitch.set(level);
        return;
    }
    mGpio.setLine(inputOf(line).number, level);
    report(line, level ? "on" : "off");
}

void Inputs::setReadable(Line line, bool readable)
{
    mGpio.setExported(inputOf(line).number, readable);
    report(line, readable ? "readable" : "unreadable");
}

void Inputs::clickSwitch(int ms)
{
    mSwitch.set(true);
    mSwitch.releaseAfter(ms);
}

void Inputs::bounceSwitch(int ms)
{
    report(Line::Switch, "bounces");
    mSwitch.bounce(ms);
}

void Inputs::report(Line line, const char *what)
{
    Q_EMIT changed(QLatin1String(inputOf(line).name), QLatin1String(what));
}
