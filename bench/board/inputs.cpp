// SPDX-License-Identifier: MIT

#include "bench/board/inputs.h"

#include "bench/board/boardlines.h"
#include "bench/board/gpiotree.h"

namespace {

const QString kSwitchWord = QStringLiteral("switch");

} // namespace

Inputs::Inputs(GpioTree &gpio, QObject *parent) : QObject(parent), mGpio(gpio)
{
    connect(&mSwitch, &HandSwitch::lineChanged, this,
            [this](bool level) { mGpio.setLine(boardlines::kSwitch, level); });
    connect(&mSwitch, &HandSwitch::moved, this, [this](bool pressed) {
        Q_EMIT changed(kSwitchWord,
                       pressed ? QStringLiteral("pressed") : QStringLiteral("released"));
    });
}

void Inputs::set(const QString &line, bool level)
{
    mGpio.setLine(boardlines::input(line).number, level);
    Q_EMIT changed(line, level ? QStringLiteral("on") : QStringLiteral("off"));
}

void Inputs::setReadable(const QString &line, bool readable)
{
    mGpio.setExported(boardlines::input(line).number, readable);
    Q_EMIT changed(line, readable ? QStringLiteral("readable") : QStringLiteral("unreadable"));
}

void Inputs::pressSwitch(bool pressed)
{
    mSwitch.set(pressed);
}

void Inputs::clickSwitch(int ms)
{
    mSwitch.set(true);
    mSwitch.releaseAfter(ms);
}

void Inputs::bounceSwitch(int ms)
{
    Q_EMIT changed(kSwitchWord, QStringLiteral("bounces"));
    mSwitch.bounce(ms);
}
