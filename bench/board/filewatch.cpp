// SPDX-License-Identifier: MIT

#include "bench/board/filewatch.h"

#include <QFile>

#include <sys/inotify.h>
#include <unistd.h>

FileWatch::FileWatch()
    : mFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), mNotifier(mFd, QSocketNotifier::Read)
{
    QObject::connect(&mNotifier, &QSocketNotifier::activated, [this] { drain(); });
}

bool FileWatch::add(const QString &path, const std::function<void(Event)> &handler)
{
    // The openings are asked for of every file: between two equal events the kernel would merge
    // them, and two writes would count as one.
    const int watch =
        inotify_add_watch(mFd, QFile::encodeName(path).constData(), IN_OPEN | IN_CLOSE_WRITE);
    mHandlers[watch] = handler;
    return watch >= 0;
}

void FileWatch::drain()
{
    readEvents(true);
}

void FileWatch::discard()
{
    readEvents(false);
}

void FileWatch::readEvents(bool areTold)
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
