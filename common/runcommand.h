// SPDX-License-Identifier: MIT

#pragma once

#include <cstdlib>

/// Runs @p command in a shell and waits for its end. Whether it worked is not looked at: the
/// outcome shows on the board, and nothing here could make up for a failure.
inline void runCommand(const char *command)
{
    const int status = std::system(command);
    static_cast<void>(status);
}
