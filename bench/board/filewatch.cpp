// SPDX-License-Identifier: MIT

#include "bench/board/filewatch.h"

#include <QFile>
#include <QSocketNotifier>

#include <sys/inotify.h>

FileWatch::FileWatch(QObject *parent)
    : QObject(parent), mFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    auto *notifier = new QSocketNotifier(mFd, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] { drain(); });
}

int FileWatch::add(const QString &path)
{
    // The openings are asked for of every file: between two equal events the kernel would merge
    // them, and two writes would count as one.
    return inotify_add_watch(mFd, QFile::encodeName(path).constData(), IN_OPEN | IN_CLOSE_WRITE);
}

template <typename Handler> void FileWatch::readEvents(Handler handler)
{
    alignas(inotify_event) char buffer[4096];
    ssize_t size = 0;
    while ((size = read(mFd, buffer, sizeof buffer)) > 0) {
        for (const char *at = buffer; at < buffer + size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            handler(event->wd, event->mask);
            at += sizeof(inotify_event) + event->len;
        }
    }
}

void FileWatch::drain()
{
    readEvents([this](int watch, uint32_t mask) {
        if ((mask & IN_OPEN) != 0)
            Q_EMIT opened(watch);
        else if ((mask & IN_CLOSE_WRITE) != 0)
            Q_EMIT written(watch);
    });
}

void FileWatch::discard()
{
    readEvents([](int, uint32_t) {});
}
