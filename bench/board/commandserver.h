// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/places.h"
#include "bench/board/socketserver.h"

#include <QDir>
#include <QFile>
#include <QStringList>
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
    CommandServer()
    {
        connect(&mServer, &SocketServer::received, this,
                [this](int client, const QByteArray &message) {
                    Q_EMIT started(client, QString::fromLocal8Bit(message));
                });
        connect(&mServer, &SocketServer::disconnected, this,
                [this](int client) { delete mReplies.take(client); });
    }

    /// Puts the stand-ins in their places, links to the bench's one program for them. Returns what
    /// is wrong, or an empty text.
    QString build()
    {
        const QString program = QString(places::kBench) + "/pvm-bench-command";
        const QDir folder(places::kCommandFolder);
        folder.mkpath(".");
        QStringList standIns{places::kPictureScript, places::kBacklightScript};
        for (const char *name : {"ip", "date", "sync", "reboot", "i2ctransfer"})
            standIns << folder.filePath(name);
        for (const QString &name : standIns)
            if (!QFile::link(program, name))
                return "cannot make the stand-in " + name;
        return mServer.listen(places::kCommandSocket);
    }

    bool isCommandRunning() const { return mServer.hasClient(); }

    /// Ends the command with an exit status.
    static void reply(int command, int status)
    {
        const char message = static_cast<char>(status);
        SocketServer::send(command, &message, sizeof message);
    }

    /// The same later, then @p done; neither when the command has gone by then.
    void replyAfter(int ms, int command, int status, const std::function<void()> &done)
    {
        auto *timer = new QTimer(this);
        mReplies.insert(command, timer);
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        connect(timer, &QTimer::timeout, this, [this, command, status, done] {
            mReplies.take(command)->deleteLater();
            reply(command, status);
            done();
        });
        timer->start(ms);
    }

    /// The commands that still wait end with an error.
    void dropAll()
    {
        qDeleteAll(mReplies);
        mReplies.clear();
        mServer.dropAll();
    }

Q_SIGNALS:
    /// A command has begun and waits for reply(). @p text: its words, joined by single blanks, the
    /// first one the name as it was typed.
    void started(int command, const QString &text);

private:
    SocketServer mServer;
    QMap<int, QTimer *> mReplies; ///< that are due later, by command
};
