// SPDX-License-Identifier: MIT

#include "bench/drive/candump.h"
#include "bench/drive/player.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

constexpr char kPlayInside[] = "play-inside";        // the command that is for the bench itself
const QStringList kOutputs{"log", "json", "report"}; // the options that name a file to be written

/// Writes one line on standard error and gives the code back.
int complain(int code, const QString &text)
{
    QTextStream(stderr) << "pvm-bench: " << printable(text, 1000) << '\n';
    return code;
}

QString nameOf(const QString &drive)
{
    return drive == "-" ? "standard input" : drive;
}

QString withError(const QString &name)
{
    return name + ": " + strerror(errno);
}

/// Without close-on-exec: the process inside the sandbox reads it.
int openDrive(const QString &drive)
{
    return drive == "-" ? dup(STDIN_FILENO) : open(QFile::encodeName(drive).constData(), O_RDONLY);
}

/// False if one of them is not there.
bool isSameFile(const QString &a, const QString &b)
{
    std::error_code ignored;
    return std::filesystem::equivalent(a.toStdString(), b.toStdString(), ignored);
}

// What follows returns the exit code.

/// Plays a drive in a sandbox.
int play(const QString &drivePath, const QCommandLineParser &options)
{
    const QString name = nameOf(drivePath);
    const Descriptor drive(openDrive(drivePath));
    if (drive < 0)
        return complain(kBadInput, withError(name));
    const QFileInfo controller(options.value("controller"));
    if (!controller.isFile() || !controller.isExecutable())
        return complain(kNoBoard,
                        controller.filePath() + ": the controller is not an executable file");
    const QString can = options.value("can");
    const QString canFault = can.isEmpty() ? QString() : RealBus::faultOf(can);
    if (!canFault.isEmpty())
        return complain(kNoBoard, can + ": " + canFault);
    const QString path = controller.absoluteFilePath();
    QStringList inside{kPlayInside, "--controller=" + path};
    for (const char *option : {"channel", "speed", "can", "report"})
        if (options.isSet(option))
            inside << QStringLiteral("--%1=%2").arg(option, options.value(option));
    if (options.isSet("verbose"))
        inside << "--verbose";
    inside << "--" << name << QString::number(drive);

    std::array<Descriptor, 3> outputs; // as kOutputs
    QStringList taken{drivePath == "-" ? "/dev/stdin" : drivePath, path};
    for (int i = 0; i < kOutputs.size(); ++i) {
        const QString file = options.value(kOutputs[i]);
        for (const QString &other : taken)
            if (isSameFile(file, other))
                return complain(kBadInput, file + ": --" + kOutputs[i] + " would write over the " +
                                               "drive, the controller or another output");
        if (!file.isEmpty()) {
            outputs[i].reset(open(QFile::encodeName(file).constData(), O_WRONLY | O_CREAT, 0666));
            if (outputs[i] < 0)
                return complain(kBadInput, withError(file));
            taken << file;
        }
        inside << QString::number(outputs[i]);
    }
    QString fault;
    const int code = sandbox::run(path, !can.isEmpty(), inside, &fault);
    return code >= 0 ? code : complain(kNoBoard, fault);
}

/// Null without a descriptor. What the file held before is gone.
QFileDevice *openOutput(const QString &descriptor, QFile *file)
{
    const int fd = descriptor.toInt();
    if (fd < 0)
        return nullptr;
    [[maybe_unused]] const int ignored = ftruncate(fd, 0); // a pipe has no length
    file->open(fd, QIODevice::WriteOnly | QIODevice::Unbuffered);
    return file;
}

/// The part of it inside the sandbox, with the arguments that play() gave to it.
int playInside(const QStringList &arguments, const QCommandLineParser &options)
{
    if (arguments.size() != 7)
        return complain(kBadInput, QStringLiteral("%1 is for the bench itself").arg(kPlayInside));
    const QString &name = arguments[0];
    const double speed = options.value("speed").toDouble();
    sandbox::Inside inside(arguments[5], arguments[6]);

    Drive drive;
    QString fault = readDrive(arguments[1].toInt(), name, options.value("channel"), &drive);
    if (fault.isEmpty() && (speed < drive.slowest || speed > drive.fastest))
        fault = QStringLiteral("%1: holds at --speed %2 to %3 only")
                    .arg(name)
                    .arg(drive.slowest)
                    .arg(drive.fastest);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);

    Board board({options.value("controller"), drive.rendererFromStart, drive.hasWatchdog,
                 drive.hasService, options.value("can")});
    fault = board.build();
    if (!fault.isEmpty())
        return complain(kNoBoard, fault);
    QFile log, json, report;
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
    QTextStream out(&output);
    signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as an error of writing
    const bool isTerminal = isatty(STDOUT_FILENO) == 1 && qEnvironmentVariable("TERM") != "dumb";
    const Style style{options.isSet("verbose"), isTerminal,
                      isTerminal && qEnvironmentVariableIsEmpty("NO_COLOR")};
    const Outcome outcome = playDrive(
        board, drive,
        {speed, out, style, openOutput(arguments[2], &log), openOutput(arguments[3], &json),
         openOutput(arguments[4], &report), QFileInfo(name).fileName(), options.value("report")},
        inside);
    return outcome.fault.isEmpty() ? outcome.code : complain(outcome.code, outcome.fault);
}

/// Writes the frames of a drive on standard output, as `candump -L` does.
int record(const QString &path, const QString &channel)
{
    const Descriptor descriptor(openDrive(path));
    if (descriptor < 0)
        return complain(kBadInput, withError(nameOf(path)));
    Drive drive;
    const QString fault = readDrive(descriptor, nameOf(path), channel, &drive);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);
    for (const QString &remark : drive.remarks)
        complain(kHeld, nameOf(path) + ": " + remark);
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly);
    for (const BusFrame &frame : drive.frames)
        output.write(candumpLine(frame, channel.toUtf8()));
    if (!output.flush() || output.error() != QFileDevice::NoError)
        return complain(kFailed, "standard output: " + output.errorString());
    return kHeld;
}

int complainOfUsage(const QString &text)
{
    return complain(kBadInput, text + "; see pvm-bench --help");
}

int run(const QString &command, const QString &drive, const QCommandLineParser &options)
{
    const QString channel = options.value("channel");
    bool isNumber = false;
    const double speed = options.value("speed").toDouble(&isNumber);
    if (!isNumber || !(speed >= 0.01 && speed <= 100))
        return complainOfUsage("--speed must be a number from 0.01 to 100");
    for (const QString &given : {drive, options.value("controller"), channel})
        if (given.isEmpty())
            return complainOfUsage("an empty name is none");
    return command == "record" ? record(drive, channel) : play(drive, options);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("pvm-bench");
    QCoreApplication::setApplicationVersion(QStringLiteral(PVM_BENCH_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Plays a drive on a simulated board.\n\n"
        "Exit status: 0 everything expected held, 1 the drive failed, 2 bad input,\n"
        "3 the sandbox or the controller did not start, 130 or 143 interrupted.");
    const QString beside = QCoreApplication::applicationDirPath() + "/pvm-controller";
    parser.addPositionalArgument("play DRIVE", "plays a drive file; - is standard input");
    parser.addPositionalArgument("record DRIVE", "writes its frames as candump -L does",
                                 "| record DRIVE");
    parser.addPositionalArgument("words", "lists the words of the drive language", "| words");
    const auto version = parser.addVersionOption();
    parser.addOptions(
        {{{"h", "help"}, "Shows this help."},
         {"speed", "Drive seconds per real second, 0.01 to 100.", "X", "1"},
         {"controller", "The controller instead of the one beside, or a script that runs one.",
          "PATH", beside},
         {"verbose", "Tells all of it: also what was expected and held, in lines of any length."},
         {"log", "Writes the controller's log to a file.", "FILE"},
         {"report", "Writes a page to look at the drive with a browser.", "FILE"},
         {"json", "Writes every fact as a JSON object, one a line.", "FILE"},
         {"can", "Plays over a real CAN interface, the other end of can0's bus.", "IFACE"},
         {"channel", "The channel of the log that is played.", "NAME", "can0"}});

    if (!parser.parse(QCoreApplication::arguments()))
        return complainOfUsage(parser.errorText().remove(QRegularExpression("\\.$")));
    if (parser.isSet("help"))
        parser.showHelp(kHeld);
    if (parser.isSet(version))
        parser.showVersion();

    QStringList words = parser.positionalArguments();
    const QString command = words.isEmpty() ? QString() : words.takeFirst();
    if (command == "words" && words.isEmpty()) {
        QTextStream(stdout) << wordListing();
        return kHeld;
    }
    if (command == kPlayInside)
        return playInside(words, parser);
    if (command.isEmpty())
        return complainOfUsage("play, record or words?");
    if (command != "play" && command != "record")
        return complainOfUsage(QStringLiteral("unknown command '%1'").arg(command));
    if (words.size() != 1)
        return complainOfUsage(QStringLiteral("%1 takes one drive file").arg(command));
    return run(command, words[0], parser);
}
