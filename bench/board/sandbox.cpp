// SPDX-License-Identifier: MIT

#include "bench/board/sandbox.h"

#include "bench/board/descriptor.h"
#include "bench/board/places.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <vector>

namespace {

const QString kFolder = QString(places::kBench) + '/';
constexpr char kStarted = 'S';

volatile sig_atomic_t gTold = 0; // the signal that the inner process was told
int gInside = -1;                // the socket to the inner process, for the signal handler

// A root of its own, so that nothing of the host can be written and every mount point can be made.
QStringList rootArguments()
{
    const QString fixed = "--unshare-ipc --unshare-pid --unshare-uts --ro-bind /usr /usr "
                          "--proc /proc --dev /dev --size 16777216 --tmpfs /tmp --tmpfs /run "
                          "--tmpfs /sys --tmpfs /etc --chdir /";
    QStringList arguments = fixed.split(' ');
    for (const char *folder : {"/bin", "/lib", "/lib64", "/sbin"}) {
        const QFileInfo info(folder);
        if (info.isSymLink())
            arguments << "--symlink" << info.symLinkTarget() << info.filePath();
        else if (info.exists())
            arguments << "--ro-bind" << info.filePath() << info.filePath();
    }
    for (const char *file : {"ld.so.cache", "localtime", "passwd", "group", "fonts"}) {
        const QString path = QString("/etc/") + file;
        arguments << "--ro-bind-try" << path << path;
    }
    return arguments;
}

QStringList programArguments(bool hasRealCan)
{
    const QDir beside(QCoreApplication::applicationDirPath());
    const QDir canPlugins(QLibraryInfo::location(QLibraryInfo::PluginsPath) + "/canbus");
    QStringList arguments;
    for (const char *name : {"pvm-bench", "pvm-bench-renderer", "pvm-bench-command"})
        arguments << "--ro-bind" << beside.filePath(name) << kFolder + name;
    // The system's own plugin, and the right to set can0 up and down.
    if (hasRealCan)
        return arguments << "--cap-add"
                         << "CAP_NET_ADMIN";
    // Two plugins of one key would leave it to chance which one the controller gets.
    const QString plugin = "libpvm-bench-can.so";
    return arguments << "--tmpfs" << canPlugins.path() << "--ro-bind" << beside.filePath(plugin)
                     << canPlugins.filePath(plugin);
}

/// The controller keeps its path, and so does what lies beside it or beside the bench: it may be a
/// script that runs one of them under a debugger.
QStringList controllerArguments(const QString &controller)
{
    QStringList arguments;
    for (const QString &path : {controller, QCoreApplication::applicationFilePath()}) {
        const QString folder = QFileInfo(path).path();
        // The sandbox's own folders stay its own.
        const bool isShallow = folder.count('/') < 2;
        const QString bound = isShallow ? path : folder;
        if (!bound.startsWith("/usr/"))
            arguments << "--ro-bind" << bound << bound;
    }
    return arguments;
}

std::vector<QByteArray> environment()
{
    std::vector<QByteArray> words{"PATH=/usr/bin:/bin", "HOME=/tmp", "LANG=C.UTF-8"};
    for (const char *name : {"TERM", "NO_COLOR", "TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS",
                             "LSAN_OPTIONS", "TSAN_OPTIONS"})
        if (qEnvironmentVariableIsSet(name))
            words.push_back(QByteArray(name) + '=' + qgetenv(name));
    return words;
}

std::vector<char *> pointersTo(std::vector<QByteArray> &words)
{
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (QByteArray &word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// The process's id. No QProcess: its child waits for a word from its parent, for ever if that is
/// killed just then; this one goes on by itself and finds its parent gone.
pid_t start(const QString &program, const QStringList &arguments, int errorOutput)
{
    std::vector<QByteArray> words{QFile::encodeName(program)};
    words.reserve(static_cast<size_t>(arguments.size()) + 1);
    for (const QString &argument : arguments)
        words.push_back(QFile::encodeName(argument));
    std::vector<QByteArray> settings = environment();
    const std::vector<char *> argv = pointersTo(words);
    const std::vector<char *> envp = pointersTo(settings);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    setpgid(0, 0); // what a terminal sends to a whole group reaches the outer process alone
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(errorOutput, STDERR_FILENO);
    execve(argv[0], argv.data(), envp.data());
    _exit(EXIT_FAILURE);
}

QString readAll(int fd)
{
    QByteArray text;
    char piece[1024];
    for (ssize_t size = 0; (size = TEMP_FAILURE_RETRY(read(fd, piece, sizeof piece))) > 0;)
        text.append(piece, static_cast<int>(size));
    return QString::fromLocal8Bit(text).simplified();
}

void tellInside(int signal)
{
    const int error = errno;
    gTold = signal;
    const char number = static_cast<char>(signal);
    send(gInside, &number, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    errno = error;
}

void catchSignals()
{
    struct sigaction action = {};
    action.sa_handler = tellInside;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

/// False when bubblewrap has ended without running the inner process.
bool waitForInside(int socket)
{
    char byte = 0;
    return TEMP_FAILURE_RETRY(recv(socket, &byte, 1, 0)) == 1 && byte == kStarted;
}

} // namespace

int sandbox::run(const QString &controller, bool hasRealCan, const QStringList &arguments,
                 QString *fault)
{
    const QString bwrap = QStandardPaths::findExecutable("bwrap");
    if (bwrap.isEmpty()) {
        *fault = "bubblewrap is missing: install the package `bubblewrap`";
        return -1;
    }
    int ends[2];
    int errors[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
        *fault = QString("no socket: ") + strerror(errno);
        return -1;
    }
    const Descriptor outer(ends[0]);
    Descriptor inner(ends[1]);
    const Descriptor said(errors[0]);
    Descriptor saying(errors[1]);
    fcntl(outer, F_SETFD, FD_CLOEXEC);
    const Descriptor errorOutput(dup(STDERR_FILENO));
    gInside = outer;
    catchSignals();

    const pid_t pid =
        start(bwrap,
              rootArguments() + programArguments(hasRealCan) + controllerArguments(controller) +
                  QStringList{kFolder + "pvm-bench"} + arguments +
                  QStringList{QString::number(inner), QString::number(errorOutput)},
              saying);
    inner.reset();
    saying.reset();
    const bool isInside = waitForInside(outer);
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(pid, &status, 0));
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
    if (isInside) // one that was still reading its drive ends by another signal than it was told
        return gTold != 0 && code > 128 ? 128 + gTold : code;
    *fault = "the sandbox cannot be made: " + readAll(said);
    return -1;
}

sandbox::Inside::Inside(const QString &socket, const QString &errorOutput) : mSocket(socket.toInt())
{
    fcntl(mSocket, F_SETFD, FD_CLOEXEC);
    dup2(errorOutput.toInt(), STDERR_FILENO);
    close(errorOutput.toInt());
    send(mSocket, &kStarted, 1, MSG_NOSIGNAL);
    // Until somebody watches, any word on the socket and its end are the end of this process, which
    // may be reading a drive from a pipe for as long as its writer likes.
    fcntl(mSocket, F_SETOWN, getpid());
    fcntl(mSocket, F_SETSIG, SIGTERM);
    fcntl(mSocket, F_SETFL, fcntl(mSocket, F_GETFL) | O_ASYNC);
    char word = 0;
    if (recv(mSocket, &word, 1, MSG_DONTWAIT | MSG_PEEK) >= 0)
        raise(SIGTERM);
}

void sandbox::Inside::watch(const std::function<void(int)> &interrupted)
{
    fcntl(mSocket, F_SETFL, fcntl(mSocket, F_GETFL) & ~O_ASYNC);
    auto *notifier = new QSocketNotifier(mSocket, QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [this, interrupted] {
        char signal = 0;
        if (recv(mSocket, &signal, 1, MSG_DONTWAIT) != 1)
            _exit(EXIT_FAILURE); // and the kernel ends all that runs in this namespace
        interrupted(signal);
    });
}
