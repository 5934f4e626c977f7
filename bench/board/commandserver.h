// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/socketserver.h"

#include <QObject>
#include <QStringList>

#include <functional>

class QTimer;

/**
 * The commands and scripts that the controller runs. Each is a stand-in which hands its words over
 * and waits for its exit status.
 */
class CommandServer : public QObject
{
    Q_OBJECT

public:
    explicit CommandServer(QObject *parent = nullptr);

    /// Puts the stand-ins in their places, links to the bench's one program for them. Returns what
    /// is wrong, or an empty text.
    QString build();

    bool isCommandRunning() const { return mRunning > 0; }

    /// Ends the command with an exit status, printing @p text on its standard output.
    void reply(int command, int status, const QByteArray &text = QByteArray());

    /// The same later, then @p done; neither when the command has gone by then.
    void replyAfter(int ms, int command, int status, const std::function<void()> &done);

    void dropAll(); ///< the commands that still wait end with an error

Q_SIGNALS:
    /// A command has begun and waits for reply(). @p words begins with the name as it was typed.
    void started(int command, const QStringList &words);

private:
    void handleRequest(int client, const QByteArray &message);
    void handleGone(int client);

    SocketServer mServer;
    int mRunning = 0;
    QMap<int, QTimer *> mReplies; ///< that are due later, by command
};
