// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

// What reading and telling have in common.

inline constexpr int kSpeedLimit = 15;         ///< rising above it asks for DA
inline constexpr uint32_t kGearId = 0x1004501; ///< 5 frames in a row, of the other identifier 11
inline constexpr char kUnknown[] = "the log does not tell";

/// Drive time in seconds.
inline QString at(int64_t us)
{
    return us < 0 ? QStringLiteral("start")
                  : QString::number(static_cast<double>(us) / 1e6, 'f', 3);
}

inline QString lightText(const QString &light)
{
    return "turn light " + light.toLower();
}
