// SPDX-License-Identifier: MIT

#include "bench/comparing/compare.h"

#include "bench/board/printable.h"
#include "bench/comparing/differences.h"
#include "bench/report/report.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr char kHelp[] = "; see pvm-bench --help";
const QStringList kPassedOn{"renderer", "can", "channel"}; // options of play
volatile sig_atomic_t gPlaying = 0;                        // the process that plays

int complain(int code, const QString &text)
{
    fprintf(stderr, "pvm-bench: %s\n", qPrintable(printable(text, 1000)));
    return code;
}

/// The bench that plays ends and clears away, with the status that tells the signal.
void passSignalsOn()
{
    struct sigaction action = {};
    action.sa_handler = [](int signal) {
        if (gPlaying > 0)
            kill(gPlaying, signal);
    };
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

/// `pvm-bench ARGUMENTS...`, of which only the complaints are heard. Returns its exit status.
int runBench(const QStringList &arguments)
{
    QList<QByteArray> words{QFile::encodeName(QCoreApplication::applicationFilePath())};
    for (const QString &argument : arguments)
        words << QFile::encodeName(argument);
    std::vector<char *> argv;
    argv.reserve(static_cast<size_t>(words.size()) + 1);
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before); // until there is a process to pass them on to
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0); // what a terminal sends to a whole group comes once
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nothing, STDIN_FILENO);
        dup2(nothing, STDOUT_FILENO);
        for (int signal : {SIGINT, SIGTERM, SIGHUP})
            std::signal(signal, SIG_DFL);
        sigprocmask(SIG_SETMASK, &before, nullptr);
        if (getppid() == parent)
            execv(argv[0], argv.data());
        _exit(EXIT_FAILURE);
    }
    gPlaying = pid;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(pid, &status, 0));
    gPlaying = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A whole fact on one line.
QString told(QJsonObject fact)
{
    if (fact.isEmpty())
        return "nothing more";
    const QJsonValue t = fact.take("t");
    QStringList words{t.isNull() ? "at boot" : QString::number(t.toDouble(), 'f', 2) + " s"};
    for (const char *member : {"kind", "subject", "value"})
        words << fact.take(member).toVariant().toString();
    for (const QString &member : fact.keys())
        words << member + '=' + fact[member].toVariant().toString();
    words.removeAll(QString());
    return printable(words.join(' '), 1000);
}

QByteArray lineOf(const QJsonObject &fact)
{
    return QJsonDocument(fact).toJson(QJsonDocument::Compact) + '\n';
}

class Comparison
{
public:
    Comparison(const QCommandLineParser &options, QTextStream &out)
        : mOptions(options), mControllers(options.values("controller")), mOut(out)
    {}

    /// Returns the exit status.
    int compare(const QString &drive)
    {
        const QTemporaryDir folder;
        const QString name = QFileInfo(drive).fileName();
        QByteArray facts[2];
        for (int side : {0, 1}) {
            if (isatty(STDERR_FILENO) == 1)
                fprintf(stderr, "\rplaying %s with %c\033[K\r", qPrintable(printable(name)),
                        "AB"[side]);
            QFile file(folder.filePath("facts"));
            // Under the same path: of what the sandbox is put together moves all of it by parts of
            // a microsecond.
            const QString controller = folder.filePath("pvm-controller");
            QFile::remove(controller);
            if (!QFile::copy(mControllers[side], controller))
                return complain(3, mControllers[side] + ": the controller cannot be read");
            const int code = play(drive, controller, file.fileName());
            if (isatty(STDERR_FILENO) == 1)
                fprintf(stderr, "\033[K");
            if (code > 1)
                return code;
            if (!file.open(QIODevice::ReadOnly))
                return complain(4, file.fileName() + ": " + file.errorString());
            facts[side] = file.readAll();
        }
        Differences found;
        const QString fault = findDifferences(facts[0], facts[1], folder.path(), &found);
        if (!fault.isEmpty())
            return complain(4, fault);
        tell(name, found);
        return write(facts[0], facts[1], found) ? !found.all.isEmpty() : 4;
    }

private:
    int play(const QString &drive, const QString &controller, const QString &facts) const
    {
        QStringList words{"play", "--virtual-time", "--json=" + facts,
                          "--controller=" + controller};
        for (const QString &option : kPassedOn)
            if (mOptions.isSet(option))
                words << "--" + option + '=' + mOptions.value(option);
        return runBench(words << "--" << drive);
    }

    static QString summary(const Differences &found)
    {
        const double from = found.pictureFrom();
        return QStringLiteral("%1 facts only with A, %2 only with B; the picture %3")
            .arg(found.only('A'))
            .arg(found.only('B'))
            .arg(from < 0 ? "is the same"
                          : QStringLiteral("differs from %1 s on").arg(from, 0, 'f', 2));
    }

    void tell(const QString &name, const Differences &found)
    {
        mOut << printable(name) << ": ";
        if (found.all.isEmpty())
            mOut << "the same " << found.facts << " facts\n";
        else
            mOut << summary(found) << "\n  A: " << told(found.firstA)
                 << "\n  B: " << told(found.firstB) << '\n';
        mOut.flush();
    }

    /// The drive with A; of B picture and why, and the facts that only one of them has.
    bool write(const QByteArray &a, const QByteArray &b, const Differences &found) const
    {
        if (!mOptions.isSet("report"))
            return true;
        QByteArray page;
        for (const QByteArray &line : a.split('\n')) {
            const QString kind = QJsonDocument::fromJson(line)["kind"].toString();
            if (!kind.isEmpty() && kind != "failure" && kind != "result")
                page += line + '\n';
        }
        for (const QByteArray &line : b.split('\n')) {
            QJsonObject fact = QJsonDocument::fromJson(line).object();
            const QString kind = fact["kind"].toString();
            if (kind == "power" || kind == "picture" || kind == "why") {
                fact["kind"] = "B " + kind;
                page += lineOf(fact);
            }
        }
        for (const Differences::Difference &difference : found.all)
            page += lineOf({{"t", difference.fact["t"]},
                            {"kind", "difference"},
                            {"subject", told(difference.fact)},
                            {"value", QString(difference.side)}});
        for (const QString &remark :
             {summary(found), "A is " + mControllers[0], "B is " + mControllers[1],
              QString("what is not said to be of B is of A")})
            page += lineOf({{"t", 0}, {"kind", "remark"}, {"subject", remark}, {"value", ""}});
        page += lineOf({{"t", 0},
                        {"kind", "result"},
                        {"subject", ""},
                        {"value", found.all.isEmpty() ? "the same" : "different"}});
        QSaveFile file(mOptions.value("report"));
        file.setDirectWriteFallback(true);
        page = reportPage(page);
        if (file.open(QIODevice::WriteOnly) && file.write(page) == page.size() && file.commit())
            return true;
        complain(4, file.fileName() + ": " + file.errorString());
        return false;
    }

    const QCommandLineParser &mOptions;
    const QStringList mControllers;
    QTextStream &mOut;
};

/// What is wrong with what was asked for, or an empty text.
QString faultOf(const QCommandLineParser &options)
{
    const QStringList drives = options.positionalArguments();
    const QStringList controllers = options.values("controller");
    if (drives.isEmpty() || controllers.size() != 2)
        return QString("compare takes drive files and two controllers") + kHelp;
    if (drives.contains("-"))
        return "compare plays a drive twice, and so no standard input";
    if (options.isSet("report") && drives.size() != 1)
        return QString("--report shows one drive") + kHelp;
    for (const QString &given : drives + controllers)
        if (given.isEmpty())
            return QString("an empty name is none") + kHelp;
        else if (options.isSet("report") && QFileInfo(given) == QFileInfo(options.value("report")))
            return given + ": --report would write over the drive or a controller";
    return {};
}

} // namespace

int compare(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "compare DRIVE... --controller A --controller B: tells in which "
        "facts two controllers differ, in virtual time.");
    parser.addOptions({{"controller", "One of the two.", "PATH"},
                       {"report", "Writes a page with both pictures, for one drive.", "FILE"}});
    for (const QString &option : kPassedOn)
        parser.addOption({option, "As for play.", "VALUE"});
    const QCommandLineOption help = parser.addHelpOption();
    if (!parser.parse(QStringList{"pvm-bench"} + arguments))
        return complain(2, parser.errorText().remove(QRegularExpression("\\.$")) + kHelp);
    if (parser.isSet(help))
        parser.showHelp();
    const QString fault = faultOf(parser);
    if (!fault.isEmpty())
        return complain(2, fault);
    passSignalsOn();
    QTextStream out(stdout);
    Comparison comparison(parser, out);
    int status = 0;
    for (const QString &drive : parser.positionalArguments()) {
        const int code = comparison.compare(drive);
        if (code > 1)
            return code;
        status = qMax(status, code);
    }
    return out.status() == QTextStream::Ok ? status
                                           : complain(4, "standard output could not be written");
}
