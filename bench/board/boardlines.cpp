// SPDX-License-Identifier: MIT

#include "bench/board/boardlines.h"

#include <algorithm>

const std::vector<BoardLine> &boardlines::all()
{
    static const std::vector<BoardLine> lines{
        {229, nullptr, "deserializer power-down", true}, // released
        {260, nullptr, "serializer power-down", true},
        {268, nullptr, "GMSL link select", false},
        {106, nullptr, "video source select", false},
        {kKeepPower, nullptr, "ACC keep-power", false},
        {116, "acc", "ACC", false},
        {kSwitch, "switch", "switch", false},
        {122, "deserializer-lock", "deserializer lock", true},
        {270, "serializer-lock", "serializer lock", true},
    };
    return lines;
}

const BoardLine *boardlines::find(int number)
{
    const auto line =
        std::find_if(all().begin(), all().end(),
                     [number](const BoardLine &candidate) { return candidate.number == number; });
    return line == all().end() ? nullptr : &*line;
}

const BoardLine &boardlines::input(const QString &word)
{
    return *std::find_if(all().begin(), all().end(), [&word](const BoardLine &candidate) {
        return !candidate.isOutput() && word == QLatin1String(candidate.word);
    });
}
