// SPDX-License-Identifier: MIT

#include "bench/drive/words.h"
#include "bench/exitcode.h"
#include "bench/play.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QRegularExpression>
#include <QTextStream>

namespace {

int complainOfUsage(const QString &text)
{
    return complain(kBadInput, text + QStringLiteral("; see pvm-bench --help"));
}

int run(const QString &command, const PlayOptions &options)
{
    bool isNumber = false;
    const double speed = options.speed.toDouble(&isNumber);
    if (!isNumber || !(speed >= 0.01 && speed <= 100))
        return complainOfUsage(QStringLiteral("--speed must be a number from 0.01 to 100"));
    for (const QString &given : {options.drive, options.controller, options.channel})
        if (given.isEmpty())
            return complainOfUsage(QStringLiteral("an empty name is none"));
    return command == QLatin1String("record") ? record(options.drive, options.channel)
                                              : play(options);
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
                       "3 the sandbox or the controller did not start, 130 or 143 interrupted."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    const auto version = parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("play DRIVE"),
                                 QStringLiteral("plays a drive file; - is standard input"));
    parser.addPositionalArgument(QStringLiteral("record DRIVE"),
                                 QStringLiteral("writes its frames as candump -L does"),
                                 QStringLiteral("| record DRIVE"));
    parser.addPositionalArgument(QStringLiteral("words"),
                                 QStringLiteral("lists the words of the drive language"),
                                 QStringLiteral("| words"));
    const QCommandLineOption speed(QStringLiteral("speed"),
                                   QStringLiteral("Drive seconds per real second, 0.01 to 100."),
                                   QStringLiteral("X"), QStringLiteral("1"));
    const QCommandLineOption controller(
        QStringLiteral("controller"),
        QStringLiteral("The controller instead of the one beside, or a "
                       "script that runs one."),
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
    if (command.isEmpty())
        return complainOfUsage(QStringLiteral("play, record or words?"));
    if (command != QLatin1String("play") && command != QLatin1String("record"))
        return complainOfUsage(QStringLiteral("unknown command '%1'").arg(command));
    if (words.size() != 1)
        return complainOfUsage(QStringLiteral("%1 takes one drive file").arg(command));
    return run(command, {words[0], parser.value(speed), parser.value(controller), parser.value(log),
                         parser.value(channel)});
}
