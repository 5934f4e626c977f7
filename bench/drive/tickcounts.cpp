// SPDX-License-Identifier: MIT

#include "bench/drive/tickcounts.h"

namespace {

constexpr int64_t kTickUs = 10'000;

QString textOf(const Fact &fact)
{
    switch (fact.kind) {
    case Fact::Kind::Command:
        return QStringLiteral("command ") + fact.subject;
    case Fact::Kind::Log:
        return QStringLiteral("log ") + fact.subject;
    case Fact::Kind::Picture:
        return QStringLiteral("routed");
    case Fact::Kind::Gpio:
        return QStringLiteral("gpio %1 = %2").arg(fact.subject, fact.value);
    case Fact::Kind::Input:
        return fact.subject + QLatin1Char(' ') + fact.value;
    default:
        return {};
    }
}

bool begins(const QString &text, const char *with)
{
    return text.startsWith(QLatin1String(with));
}

} // namespace

// Facts are told by how their texts begin.
const std::array<TickCounts::Rule, TickCounts::kRules> TickCounts::kTable{{
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
}};

QString TickCounts::take(const Fact &fact, int64_t us)
{
    if (fact.kind == Fact::Kind::Power)
        mStates = {};
    const QString text = textOf(fact);
    QString result;
    for (size_t i = 0; i < kTable.size() && us >= 0; ++i) {
        const Rule &rule = kTable[i];
        State &state = mStates[i];
        // What comes much too early has another reason. The start itself may be seen a little late.
        const int64_t elapsedUs = us - state.startUs;
        if (state.startUs >= 0 && begins(text, rule.end) &&
            elapsedUs * 10 >= rule.ticks * kTickUs * 8) {
            result = QStringLiteral(" after %1 ms (%2)")
                         .arg((elapsedUs + 500) / 1000)
                         .arg(QLatin1String(rule.text));
            state = {};
        }
        if (rule.arming != nullptr && begins(text, rule.arming))
            state.isArmed = true;
        else if (begins(text, rule.start) && (rule.arming == nullptr || state.isArmed))
            state.startUs = us;
    }
    return result;
}
