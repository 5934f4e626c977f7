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

    /// An event: "gear", "light", "speed" with its code, "flag" and "told" or, both in one,
    /// "allow" of the renderer, "fire" of the timer, "board" for a click. False for an event that
    /// the decoder or the link would not report.
    bool take(const QString &what, int value);

private:
    void show(bool isPVM);
    void toDA();
    void turnBegins();
    void onLight(int value);
    void onTold();
    void onSpeed(int value);
    void onGear();
    void leaveR();
    void onClick();
};
