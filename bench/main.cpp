// SPDX-License-Identifier: MIT

#include "bench/board/board.h"
#include "bench/board/descriptor.h"
#include "bench/board/printable.h"
#include "bench/board/realbus.h"
#include "bench/board/sandbox.h"
#include "bench/comparing/compare.h"
#include "bench/drive/drivefile.h"
#include "bench/driving/drivecommand.h"
#include "bench/incident/capture.h"
#include "bench/incident/explain.h"
#include "bench/language/candump.h"
#include "bench/language/hints.h"
#include "bench/language/seconds.h"
#include "bench/language/words.h"
#include "bench/playing/boardoptions.h"
#include "bench/playing/outputs.h"
#include "bench/playing/player.h"
#include "bench/suite/check.h"
#include "bench/suite/suiteoptions.h"
#include "bench/virtual/virtualtime.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char kPlayInside[] = "play-inside"; // the command that is for the bench itself
const QStringList kCommands{"play",    "drive",   "record", "check",
                            "explain", "capture", "words",  "help"};
const QStringList kWithOwnOptions{"drive", "explain", "capture", "compare"};
const QStringList kOfDriving{"save",    "frames", "controller", "renderer", "can",
                             "channel", "log",    "report",     "json",     "verbose"};
const QStringList kOfDrivingAlone{"save", "frames"};
const QStringList kInRealTime{"speed", "virtual-time"};
const QStringList kOfLogs{"channel", "from", "to", "skip-gaps", "tolerant"};

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

/// Of options that were looked at before.
LogCut logCut(const QCommandLineParser &options)
{
    LogCut cut;
    cut.channel = options.value("channel");
    // What is recorded is written with it.
    cut.isChannelChosen =
        options.isSet("channel") && options.positionalArguments().value(0) != "record";
    cut.isTolerant = options.isSet("tolerant");
    parseSeconds(options.value("from"), &cut.fromUs);
    if (options.isSet("to"))
        parseSeconds(options.value("to"), &cut.toUs);
    if (options.isSet("skip-gaps"))
        parseSeconds(options.value("skip-gaps"), &cut.longestGapUs);
    return cut;
}

// What follows returns the exit code.

/// Plays a drive in a sandbox, and that in virtual time if it is wished.
int play(const QString &drivePath, const QCommandLineParser &options)
{
    const QString name = nameOf(drivePath);
    QStringList taken{drivePath == "-" ? "/dev/stdin" : drivePath};
    for (const char *option : {"controller", "renderer"})
        if (!options.value(option).isEmpty())
            taken << options.value(option);
    Outputs outputs;
    const QString outputFault = outputs.open(options, taken);
    if (!outputFault.isEmpty())
        return complain(kBadInput, outputFault);
    if (outputs.hasStandard()) // what is told gives way
        dup2(STDERR_FILENO, STDOUT_FILENO);
    const Descriptor drive(openDrive(drivePath));
    if (drive < 0)
        return complain(kBadInput, withError(name));
    QStringList programs;
    QStringList inside{kPlayInside};
    const QString boardFault = addBoardOptions(options, &programs, &inside);
    if (!boardFault.isEmpty())
        return complain(kNoBoard, boardFault);
    const QString can = options.value("can");
    const bool isTimeVirtual = options.isSet("virtual-time");
    for (const char *option : {"channel", "speed", "from", "to", "skip-gaps"})
        if (options.isSet(option))
            inside << QStringLiteral("--%1=%2").arg(option, options.value(option));
    if (options.isSet("tolerant"))
        inside << "--tolerant";
    inside << "--" << name << QString::number(drive);

    for (int i = 0; i < Outputs::kCount; ++i)
        inside << QString::number(outputs.file(i));
    inside << QCoreApplication::arguments().join(' ');
    QString fault;
    if (isTimeVirtual) {
        const int code =
            virtualtime::run(QStringList{can, QString::number(programs.size())} + programs + inside,
                             drive, {outputs.file(0), outputs.file(1), outputs.file(2)}, &fault);
        return fault.isEmpty() ? code : complain(code < 0 ? kNoBoard : kUnwritten, fault);
    }
    const int code = sandbox::run(programs, !can.isEmpty(), inside, &fault);
    return code >= 0 ? code : complain(kNoBoard, fault);
}

/// The part of it in the machine in which time is virtual, with the arguments that play() gave to
/// it.
int playInVirtualTime(const QStringList &arguments)
{
    if (arguments.size() < 2)
        return complain(kBadInput,
                        QStringLiteral("%1 is for the bench itself").arg(virtualtime::kCommand));
    const QString &can = arguments[0];
    const int count = arguments[1].toInt();
    QString fault = can.isEmpty() ? QString() : virtualtime::addBus(can);
    if (fault.isEmpty() && !can.isEmpty())
        fault = RealBus::faultOf(can);
    if (!fault.isEmpty())
        return complain(kNoBoard, can + ": " + fault);
    const int code =
        sandbox::run(arguments.mid(2, count), !can.isEmpty(), arguments.mid(2 + count), &fault);
    return code >= 0 ? code : complain(kNoBoard, fault);
}

/// The part of it inside the sandbox, with the arguments that play() gave to it.
int playInside(const QStringList &arguments, const QCommandLineParser &options)
{
    if (arguments.size() != 9)
        return complain(kBadInput, QStringLiteral("%1 is for the bench itself").arg(kPlayInside));
    const QString &name = arguments[0];
    const double speed = options.value("speed").toDouble();
    sandbox::Inside inside(arguments[7], arguments[8]);

    Drive drive;
    QString fault = readDrive(arguments[1].toInt(), name, logCut(options), &drive);
    if (fault.isEmpty() && (speed < drive.slowest || speed > drive.fastest))
        fault = QStringLiteral("%1: holds at --speed %2 to %3 only")
                    .arg(name)
                    .arg(drive.slowest)
                    .arg(drive.fastest);
    for (const Statement &statement : drive.statements)
        if (fault.isEmpty() && options.isSet("renderer") && statement.needsStandIn())
            fault = QStringLiteral("%1:%2: this needs the bench's own renderer: %3")
                        .arg(name)
                        .arg(statement.line)
                        .arg(statement.text);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);

    Board board({options.value("controller"), drive.rendererFromStart, drive.hasWatchdog,
                 drive.hasService, options.value("can"), options.value("renderer")});
    fault = board.build();
    if (!fault.isEmpty())
        return complain(kNoBoard, fault);
    QFile log, json, report;
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
    QTextStream out(&output);
    signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as an error of writing
    const Outcome outcome = playDrive(
        board, drive,
        {speed, out, styleOf(options), openOutput(arguments[2], &log),
         openOutput(arguments[3], &json), openOutput(arguments[4], &report),
         QFileInfo(name).fileName(), options.value("report"), runFacts(options, arguments[6])},
        inside);
    return outcome.fault.isEmpty() ? outcome.code : complain(outcome.code, outcome.fault);
}

/// Writes the frames of a drive on standard output, as `candump -L` does.
int record(const QString &path, const LogCut &cut)
{
    const Descriptor descriptor(openDrive(path));
    if (descriptor < 0)
        return complain(kBadInput, withError(nameOf(path)));
    Drive drive;
    const QString fault = readDrive(descriptor, nameOf(path), cut, &drive);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);
    for (const QString &remark : drive.remarks)
        complain(kHeld, nameOf(path) + ": " + remark);
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly);
    for (const BusFrame &frame : drive.frames)
        output.write(candumpLine(frame, cut.channel.toUtf8()));
    if (!output.flush() || output.error() != QFileDevice::NoError)
        return complain(kFailed, "standard output: " + output.errorString());
    return kHeld;
}

int complainOfUsage(const QString &text)
{
    return complain(kBadInput, text + "; see pvm-bench --help");
}

QString unknownCommand(const QString &word)
{
    const QString nearest = nearestOf(word, kCommands);
    return QStringLiteral("unknown command '%1'").arg(word) +
           (nearest.isEmpty() ? QString() : QStringLiteral("; did you mean %1?").arg(nearest));
}

/// The options that a command knows; playing knows all but those of drive alone.
QStringList optionsOf(const QString &command)
{
    if (command == "record")
        return kOfLogs;
    if (command == "drive")
        return kOfDriving;
    return command == "check" ? kOfLogs + QStringList{"tag", "skip-tag"} : QStringList();
}

/// Returns what is wrong with them, or an empty text.
QString usageFault(const QString &command, const QStringList &drives,
                   const QCommandLineParser &options)
{
    for (const QString &option : options.optionNames())
        if (command == "drive" && kInRealTime.contains(option))
            return QStringLiteral("--%1 is not for drive: who drives by hand does so in real time")
                .arg(option);
        else if (command == "play" ? kOfDrivingAlone.contains(option)
                                   : !optionsOf(command).contains(option))
            return QStringLiteral("--%1 does nothing for %2").arg(option, command);
    bool isNumber = false;
    const double speed = options.value("speed").toDouble(&isNumber);
    if (!isNumber || !(speed >= 0.01 && speed <= 100))
        return "--speed must be a number from 0.01 to 100";
    if (options.isSet("virtual-time") && options.isSet("speed"))
        return "--virtual-time is as fast as it can be and takes no --speed";
    for (const char *option : {"from", "to", "skip-gaps"}) {
        int64_t us = 0;
        if (options.isSet(option) && !parseSeconds(options.value(option), &us))
            return QStringLiteral("--%1 must be seconds, such as 2.5").arg(option);
    }
    const bool isRendererEmpty = options.isSet("renderer") && options.value("renderer").isEmpty();
    const QStringList names =
        drives + QStringList{options.value("controller"), options.value("channel")};
    return names.contains(QString()) || isRendererEmpty ? "an empty name is none" : QString();
}

/// Plays several, each by a bench of its own.
int playMany(const QStringList &given, const QCommandLineParser &options)
{
    SuitePlan plan;
    QString fault = readSuite(given, options, &plan);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);
    plan.isTerminal = isTerminal();
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
    QTextStream out(&output);
    const int code = playSuite(plan, out, &fault);
    return fault.isEmpty() ? code : complain(code, fault);
}

/// Reads them without playing.
int check(const QStringList &given, const QCommandLineParser &options)
{
    QVector<ListedDrive> drives;
    const QString fault = listDrives(given, tagFilter(options), &drives);
    if (!fault.isEmpty())
        return complain(kBadInput, fault);
    QTextStream out(stdout);
    QTextStream errors(stderr);
    return checkDrives(drives, logCut(options), out, errors) ? kHeld : kBadInput;
}

int run(const QString &command, const QStringList &drives, const QCommandLineParser &options)
{
    if (command == "explain" || command == "capture") // they have options of their own
        return complainOfUsage(command + " is the first word");
    const QString fault = usageFault(command, drives, options);
    if (!fault.isEmpty())
        return complainOfUsage(fault);
    if (command == "words" && drives.isEmpty()) {
        QTextStream(stdout) << wordListing();
        return kHeld;
    }
    if (command == "words")
        return complainOfUsage("words takes nothing more");
    if (command == "check" && !drives.isEmpty())
        return check(drives, options);
    if (command == "play" && isSuite(drives, options))
        return playMany(drives, options);
    if (command == "drive") {
        if (!drives.isEmpty())
            return complainOfUsage("drive takes no drive file; --save names the one to write");
        QString driveFault;
        const int code = driveByHand(options, &driveFault);
        return driveFault.isEmpty() ? code : complain(code, driveFault);
    }
    if (drives.size() != 1)
        return complainOfUsage(QStringLiteral("%1 takes one drive file").arg(command));
    return command == "record" ? record(drives[0], logCut(options)) : play(drives[0], options);
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
        "Exit status: 0 everything expected held, or nothing was expected; 1 the drive failed,\n"
        "2 bad input, 3 the sandbox or the controller did not start, 4 something could not be\n"
        "written, 130 or 143 interrupted. Of many drives the highest.");
    const QString beside = QCoreApplication::applicationDirPath() + "/pvm-controller";
    parser.addPositionalArgument("play DRIVE",
                                 "plays a drive file, - for standard input; or many, and each "
                                 "*.drive of a folder",
                                 "play DRIVE|FOLDER...");
    parser.addPositionalArgument("drive [--save FILE]",
                                 "does what is typed, or comes out of a pipe, as it comes, and "
                                 "writes a drive of it; also --frames FILE",
                                 "| drive [--save FILE]");
    parser.addPositionalArgument("record DRIVE", "writes its frames as candump -L does",
                                 "| record DRIVE");
    parser.addPositionalArgument("explain --journal FILE [--can LOG]",
                                 "tells what happened in a car; also --at, --from, --to TIME, "
                                 "--report, --json",
                                 "| explain --journal FILE");
    parser.addPositionalArgument("capture --journal FILE [--can LOG]",
                                 "writes a drive that repeats it; also --from, --to TIME, "
                                 "--around TIME SECONDS, --without-clock",
                                 "| capture --journal FILE");
    parser.addPositionalArgument("check DRIVE", "reads drives, or those of folders, and plays none",
                                 "| check DRIVE|FOLDER...");
    parser.addPositionalArgument("compare DRIVE...",
                                 "tells in which facts two controllers differ, in virtual time: "
                                 "--controller A --controller B, and --report for one drive",
                                 "| compare DRIVE... --controller A --controller B");
    parser.addPositionalArgument("words", "lists the words of the drive language", "| words");
    parser.addPositionalArgument("help", "shows this", "| help");
    const auto version = parser.addVersionOption();
    parser.addOptions(
        {{{"h", "help"}, "Shows this help."},
         {"speed", "Drive seconds per real second, 0.01 to 100.", "X", "1"},
         {"controller", "The controller instead of the one beside, or a script that runs one.",
          "PATH", beside},
         {"virtual-time", "Computing takes no time, waiting is over at once."},
         {"renderer", "A renderer of one's own instead of the bench's stand-in.", "PATH"},
         {"verbose", "Tells all of it: also what was expected and held, in lines of any length."},
         {"log",
          "Writes the log of the controller, and of a renderer. - is standard output, here "
          "and below: what is told goes to standard error then.",
          "FILE"},
         {"report", "Writes a page to look at the drive with a browser.", "FILE"},
         {"json", "Writes every fact as a JSON object, one a line.", "FILE"},
         {"can", "Plays over a real CAN interface, the other end of can0's bus.", "IFACE"},
         {"channel", "The channel of the log that is played.", "NAME", "can0"},
         {"from", "Plays a log from this drive time on, which becomes 0.", "S"},
         {"to", "Plays a log up to this drive time.", "S"},
         {"skip-gaps", "Makes gaps in a log that are longer as long as this.", "S"},
         {"tolerant", "Leaves out lines of a log that cannot be read, and tells."}});

    addSuiteOptions(parser);
    // Of drive, whose help tells two of them, and one that is for the bench itself: whether
    // standard output is a terminal, seen from outside the sandbox.
    for (QCommandLineOption option :
         {QCommandLineOption("save", {}, "FILE"), QCommandLineOption("frames", {}, "FILE"),
          QCommandLineOption("terminal")}) {
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }

    QStringList given = QCoreApplication::arguments();
    if (given.size() == 3 && given[1] == "help" && kWithOwnOptions.contains(given[2]))
        given = QStringList{given[0], given[2], "--help"};
    if (given.value(1) == virtualtime::kCommand)
        return playInVirtualTime(given.mid(2));
    if (given.value(1) == "compare")
        return compare(given.mid(2));
    if (given.value(1) == "explain")
        return explain(given.mid(2));
    if (given.value(1) == "capture")
        return capture(given.mid(2));
    if (!parser.parse(given))
        return complainOfUsage(parser.errorText().remove(QRegularExpression("\\.$")));
    if (parser.isSet("help") && parser.positionalArguments().value(0) == "drive")
        showDriveHelp();
    if (parser.isSet("help"))
        parser.showHelp(kHeld);
    if (parser.isSet(version))
        parser.showVersion();

    QStringList words = parser.positionalArguments();
    const QString command = words.isEmpty() ? QString() : words.takeFirst();
    if (command == kPlayInside)
        return playInside(words, parser);
    if (command == kDriveInside) {
        QString fault;
        const int code = driveInside(words, parser, &fault);
        return fault.isEmpty() ? code : complain(code, fault);
    }
    if (command.isEmpty())
        return complainOfUsage("which command?");
    for (const QString &word : command == "help" ? words : QStringList{command})
        if (!kCommands.contains(word))
            return complainOfUsage(unknownCommand(word));
    if (command == "help")
        parser.showHelp(kHeld);
    return run(command, words, parser);
}
