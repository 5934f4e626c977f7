// SPDX-License-Identifier: MIT

#include "bench/incident/leadin.h"

namespace {

// One thing after the other, each with the time that a picture takes.
constexpr int64_t kSpeedUs = 1'000'000;
constexpr int64_t kClickUs = 1'500'000;
constexpr int64_t kLightUs = 2'500'000;
constexpr int64_t kReverseUs = 3'500'000;
constexpr int64_t kLateSpeedUs = 4'200'000;
constexpr int64_t kToleranceUs = 700'000;
constexpr int kSpeedLimit = 15;

} // namespace

LeadIn leadIn(const CarState &state)
{
    LeadIn lead;
    const auto of = [&state](const char *subject, const char *otherwise) {
        const QString value = state.car.value(subject);
        return value.isEmpty() ? QString(otherwise) : value;
    };
    const QString gear = of("gear", "D");
    const QString light = of("light", "OFF");
    const QString speed = of("speed", "0");
    const bool isPvm = state.picture == "1" || (state.picture.isEmpty() && gear == "R");
    const bool isReverse = gear == "R";
    const bool isLight = light != "OFF";
    const bool isTurn = isLight && state.board["turn-switch"] == "on";
    const auto ask = [&lead](int64_t us, const char *picture, bool isChange) {
        lead.requests.push_back({us, picture, false, isChange, kToleranceUs, 0});
    };

    for (const char *subject : {"gear", "light", "key", "radar", "speed"})
        if (state.car.value(subject).isEmpty())
            lead.remarks << QStringLiteral("%1 at the start is not told").arg(subject);
    if (state.picture.isEmpty())
        lead.remarks << "the picture at the start is not told";

    for (const char *flag : {"turn-switch", "initialised"})
        if (state.board[flag] == "off")
            lead.board.push_back({0, QStringLiteral("renderer %1 off").arg(flag)});
    for (const char *line : {"acc", "deserializer-lock", "serializer-lock"})
        if (state.board[line] != CarState().board[line])
            lead.board.push_back({0, QString(line) + ' ' + state.board[line]});
    if (!state.isGearHeard) // a fresh board is there already
        return lead;

    // The first gear other than R asks for DA.
    lead.car.push_back({0, "gear " + (isReverse ? "D" : gear)});
    lead.car.push_back({0, "key " + of("key", "ON")});
    lead.car.push_back({0, "radar " + of("radar", "000000")});
    ask(0, "0", true);

    // PVM by a click, unless light or R bring it. One at a standstill is taken away by the speed
    // later, one at speed is not.
    const bool isClick = isPvm && !isReverse && (!isTurn || state.isPvmBeforeTurn);
    const bool isLate = isClick && state.isSpeedTakingPvmAway && speed.toInt() <= kSpeedLimit;
    if (speed != "0")
        lead.car.push_back({isLate ? kLateSpeedUs : kSpeedUs, "speed " + speed});
    if (isClick) {
        lead.board.push_back({kClickUs, "switch click 0.3"});
        ask(kClickUs + 375'000, "1", true);
    }
    if (isLight)
        lead.car.push_back({kLightUs, "light " + light});
    if (isTurn)
        ask(kLightUs, "1", !isClick);
    if (isReverse) {
        lead.car.push_back({kReverseUs, "gear R"});
        ask(kReverseUs, "1", !isTurn);
    }
    if (!isPvm && (isTurn || isReverse))
        lead.remarks << "DA in R or with a turn light cannot be set up: the drive begins with PVM";
    return lead;
}
