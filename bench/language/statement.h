// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/board/fact.h"

#include <QString>

#include <cstdint>

/// What a drive asks for at a moment. The words behind each are tabled in words.cpp.
enum class Verb {
    // The vehicle; value, and spanUs for ramps.
    SetGear,
    SetLight,
    SetKey,
    SetSpeed,
    SetAngle,
    SetRadar,
    SetClock, ///< subject: date, value: time
    SetLoad,
    SetAwake,
    SendFrame, ///< frame; every spanUs until limitUs later
    // The board.
    StartRenderer,
    KillRenderer,
    HoldLink,        ///< value: "holds" or "lets-go"
    SetRendererFlag, ///< subject: flag, value: "on" or "off"
    SetHeartbeat,
    SetBus,
    PressSwitch,
    ClickSwitch,
    BounceSwitch,
    SetLine,     ///< subject: input
    SetReadable, ///< subject: input
    SlowScripts,
    SetScripts,
    RunCommand, ///< value: for the shell
    OmitWatchdog,
    RestartController,
    AllowLoss,
    // The drive itself.
    Pace, ///< from spanUs to limitUs millionths of a drive second per real one
    End,
    // Expectations.
    ExpectState, ///< the last value of a kind and subject
    ExpectEvent, ///< a command or a log line has come
    ExpectNone,  ///< no command or log line has come
    ExpectFed,   ///< the watchdog is fed
    ExpectUnfed  ///< the watchdog is not fed
};

enum class Limit { None, Within, For };

/// One `at SECONDS WORDS...` line.
struct Statement
{
    int line = 0;     ///< in the file, counted from 1
    int64_t atUs = 0; ///< drive time, microseconds
    Verb verb = Verb::End;
    Fact::Kind kind = Fact::Kind::Log; ///< what an expectation looks at
    QString subject;
    QString value;      ///< the last word, or the text without quotes and escapes
    BusFrame frame;     ///< without its time stamp
    int64_t spanUs = 0; ///< how long it takes, microseconds
    Limit limit = Limit::None;
    int64_t limitUs = 0; ///< of `within` or `for`, microseconds
    QString text;        ///< as written
    QString comment;     ///< behind the words, without its #

    bool isOfVehicle() const { return verb <= Verb::SendFrame; }
    bool isOfRenderer() const { return verb >= Verb::StartRenderer && verb <= Verb::SetHeartbeat; }
    /// The bench's own renderer, that is: another one cannot be told nor asked.
    bool needsStandIn() const
    {
        return (isOfRenderer() && verb >= Verb::HoldLink) ||
               (isExpectation() && kind == Fact::Kind::Record);
    }
    bool isExpectation() const { return verb >= Verb::ExpectState; }
};
