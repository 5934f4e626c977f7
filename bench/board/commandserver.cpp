// SPDX-License-Identifier: MIT

#include "bench/board/commandserver.h"

#include "bench/board/places.h"

#include <QDir>
#include <QFile>
#include <QTimer>

namespace {

const char *const kCommands[] = {"ip", "date", "sync", "reboot", "i2ctransfer"};

} // namespace

CommandServer::CommandServer(QObject *parent) : QObject(parent)
{
    connect(&mServer, &SocketServer::connected, this, [this] { ++mRunning; });
    connect(&mServer, &SocketServer::received, this, &CommandServer::handleRequest);
    connect(&mServer, &SocketServer::disconnected, this, &CommandServer::handleGone);
}

QString CommandServer::build()
{
    const QDir folder(QString::fromLatin1(places::kCommandFolder));
    folder.mkpath(QStringLiteral("."));
    QStringList standIns{QString::fromLatin1(places::kPictureScript),
                         QString::fromLatin1(places::kBacklightScript)};
    for (const char *name : kCommands)
        standIns << folder.filePath(QLatin1String(name));
    const QString program =
        QStringLiteral("%1/pvm-bench-command").arg(QLatin1String(places::kBench));
    for (const QString &name : standIns) {
        if (!QFile::link(program, name))
            return QStringLiteral("cannot make the stand-in %1").arg(name);
    }
    return mServer.listen(places::kCommandSocket);
}

void CommandServer::handleRequest(int client, const QByteArray &message)
{
    QStringList words;
    for (const QByteArray &word : message.split('\0'))
        words.append(QString::fromLocal8Bit(word));
    Q_EMIT started(client, words);
}

void CommandServer::reply(int command, int status, const QByteArray &text)
{
    const QByteArray message = QByteArray(1, static_cast<char>(status)) + text;
    SocketServer::send(command, message.constData(), static_cast<size_t>(message.size()));
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

void CommandServer::handleGone(int client)
{
    --mRunning;
    delete mReplies.take(client);
}

void CommandServer::dropAll()
{
    qDeleteAll(mReplies);
    mReplies.clear();
    mServer.dropAll();
    mRunning = 0;
}
