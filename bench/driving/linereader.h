// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QSocketNotifier>

#include <functional>

/// The lines of a pipe, a terminal or a file, as they come.
class LineReader
{
public:
    /// @p taken gets each line without its end, @p ended is called behind the last. Nothing is read
    /// before start().
    LineReader(int descriptor, std::function<void(const QString &)> taken,
               std::function<void()> ended);

    void start() { mNotifier.setEnabled(true); }

private:
    void read();

    const int mDescriptor;
    const std::function<void(const QString &)> mTaken;
    const std::function<void()> mEnded;
    QSocketNotifier mNotifier;
    QByteArray mRest; ///< a line that is not whole yet
};
