// SPDX-License-Identifier: MIT

#include "bench/driving/drivecommand.h"

#include "bench/board/descriptor.h"
#include "bench/driving/console.h"
#include "bench/driving/driver.h"
#include "bench/driving/hand.h"
#include "bench/playing/boardoptions.h"
#include "bench/playing/outputs.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace {

// The arguments of the part inside, behind the options.
enum Argument { Words, HasKeys, Frames, FirstOutput, CommandLine = FirstOutput + Outputs::kCount };
constexpr int kArguments = CommandLine + 3; // with the sandbox's own two

/// Without close-on-exec, as all that the part inside reads. Returns what is wrong, or an empty
/// text.
QString openFrames(const QString &name, Descriptor *frames)
{
    if (name.isEmpty())
        return {};
    frames->reset(name == "-" ? dup(STDIN_FILENO)
                              : open(QFile::encodeName(name).constData(), O_RDONLY));
    struct stat about = {};
    if (*frames < 0 || fstat(*frames, &about) != 0)
        return name + ": " + strerror(errno);
    return S_ISREG(about.st_mode)
               ? name + ": a log that is over is played by pvm-bench play; --frames takes frames "
                        "that come now, such as candump's"
               : QString();
}

/// Where words come from: standard input, or the terminal where that brings frames.
int openWords(const QString &frames)
{
    if (frames != "-")
        return dup(STDIN_FILENO);
    return isTerminal() ? open("/dev/tty", O_RDWR) : -1;
}

/// A terminal's settings, which come back whatever has become of those who changed them.
class KeptSettings
{
public:
    explicit KeptSettings(int terminal) : mTerminal(terminal)
    {
        mIsKept = tcgetattr(mTerminal, &mSettings) == 0;
    }
    ~KeptSettings()
    {
        if (mIsKept)
            tcsetattr(mTerminal, TCSADRAIN, &mSettings);
    }
    Q_DISABLE_COPY(KeptSettings)

private:
    const int mTerminal;
    bool mIsKept;
    termios mSettings = {};
};

} // namespace

void showDriveHelp()
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Powers a board and does what is typed, or comes out of a pipe, as it comes, in real "
        "time.\n"
        "Words are those that pvm-bench words lists, without `at` and the time. On a terminal:\n" +
        Hand::help().join('\n') + '.');
    parser.addPositionalArgument("drive", "this command", "drive");
    parser.addOptions(
        {{"save", "Writes what was done as a drive that expects each picture that came.", "FILE"},
         {"frames",
          "The car's frames come from there as candump -L writes them, - for standard input; "
          "words of the car are refused then.",
          "FILE"},
         {"channel", "The channel of these frames, that of the first unless given.", "NAME"},
         {"controller", "The controller instead of the one beside.", "PATH"},
         {"renderer", "A renderer of one's own.", "PATH"},
         {"can", "Drives over a real CAN interface.", "IFACE"},
         {"log", "Writes the log of the controller, and of a renderer.", "FILE"},
         {"report", "Writes a page to look at the drive with a browser.", "FILE"},
         {"json", "Writes every fact as a JSON object, one a line.", "FILE"},
         {"verbose", "Tells all of it, in lines of any length."}});
    parser.showHelp(kHeld);
}

int driveByHand(const QCommandLineParser &options, QString *fault)
{
    Outputs outputs;
    *fault = outputs.open(options, {options.value("controller"), options.value("renderer")});
    if (!fault->isEmpty())
        return kBadInput;
    if (outputs.hasStandard()) // what is told gives way
        dup2(STDERR_FILENO, STDOUT_FILENO);
    Descriptor frames;
    *fault = openFrames(options.value("frames"), &frames);
    if (!fault->isEmpty())
        return kBadInput;
    QStringList programs;
    QStringList inside{kDriveInside};
    *fault = addBoardOptions(options, &programs, &inside);
    if (!fault->isEmpty())
        return kNoBoard;
    const Descriptor words(openWords(options.value("frames")));
    const bool hasKeys = isTerminal() && isatty(words) == 1;
    if (options.isSet("channel"))
        inside << "--channel=" + options.value("channel");
    inside << "--save=" + options.value("save") << "--" << QString::number(words)
           << QString::number(hasKeys) << QString::number(frames);
    for (int i = 0; i < Outputs::kCount; ++i)
        inside << QString::number(outputs.file(i));
    inside << QCoreApplication::arguments().join(' ');
    const KeptSettings settings(hasKeys ? int(words) : -1);
    const int code = sandbox::run(programs, options.isSet("can"), inside, fault,
                                  hasKeys ? sandbox::Keys::Inside : sandbox::Keys::Outside);
    return code >= 0 ? code : kNoBoard;
}

int driveInside(const QStringList &arguments, const QCommandLineParser &options, QString *fault)
{
    if (arguments.size() != kArguments) {
        *fault = QStringLiteral("%1 is for the bench itself").arg(kDriveInside);
        return kBadInput;
    }
    sandbox::Inside inside(arguments[kArguments - 2], arguments[kArguments - 1]);
    const QString renderer = options.value("renderer");
    Board board({options.value("controller"), true, true, false, options.value("can"), renderer});
    *fault = board.build();
    if (!fault->isEmpty())
        return kNoBoard;
    signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as an error of writing
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
    const int words = arguments[Words].toInt();
    std::unique_ptr<Console> console;
    if (arguments[HasKeys].toInt() != 0)
        console = std::make_unique<Console>(words);
    QTextStream out(console ? static_cast<QIODevice *>(console.get()) : &output);
    Style style = styleOf(options);
    style.isTerminal &= !console; // which has its own last lines
    QFile files[Outputs::kCount];
    QFileDevice *opened[Outputs::kCount];
    for (int i = 0; i < Outputs::kCount; ++i)
        opened[i] = openOutput(arguments[FirstOutput + i], &files[i]);
    const QString saved = options.value("save");
    const Outcome outcome =
        driveByHand(board,
                    {words, console.get(), arguments[Frames].toInt(),
                     options.isSet("channel") ? options.value("channel") : QString(), opened[3],
                     renderer.isEmpty()},
                    {1, out, style, opened[0], opened[1], opened[2],
                     saved.isEmpty() ? "driven by hand" : QFileInfo(saved).fileName(),
                     options.value("report"), runFacts(options, arguments[CommandLine])},
                    inside);
    *fault = outcome.fault;
    return outcome.code;
}
