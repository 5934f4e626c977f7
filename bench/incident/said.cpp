// SPDX-License-Identifier: MIT

#include "bench/incident/said.h"

#include "bench/why/groupof.h"

namespace {

constexpr size_t kRefusalLines = 4; ///< behind a request, within which a refusal stands

struct Pattern
{
    const char *subject;
    const char *hint; ///< a text that such a line holds, quicker to look for
    const char *pattern;
    QStringList values; ///< by their number; none: as it is told
};

Said saidOf(const std::vector<Pattern> &patterns, const QString &line)
{
    for (const Pattern &pattern : patterns) {
        if (!line.contains(QLatin1String(pattern.hint)))
            continue;
        const QString value = groupOf(pattern.pattern, line);
        if (!value.isEmpty())
            return {pattern.subject,
                    pattern.values.isEmpty() ? value : pattern.values.value(value.toInt(), value),
                    {}};
    }
    return {};
}

} // namespace

Said saidOfCar(const QString &line)
{
    static const QStringList gears{"undefined", "P", "R", "N", "D"};
    static const QStringList keys{"OFF", "1", "ON"};
    static const std::vector<Pattern> patterns{
        {"gear", "SIG GEAR", "CAN SIG GEAR .*change to: ([1-4])$", gears},
        {"light", "SIG LIGHT_STATUS", "change to: \"\\[(OFF|LEFT|RIGHT)\\]\"", {}},
        {"key", "SIG KEY_STATUS", "CAN SIG KEY_STATUS .*change to: ([0-2])$", keys},
        {"speed", "curSpeed", "curSpeed  (\\d+)", {}},
        {"radar", "RADAR", "==== RADAR .*change to: \"ff([0-3f]{6})\"", {}},
    };
    Said said = saidOf(patterns, line);
    if (said.subject == "gear" || said.subject == "key") {
        const QString before = groupOf("SIG \\w+  (-1|[0-4]) ,", line);
        if (before == "-1" || before.isEmpty())
            said.before = before;
        else
            said.before = (said.subject == "gear" ? gears : keys).value(before.toInt());
    } else if (said.subject == "light") {
        said.before = groupOf("STATUS  \"\\[(OFF|LEFT|RIGHT|HARZARD)\\]\"", line);
        if (said.before == "HARZARD") // what nothing heard is called
            said.before = "-1";
    } else if (said.subject == "radar") {
        said.before = groupOf("RADAR \"ff([0-3f]{6})\"", line).replace('f', '0');
        said.value.replace('f', '0'); // the other half is not heard yet
    }
    return said;
}

Said saidOfBoard(const QString &line)
{
    static const std::vector<Pattern> patterns{
        {"deserializer-lock", "DESER LOCK", "DESER LOCK Status.*:  ([01])", {"off", "on"}},
        {"serializer-lock", "SER LOCK", "^SER LOCK Status.*:  ([01])", {"off", "on"}},
        {"acc", "GPIO ACC", "GPIO ACC:  (true|false)", {}},
        {"turn-switch", "isTurnSwitchEnable", "isTurnSwitchEnable  (true|false)", {}},
        {"initialised", "isAVMInited", "isAVMInited  (true|false)", {}},
    };
    Said said = saidOf(patterns, line);
    if (said.value == "true" || said.value == "false")
        said.value = said.value == "true" ? "on" : "off";
    return said;
}

QString requestOf(const QString &line)
{
    if (!line.contains(QLatin1String("isToPVM")))
        return {};
    const QString asked = groupOf("toSwitchVideo  isToPVM  (\\d+)", line);
    return asked.isEmpty() || asked == "0" ? asked : "1";
}

bool isRefused(const Journal &journal, size_t i)
{
    for (size_t next = i + 1; next < journal.lines.size() && next < i + kRefusalLines; ++next) {
        const QString &text = journal.lines[next].text;
        if (text.contains("isCanOutFromPVM  false") || text.contains("Wait for AVM inited"))
            return true;
        if (text.contains("isToPVM"))
            return false;
    }
    return false;
}

size_t backlightBehind(const Journal &journal, size_t i, int64_t withinUs)
{
    for (size_t next = i + 1; next < journal.lines.size(); ++next) {
        if (journal.lines[next].us - journal.lines[i].us > withinUs)
            return 0;
        if (journal.lines[next].text.startsWith("open backlight"))
            return next;
    }
    return 0;
}

bool isLifesEnd(const Journal &journal, size_t i, int64_t endUs)
{
    const JournalLine &line = journal.lines[i];
    return line.text.startsWith("PvmMain ") || line.isBoot() || line.isEnd() || line.us > endUs;
}
