// SPDX-License-Identifier: MIT

#include "bench/decision/decisionmodel.h"

void DecisionModel::show(bool isPVM)
{
    asked << (isPVM ? "picture 1" : "picture 0");
    shown = isPVM;
}

void DecisionModel::toDA()
{
    refused = held();
    if (!refused)
        show(false);
}

void DecisionModel::turnBegins()
{
    shownBeforeTurn = shown;
    show(true);
}

void DecisionModel::onLight(int value)
{
    const bool wasTurning = sentLight == 1 || sentLight == 2;
    sentLight = light = value;
    if (allowed && turning() && !wasTurning)
        turnBegins();
    else if (allowed && !turning() && wasTurning && (!shownBeforeTurn || tooFast()))
        toDA();
}

void DecisionModel::onTold()
{
    if (allowed && turning())
        turnBegins();
}

void DecisionModel::onSpeed(int value)
{
    const bool crossed = sentSpeed <= 15 && value > 15;
    speed = value;
    if (crossed && shown && speedRule)
        toDA();
    sentSpeed = value;
}

void DecisionModel::onGear()
{
    if (sentGear == 2 && gear != 2) {
        if (!waited && !waiting) {
            waiting = true;
            return;
        }
        if (waited)
            leaveR();
    } else if (sentGear != 2 && gear == 2) {
        show(true);
    } else if (sentGear != 1 && (gear == 1 || sentGear == 0)) {
        toDA();
    }
    sentGear = gear;
}

void DecisionModel::leaveR()
{
    waited = false;
    if (gear == 1 || tooFast())
        toDA();
    speedRule = speedRule || gear == 4;
}

void DecisionModel::onClick()
{
    if (held())
        return;
    if (shown)
        speedRule = true;
    else if (sentGear == 4)
        speedRule = sentSpeed == 0;
    show(!shown);
}

bool DecisionModel::take(const QString &what, int value)
{
    refused = false;
    if (what == "gear" && value != gear) {
        gear = value;
        onGear();
    } else if (what == "light" && value != light) {
        onLight(value);
    } else if (what == "speed" && value != speed) {
        onSpeed(value);
    } else if (what == "flag" && (value == 1) != allowed && untold < 2) {
        allowed = value == 1;
        ++untold;
    } else if (what == "told" && untold > 0) {
        --untold;
        onTold();
    } else if (what == "allow" && (value == 1) != allowed) {
        allowed = value == 1;
        onTold();
    } else if (what == "fire" && waiting) {
        waiting = false;
        waited = true;
        onGear();
    } else if (what == "board") {
        onClick();
    } else {
        return false;
    }
    return true;
}
