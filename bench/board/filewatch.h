// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QFile>
#include <QSocketNotifier>

#include <functional>
#include <map>
#include <sys/inotify.h>

/**
 * Tells of every opening of the watched files and of every closing after a write, in the order in
 * which they happened over all files together.
 */
class FileWatch
{
public:
    enum class Event { Opened, Written }; ///< Written: closed by someone who could write

    FileWatch()
        : mFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), mNotifier(mFd, QSocketNotifier::Read)
    {
        QObject::connect(&mNotifier, &QSocketNotifier::activated, [this] { drain(); });
    }

    /// False with errno when the file cannot be watched.
    bool add(const QString &path, const std::function<void(Event)> &handler)
    {
        // The openings are asked for of every file: between two equal events the kernel would merge
        // them, and two writes would count as one.
        const int watch =
            inotify_add_watch(mFd, QFile::encodeName(path).constData(), IN_OPEN | IN_CLOSE_WRITE);
        mHandlers[watch] = handler;
        return watch >= 0;
    }

    void drain() { readEvents(true); }    ///< tells what has happened so far
    void discard() { readEvents(false); } ///< forgets what has happened so far

private:
    void readEvents(bool areTold)
    {
        alignas(inotify_event) char buffer[4096];
        ssize_t size = 0;
        while ((size = read(mFd, buffer, sizeof buffer)) > 0) {
            for (const char *at = buffer; at < buffer + size;) {
                const auto *event = reinterpret_cast<const inotify_event *>(at);
                if (areTold && (event->mask & (IN_OPEN | IN_CLOSE_WRITE)) != 0)
                    mHandlers[event->wd](event->mask & IN_OPEN ? Event::Opened : Event::Written);
                at += sizeof(inotify_event) + event->len;
            }
        }
    }

    Descriptor mFd;
    QSocketNotifier mNotifier;
    std::map<int, std::function<void(Event)>> mHandlers; ///< by the kernel's number for the file
};
