// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QObject>
#include <QString>

/**
 * Tells of every opening of the watched files and of every closing after a write, in the order in
 * which they happened over all files together.
 */
class FileWatch : public QObject
{
    Q_OBJECT

public:
    explicit FileWatch(QObject *parent = nullptr);

    /// The watch's number, as the signals carry it; -1 with errno when the file cannot be watched.
    int add(const QString &path);

    void drain();   ///< emits what has happened so far
    void discard(); ///< forgets what has happened so far

Q_SIGNALS:
    void opened(int watch);
    void written(int watch); ///< closed by someone who had it open for writing

private:
    template <typename Handler> void readEvents(Handler handler);

    Descriptor mFd;
};
