// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QString>
#include <QStringList>

#include <array>

class QCommandLineParser;

/// The files that a play writes: the log, the facts, the page, the drive that was driven. What an
/// earlier run has left is gone as soon as they are open, and so is at the end what this run left
/// empty: nobody may take one for this run's. A drive is somebody's work, and stays until there is
/// another.
class Outputs
{
public:
    static constexpr int kCount = 4; ///< --log, --json, --report, --save

    Outputs() = default;
    ~Outputs();
    Q_DISABLE_COPY(Outputs)

    /// Opens those that are asked for; `-` is standard output. @p taken: what may not be written
    /// over. Returns what is wrong, or an empty text.
    QString open(const QCommandLineParser &options, QStringList taken);

    int file(int i) const { return mFiles[i]; }       ///< its descriptor, -1 without
    bool hasStandard() const { return mHasStandard; } ///< one of them is standard output

private:
    bool mHasStandard = false;
    std::array<QString, kCount> mNames;
    std::array<Descriptor, kCount> mFiles;
};
