// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/socketserver.h"

#include <QMap>
#include <QTimer>

#include <functional>

/**
 * The commands and scripts that the controller runs. Each is a stand-in which hands its words over
 * and waits for its exit status.
 */
class CommandServer : public QObject
{
    Q_OBJECT

public:
    CommandServer();

    /// Puts the stand-ins in their places, links to the bench's one program for them. Returns what
    /// is wrong, or an empty text.
    QString build();

    bool isCommandRunning() const { return mServer.hasClient(); }

    /// Ends the command with an exit status.
    static void reply(int command, int status);

    /// The same so many milliseconds later, then @p done; neither when the command has gone by
    /// then.
    void replyAfter(int ms, int command, int status, const std::function<void()> &done);

    /// The commands that still wait end with an error.
    void dropAll();

Q_SIGNALS:
    /// A command has begun and waits for reply(). @p text: its words, joined by single blanks, the
    /// first one the name as it was typed.
    void started(int command, const QString &text);

private:
    SocketServer mServer;
    QMap<int, QTimer *> mReplies; ///< that are due later, by command
};
