// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QSocketNotifier>
#include <QString>

#include <functional>
#include <map>

/**
 * Tells of every opening of the watched files and of every closing after a write, in the order in
 * which they happened over all files together.
 */
class FileWatch
{
public:
    enum class Event { Opened, Written }; ///< Written: closed by someone who could write

    FileWatch();

    /// Calls @p handler for each event of that file, which must be there. False with errno when the
    /// file cannot be watched.
    bool add(const QString &path, const std::function<void(Event)> &handler);

    void drain();   ///< tells what has happened so far
    void discard(); ///< forgets what has happened so far

private:
    void readEvents(bool areTold);

    Descriptor mFd;
    QSocketNotifier mNotifier;
    std::map<int, std::function<void(Event)>> mHandlers; ///< by the kernel's number for the file
};
