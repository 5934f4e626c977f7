// SPDX-License-Identifier: MIT

#include "bench/play.h"

#include "bench/board/board.h"
#include "bench/board/printable.h"
#include "bench/board/sandbox.h"
#include "bench/drive/candump.h"
#include "bench/drive/drivefile.h"
#include "bench/drive/player.h"
#include "bench/exitcode.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString nameOf(const QString &drive)
{
    return drive == QLatin1String("-") ? QStringLiteral("standard input") : drive;
}

QString withError(const QString &name)
{
    return name + QStringLiteral(": ") + QString::fromLocal8Bit(strerror(errno));
}

/// Without close-on-exec: the process inside the sandbox reads it.
Descriptor openDrive(const QString &drive)
{
    return Descriptor(drive == QLatin1String("-")
                          ? dup(STDIN_FILENO)
                          : open(QFile::encodeName(drive).constData(), O_RDONLY));
}

bool isSameFile(const QString &path, int other)
{
    struct stat a = {};
    struct stat b = {};
    return stat(QFile::encodeName(path).constData(), &a) == 0 && fstat(other, &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// What the process inside is told, in the order of its arguments.
struct Ticket
{
    QString controller;
    QString name; ///< of the drive, for messages
    QString channel;
    QString speed;
    int drive; ///< descriptors; -1 without a log
    int log;

    QStringList arguments() const
    {
        return {QLatin1String(kPlayInside), QStringLiteral("--"), controller, name, channel, speed,
                QString::number(drive),     QString::number(log)};
    }
    static Ticket from(const QStringList &words)
    {
        return {words[0], words[1], words[2], words[3], words[4].toInt(), words[5].toInt()};
    }
    static constexpr int kWords = 6;
};

int codeOf(Player::Verdict verdict, int signal)
{
    if (verdict == Player::Verdict::Interrupted)
        return 128 + signal;
    return verdict == Player::Verdict::Failed ? kFailed : kHeld;
}

} // namespace

int complain(int code, const QString &text)
{
    QTextStream(stderr) << "pvm-bench: " << printable(text, 1000) << '\n';
    return code;
}

int play(const PlayOptions &options)
{
    const Descriptor drive = openDrive(options.drive);
    if (drive < 0)
        return complain(kBadInput, withError(nameOf(options.drive)));
    const QFileInfo controller(options.controller);
    if (!controller.isFile() || !controller.isExecutable())
        return complain(kNoBoard, options.controller +
                                      QStringLiteral(": the controller is not an executable file"));
    Descriptor log;
    if (!options.log.isEmpty()) {
        const Descriptor program(
            open(QFile::encodeName(options.controller).constData(), O_PATH | O_CLOEXEC));
        for (const Descriptor *input : {&drive, &program})
            if (isSameFile(options.log, *input))
                return complain(kBadInput,
                                options.log + QStringLiteral(": the log is the drive or the "
                                                             "controller itself"));
        log.reset(open(QFile::encodeName(options.log).constData(), O_WRONLY | O_CREAT, 0666));
        if (log < 0)
            return complain(kBadInput, withError(options.log));
    }
    const Ticket ticket{controller.absoluteFilePath(),
                        nameOf(options.drive),
                        options.channel,
                        options.speed,
                        drive,
                        log};
    QString fault;
    const int code = sandbox::run(ticket.controller, ticket.arguments(), &fault);
    return code >= 0 ? code : complain(kNoBoard, fault);
}

int playInside(const QStringList &arguments)
{
    if (arguments.size() != Ticket::kWords + 2)
        return complain(kBadInput, QStringLiteral("%1 is for the bench itself").arg(kPlayInside));
    sandbox::Inside inside(arguments[Ticket::kWords], arguments[Ticket::kWords + 1]);
    const Ticket ticket = Ticket::from(arguments);

    Drive drive;
    QString fault = readDrive(ticket.drive, ticket.name, ticket.channel, &drive);
    const double speed = ticket.speed.toDouble();
    if (fault.isEmpty() && (speed < drive.slowest || speed > drive.fastest))
        fault = QStringLiteral("%1: holds at --speed %2 to %3 only")
                    .arg(ticket.name)
                    .arg(drive.slowest)
                    .arg(drive.fastest);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);

    Board board({ticket.controller, drive.rendererFromStart, drive.hasWatchdog});
    fault = board.build();
    if (!fault.isEmpty())
        return complain(kNoBoard, fault);
    QFile log;
    if (ticket.log >= 0) {
        [[maybe_unused]] const int ignored = ftruncate(ticket.log, 0); // a pipe has no length
        log.open(ticket.log, QIODevice::WriteOnly | QIODevice::Unbuffered);
    }
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
    QTextStream out(&output);
    qRegisterMetaType<Player::Verdict>();
    signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as an error of writing

    Player player(board, drive, speed, out, isatty(STDOUT_FILENO) == 1,
                  log.isOpen() ? &log : nullptr);
    int interruption = 0;
    // Queued, since it may come before the event loop runs.
    QObject::connect(
        &player, &Player::finished, qApp,
        [&interruption](Player::Verdict verdict) {
            QCoreApplication::exit(codeOf(verdict, interruption));
        },
        Qt::QueuedConnection);
    QObject::connect(
        &player, &Player::broken, qApp,
        [](const QString &reason, bool isBoard) {
            QCoreApplication::exit(complain(isBoard ? kNoBoard : kFailed, reason));
        },
        Qt::QueuedConnection);
    inside.watch([&](int number) {
        interruption = number;
        player.interrupt();
    });
    player.run();
    return QCoreApplication::exec();
}

int record(const QString &path, const QString &channel)
{
    const Descriptor descriptor = openDrive(path);
    if (descriptor < 0)
        return complain(kBadInput, withError(nameOf(path)));
    Drive drive;
    const QString fault = readDrive(descriptor, nameOf(path), channel, &drive);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly);
    for (const BusFrame &frame : drive.frames)
        output.write(candumpLine(frame, channel.toUtf8()));
    if (!output.flush() || output.error() != QFileDevice::NoError)
        return complain(kFailed, QStringLiteral("standard output: ") + output.errorString());
    return kHeld;
}
