// SPDX-License-Identifier: MIT

#pragma once

#include <QMetaType>
#include <QString>

/// One thing seen on the board. Facts arrive in the order in which they happened.
struct Fact
{
    enum class Kind {
        Command,    ///< subject: the command line as it was run, words joined by single blanks;
                    ///< value: how many seconds it takes
        Exit,       ///< subject: a script in /etc, as it was run; value: its exit status
        Picture,    ///< value: "PVM" or "DA", the picture that the script just run has routed
        Gpio,       ///< subject: line number, value: "0" or "1"; written by the controller
        Watchdog,   ///< value: "opened", "fed", "disarmed" (closed after 'V'), "closed", "reset"
        Record,     ///< subject: field, value: its text; one fact for each changed field
        Log,        ///< subject: one line of the controller's output
        Controller, ///< value: "flooding", its output comes without ends of lines; or how it ended
                    ///< when it is started again
        Frames,     ///< value: "lost", for the first frame that the controller will never see
        Bus,        ///< value: "up", "down", "connected"; subject: the command behind up and down
        Renderer, ///< value: "started", "ended", "ended by itself: HOW", the flag just set, such as
                  ///< "turn-switch on"; or "says", with the subject: one line of its output
        Input, ///< subject: a line or "scripts", value: what the drive made of it; or "run", with a
               ///< line that the command has printed
        Power  ///< value: "on", "off"; subject: why, such as "watchdog" or "reboot"
    };
    Kind kind;
    QString subject;
    QString value;
};
Q_DECLARE_METATYPE(Fact)
