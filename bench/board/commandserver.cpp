// SPDX-License-Identifier: MIT

#include "bench/board/commandserver.h"

#include "bench/board/places.h"

#include <QDir>
#include <QFile>
#include <QStringList>

CommandServer::CommandServer()
{
    connect(&mServer, &SocketServer::received, this, [this](int client, const QByteArray &message) {
        Q_EMIT started(client, QString::fromLocal8Bit(message));
    });
    connect(&mServer, &SocketServer::disconnected, this,
            [this](int client) { delete mReplies.take(client); });
}

QString CommandServer::build()
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

void CommandServer::reply(int command, int status)
{
    const char message = static_cast<char>(status);
    SocketServer::send(command, &message, sizeof message);
}

void CommandServer::replyAfter(int ms, int command, int status, const std::function<void()> &done)
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

void CommandServer::dropAll()
{
    qDeleteAll(mReplies);
    mReplies.clear();
    mServer.dropAll();
}
