// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

/**
 * A second telling of the picture decision, to play against the controller with the same events. It
 * is written from docs/picture-decision.md, not from the controller.
 */
struct DecisionModel
{
    // as decoded
    int gear = -1;
    int light = -1;
    int speed = -1;
    // as the renderer gets them
    int sentGear = 0;
    int sentLight = 0;
    int sentSpeed = 0;
    // what else is remembered
    bool shown = true; ///< PVM
    bool shownBeforeTurn = false;
    bool allowed = false;
    int untold = 0; ///< signals of its changes that are still to come, up to two
    bool speedRule = true;
    bool waiting = false; ///< 100 ms since R was left
    bool waited = false;
    QStringList asked;    ///< pictures, "picture 0" or "picture 1"; whoever reads them clears it
    bool refused = false; ///< the last event asked for DA in vain

    bool turning() const { return light == 1 || light == 2; }
    bool held() const { return gear == 2 || (allowed && turning()); }
    bool tooFast() const { return sentSpeed > 16 && speedRule; }

    void show(bool isPVM)
    {
        asked << (isPVM ? "picture 1" : "picture 0");
        shown = isPVM;
    }

    void toDA()
    {
        refused = held();
        if (!refused)
            show(false);
    }

    void turnBegins()
    {
        shownBeforeTurn = shown;
        show(true);
    }

    void onLight(int value)
    {
        const bool wasTurning = sentLight == 1 || sentLight == 2;
        sentLight = light = value;
        if (allowed && turning() && !wasTurning)
            turnBegins();
        else if (allowed && !turning() && wasTurning && (!shownBeforeTurn || tooFast()))
            toDA();
    }

    void onTold()
    {
        if (allowed && turning())
            turnBegins();
    }

    void onSpeed(int value)
    {
        const bool crossed = sentSpeed <= 15 && value > 15;
        speed = value;
        if (crossed && shown && speedRule)
            toDA();
        sentSpeed = value;
    }

    void onGear()
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

    void leaveR()
    {
        waited = false;
        if (gear == 1 || tooFast())
            toDA();
        speedRule = speedRule || gear == 4;
    }

    void onClick()
    {
        if (held())
            return;
        if (shown)
            speedRule = true;
        else if (sentGear == 4)
            speedRule = sentSpeed == 0;
        show(!shown);
    }

    /// False for an event that the decoder or the link would not report.
    bool take(const QString &what, int value)
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
};
