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

const std::vector<BoardLine> &all();
const BoardLine *find(int number);           ///< null when the board has no such line
const BoardLine &input(const QString &word); ///< of a drive's word, which is one of the table's

} // namespace boardlines
