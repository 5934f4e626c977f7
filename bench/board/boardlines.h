// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <vector>

/// One GPIO line of the board.
struct BoardLine
{
    int number;       ///< as the kernel counts
    const char *word; ///< in drives, for the inputs; null for the outputs
    const char *name; ///< for people
    bool level;       ///< of an output after power-on; of an input until a drive moves it

    bool isOutput() const { return word == nullptr; }
};

namespace boardlines {

constexpr int kKeepPower = 150;
constexpr int kSwitch = 269;

inline const std::vector<BoardLine> kAll{
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

/// Null when the board has no such line.
inline const BoardLine *find(int number)
{
    for (const BoardLine &line : kAll)
        if (line.number == number)
            return &line;
    return nullptr;
}

/// The number of an input, by a drive's word for it, which is one of the table's; else -1.
inline int inputOf(const QString &word)
{
    for (const BoardLine &line : kAll)
        if (!line.isOutput() && word == line.word)
            return line.number;
    return -1;
}

} // namespace boardlines
