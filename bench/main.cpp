#include "bench/board/board.h"
#include "bench/board/sandbox.h"
#include "bench/drive/drivefile.h"
#include "bench/drive/player.h"
#include "bench/drive/words.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum ExitCode { kHeld = 0, kFailed = 1, kBadInput = 2, kNoBoard = 3 };

const char kPlayInside[] = "play-inside";

int complain(ExitCode code, const QString &text)
{
    QTextStream(stderr) << "pvm-bench: " << text << '\n';
    return code;
}

int complainOfUsage(const QString &text)
{
    return complain(kBadInput, text + QStringLiteral("; see pvm-bench --help"));
}

struct Options
{
    QString drive;
    QString speed;
    QString controller;
    QString log;
    QString channel;
};

/// Opens the log for the process inside the sandbox, which inherits the descriptor. -1 without.
int openLog(const QString &path)
{
    return open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
}

bool isSameFile(const QString &a, const QString &b)
{
    struct stat statA = {};
    struct stat statB = {};
    return stat(QFile::encodeName(a).constData(), &statA) == 0 &&
           stat(QFile::encodeName(b).constData(), &statB) == 0 && statA.st_dev == statB.st_dev &&
           statA.st_ino == statB.st_ino;
}

/// Everything that can be wrong with the input is found here, before anything starts.
int play(const Options &options)
{
    bool isNumber = false;
    const double speed = options.speed.toDouble(&isNumber);
    if (!isNumber || !(speed >= 0.01 && speed <= 100))
        return complainOfUsage(QStringLiteral("--speed must be a number from 0.01 to 100"));
    for (const QString &given : {options.drive, options.controller, options.channel})
        if (given.isEmpty())
            return complainOfUsage(QStringLiteral("an empty name is none"));
    sandbox::Setup setup;
    QString wrong = readDriveFile(options.drive, &setup.drive);
    Drive drive;
    if (wrong.isEmpty())
        wrong = parseDrive(setup.drive, options.drive, options.channel, &drive);
    if (!wrong.isEmpty()) {
        QTextStream(stderr) << wrong << '\n';
        return kBadInput;
    }
    const QFileInfo controller(options.controller);
    if (!controller.isFile() || !controller.isExecutable())
        return complain(kNoBoard, options.controller +
                                      QStringLiteral(": the controller is not an executable file"));
    if (isSameFile(options.log, options.drive))
        return complain(kBadInput, options.log + QStringLiteral(": the log is the drive itself"));
    int log = -1;
    if (!options.log.isEmpty() && (log = openLog(options.log)) < 0)
        return complain(kBadInput, options.log + QStringLiteral(": ") +
                                       QString::fromLocal8Bit(strerror(errno)));
    setup.controller = controller.absoluteFilePath();
    setup.arguments = QStringList{QLatin1String(kPlayInside),
                                  QStringLiteral("--"),
                                  options.drive,
                                  options.speed,
                                  options.channel,
                                  QString::number(log)};
    return complain(kNoBoard, sandbox::enter(setup));
}

int playInside(const QStringList &arguments)
{
    if (arguments.size() != 4)
        return complainOfUsage(QStringLiteral("%1 is for the bench itself").arg(kPlayInside));
    QByteArray contents;
    Drive drive;
    QString wrong = readDriveFile(sandbox::drivePath(), &contents);
    if (wrong.isEmpty())
        wrong = parseDrive(contents, arguments[0], arguments[2], &drive);
    if (!wrong.isEmpty())
        return complain(kBadInput, wrong);
    QFile log;
    const int logDescriptor = arguments[3].toInt();
    if (logDescriptor >= 0)
        log.open(logDescriptor, QIODevice::WriteOnly | QIODevice::Unbuffered);

    QTextStream out(stdout);
    Board board({sandbox::controllerPath(), drive.rendererFromStart, drive.hasWatchdog});
    if (!board.build(&wrong))
        return complain(kNoBoard, wrong);
    Player player(board, drive, arguments[1].toDouble(), out, isatty(STDOUT_FILENO) == 1,
                  log.isOpen() ? &log : nullptr);
    // Queued, since either may come before the event loop runs.
    QObject::connect(
        &player, &Player::finished, qApp,
        [](bool isHeld) { QCoreApplication::exit(isHeld ? kHeld : kFailed); },
        Qt::QueuedConnection);
    QObject::connect(
        &player, &Player::notStarted, qApp,
        [](const QString &reason) { QCoreApplication::exit(complain(kNoBoard, reason)); },
        Qt::QueuedConnection);
    player.run();
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pvm-bench"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PVM_BENCH_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Plays a drive on a simulated board.\n\n"
                       "Exit status: 0 everything expected held, 1 the drive failed, 2 bad input,\n"
                       "3 the sandbox or the controller did not start."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    const auto version = parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("play DRIVE"),
                                 QStringLiteral("plays a drive file"));
    parser.addPositionalArgument(QStringLiteral("words"),
                                 QStringLiteral("lists the words of the drive language"),
                                 QStringLiteral("| words"));
    const QCommandLineOption speed(QStringLiteral("speed"),
                                   QStringLiteral("Drive seconds per real second, 0.01 to 100."),
                                   QStringLiteral("X"), QStringLiteral("1"));
    const QCommandLineOption controller(
        QStringLiteral("controller"), QStringLiteral("The controller instead of the one beside."),
        QStringLiteral("PATH"), QCoreApplication::applicationDirPath() + "/pvm-controller");
    const QCommandLineOption log(QStringLiteral("log"),
                                 QStringLiteral("Writes the controller's log to a file."),
                                 QStringLiteral("FILE"));
    const QCommandLineOption channel(QStringLiteral("channel"),
                                     QStringLiteral("The channel of the log that is played."),
                                     QStringLiteral("NAME"), QStringLiteral("can0"));
    parser.addOptions({help, speed, controller, log, channel});

    if (!parser.parse(QCoreApplication::arguments()))
        return complainOfUsage(
            parser.errorText().remove(QRegularExpression(QStringLiteral("\\.$"))));
    if (parser.isSet(help))
        parser.showHelp(kHeld);
    if (parser.isSet(version))
        parser.showVersion();

    QStringList words = parser.positionalArguments();
    const QString command = words.isEmpty() ? QString() : words.takeFirst();
    if (command == QLatin1String("words") && words.isEmpty()) {
        QTextStream(stdout) << wordListing();
        return kHeld;
    }
    if (command == QLatin1String(kPlayInside))
        return playInside(words);
    if (command != QLatin1String("play"))
        return complainOfUsage(command.isEmpty()
                                   ? QStringLiteral("play or words?")
                                   : QStringLiteral("unknown command '%1'").arg(command));
    if (words.size() != 1)
        return complainOfUsage(QStringLiteral("play takes one drive file"));
    return play({words[0], parser.value(speed), parser.value(controller), parser.value(log),
                 parser.value(channel)});
}
