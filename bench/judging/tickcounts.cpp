// SPDX-License-Identifier: MIT

#include "bench/judging/tickcounts.h"

namespace {

constexpr int64_t kTickUs = 10'000;

// Facts are told by how their texts begin.
struct Rule
{
    const char *arming; ///< must have come before, null without
    const char *start;
    const char *end;
    int ticks; ///< at least
    const char *text;
};
constexpr Rule kRules[] = {
    {nullptr, "switch released", "log ==== SWITCH HARZARD shortly clicked", 6, "7 readings"},
    {nullptr, "acc ", "log GPIO ACC: ", 6, "7 readings"},
    {nullptr, "deserializer-lock ", "log DESER LOCK Status", 6, "7 readings"},
    {nullptr, "serializer-lock ", "log SER LOCK Status", 6, "7 readings"},
    {nullptr, "switch pressed", "gpio 260 = 0", 305, "7 readings and 299 ticks"},
    {nullptr, "gpio 229 = 0", "gpio 229 = 1", 19, "19 ticks"},
    {nullptr, "gpio 260 = 0", "gpio 260 = 1", 29, "29 ticks"},
    {nullptr, "gpio 260 = 1", "log SER RESET AND LOCK HIGH. ", 299, "299 ticks"},
    {nullptr, "log SER RESET AND LOCK HIGH. ", "command /etc/set_t840gmsl_0.sh", 19, "19 ticks"},
    // Without the loss before it, it is the first reading after start and no edge.
    {"log SER LOCK Status(SCREEN exist):  0", "log SER LOCK Status(SCREEN exist):  1",
     "command /etc/set_t840gmsl_0.sh", 19, "19 ticks"},
    // 40 after a script that an event ran, 39 after one that a tick ran.
    {nullptr, "routed", "command /etc/set_t840gmsl_1.sh", 39, "39 or 40 ticks"},
    {nullptr, "log GPIO ACC:  true", "command sync", 999, "999 ticks"},
};

QString textOf(const Fact &fact)
{
    switch (fact.kind) {
    case Fact::Kind::Command:
        return "command " + fact.subject;
    case Fact::Kind::Log:
        return "log " + fact.subject;
    case Fact::Kind::Picture:
        return "routed";
    case Fact::Kind::Gpio:
        return QStringLiteral("gpio %1 = %2").arg(fact.subject, fact.value);
    case Fact::Kind::Input:
        return fact.subject + ' ' + fact.value;
    default:
        return {};
    }
}

} // namespace

QString TickCounts::take(const Fact &fact, int64_t us)
{
    if (fact.kind == Fact::Kind::Power)
        mStates = {};
    if (us < 0)
        return {};
    const QString text = textOf(fact);
    QString result;
    int row = 0;
    for (const auto &rule : kRules) {
        State &state = mStates[row++];
        // What comes much too early has another reason. The start itself may be seen a little
        // late.
        const int64_t elapsedUs = us - state.startUs;
        if (state.startUs >= 0 && text.startsWith(rule.end) &&
            elapsedUs * 10 >= rule.ticks * kTickUs * 8) {
            result =
                QStringLiteral(" after %1 ms (%2)").arg((elapsedUs + 500) / 1000).arg(rule.text);
            state = {};
        }
        if (rule.arming != nullptr && text.startsWith(rule.arming))
            state.isArmed = true;
        else if (text.startsWith(rule.start) && (rule.arming == nullptr || state.isArmed))
            state.startUs = us;
    }
    return result;
}
