#include "bench/board/commandserver.h"

#include <QDir>
#include <QFile>
#include <QTimer>

namespace {

const char *const kCommands[] = {"ip", "date", "sync", "reboot", "i2ctransfer"};
const char *const kScripts[] = {"/etc/set_t840gmsl_0.sh", "/etc/set_t840gmsl_1.sh"};

bool link(const QString &target, const QString &name, QString *error)
{
    if (QFile::link(target, name))
        return true;
    *error = QStringLiteral("cannot make the stand-in %1").arg(name);
    return false;
}

} // namespace

CommandServer::CommandServer(QObject *parent) : QObject(parent)
{
    connect(&mServer, &SocketServer::connected, this, [this] { ++mRunning; });
    connect(&mServer, &SocketServer::received, this, &CommandServer::handleRequest);
    connect(&mServer, &SocketServer::disconnected, this, &CommandServer::handleGone);
}

QString CommandServer::commandFolder()
{
    return QStringLiteral("/run/pvm-bench/bin");
}

bool CommandServer::build(const QString &standIn, QString *error)
{
    QDir().mkpath(commandFolder());
    for (const char *name : kCommands) {
        if (!link(standIn, commandFolder() + QLatin1Char('/') + QLatin1String(name), error))
            return false;
    }
    for (const char *path : kScripts) {
        if (!link(standIn, QLatin1String(path), error))
            return false;
    }
    return mServer.listen(QStringLiteral("/run/pvm-bench/commands"), error);
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
