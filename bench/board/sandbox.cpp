// SPDX-License-Identifier: MIT

#include "bench/board/sandbox.h"

#include "bench/board/descriptor.h"
#include "bench/board/places.h"
#include "bench/board/sandboxroot.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

namespace {

const QString kFolder = QString(places::kBench) + '/';

volatile sig_atomic_t gToldInside = 0; // the signal that the inner process was told
int gInside = -1;                      // the socket to the inner process, for the signal handler

// A root of its own, so that nothing of the host can be written and every mount point can be made.
void addSystem(SandboxRoot &root)
{
    root.bind("/usr", "/usr");
    for (const char *folder : {"/tmp", "/run", "/sys", "/etc"})
        root.own(folder);
    for (const char *folder : {"/bin", "/lib", "/lib64", "/sbin"}) {
        const QFileInfo info(folder);
        if (info.isSymLink())
            root.link(QFile::symLinkTarget(folder), folder);
        else if (info.exists())
            root.bind(folder, folder);
    }
    for (const char *file : {"ld.so.cache", "localtime", "passwd", "group", "fonts"}) {
        const QString path = QString("/etc/") + file;
        if (QFile::exists(path))
            root.bind(path, path);
    }
}

void addPrograms(SandboxRoot &root, bool hasRealCan)
{
    const QDir beside(QCoreApplication::applicationDirPath());
    for (const char *name : {"pvm-bench", "pvm-bench-renderer", "pvm-bench-command"})
        root.bind(beside.filePath(name), kFolder + name);
    if (hasRealCan) // the system's own plugin
        return;
    // Two plugins of one key would leave it to chance which one the controller gets.
    const QString plugin = "libpvm-bench-can.so";
    for (const QString &plugins : QCoreApplication::libraryPaths()) {
        const QDir canPlugins(plugins + "/canbus");
        if (canPlugins.exists()) {
            root.own(canPlugins.path());
            root.bind(beside.filePath(plugin), canPlugins.filePath(plugin));
        }
    }
}

/// A program keeps its path, and so does what lies beside it or beside the bench: it may be a
/// script that runs one of them under a debugger.
void addGiven(SandboxRoot &root, const QStringList &programs)
{
    for (const QString &path : programs + QStringList{QCoreApplication::applicationFilePath()}) {
        const QString folder = QFileInfo(path).path();
        // The sandbox's own folders stay its own.
        const bool isShallow = folder.count('/') < 2;
        const QString bound = isShallow ? path : folder;
        if (!bound.startsWith("/usr/"))
            root.bind(bound, bound);
    }
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
pid_t start(const QString &program, const QStringList &arguments, int errorOutput,
            sandbox::Keys keys)
{
    std::vector<QByteArray> words{QFile::encodeName(program)};
    words.reserve(static_cast<size_t>(arguments.size()) + 1);
    for (const QString &argument : arguments)
        words.push_back(QFile::encodeName(argument));
    std::vector<QByteArray> settings = sandbox::environment();
    const std::vector<char *> argv = pointersTo(words);
    const std::vector<char *> envp = pointersTo(settings);
    const bool isProot = program.endsWith("/proot");
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    // What a terminal sends to a whole group is for the outer process alone.
    const bool isInGroup = keys == sandbox::Keys::Inside;
    if (!isInGroup)
        setpgid(0, 0);
    // Else the default: a shell starts what runs in the background with it ignored.
    signal(SIGINT, isInGroup ? SIG_IGN : SIG_DFL);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(errorOutput, STDERR_FILENO);
    if (!isProot || lookOldForProot())
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
    gToldInside = signal;
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

/// The inner process's id as it sees itself, or -1 when the sandbox's maker has ended without
/// running it.
pid_t waitForInside(int socket)
{
    pid_t pid = -1;
    return TEMP_FAILURE_RETRY(recv(socket, &pid, sizeof pid, 0)) == sizeof pid ? pid : -1;
}

void waitForEnd(pid_t pid)
{
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    pollfd end{process, POLLIN, 0};
    while (process >= 0 && poll(&end, 1, -1) < 0 && errno == EINTR) {
    }
}

QList<QByteArray> children()
{
    QFile file("/proc/thread-self/children");
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ') : QList<QByteArray>();
}

/// What the sandbox has left behind is this process's own by now: the first process of its PID
/// namespace, with which all others there end, or, without such a namespace, each of them, for
/// which proot waits.
void endAllBut(const QList<QByteArray> &before)
{
    for (bool isEnding = true; isEnding;) {
        isEnding = false;
        for (const QByteArray &child : children())
            if (!child.isEmpty() && !before.contains(child)) {
                kill(child.toInt(), SIGKILL);
                isEnding = waitpid(child.toInt(), nullptr, 0) > 0;
            }
    }
}

/// Makes the sandbox with @p maker and runs the inner process there, whose exit status goes to
/// @p code. False with the reason in @p fault when nothing ran.
bool runInside(const QString &maker, const QStringList &arguments, sandbox::Keys keys, int *code,
               QString *fault)
{
    const QString program = QStandardPaths::findExecutable(maker);
    if (program.isEmpty()) {
        *fault = maker + " is missing: install the package `" +
                 (maker == "bwrap" ? "bubblewrap`" : maker + '`');
        return false;
    }
    int ends[2];
    int errors[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
        *fault = QString("no socket: ") + strerror(errno);
        return false;
    }
    const Descriptor outer(ends[0]);
    Descriptor inner(ends[1]);
    const Descriptor said(errors[0]);
    Descriptor saying(errors[1]);
    fcntl(outer, F_SETFD, FD_CLOEXEC);
    const Descriptor errorOutput(dup(STDERR_FILENO));
    gInside = outer;
    if (gToldInside != 0) // between two makers
        tellInside(gToldInside);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const QList<QByteArray> before = children();

    const pid_t pid = start(
        program, arguments + QStringList{QString::number(inner), QString::number(errorOutput)},
        saying, keys);
    inner.reset();
    saying.reset();
    const pid_t insidePid = waitForInside(outer);
    const bool isInside = insidePid >= 0;
    if (isInside && maker == "proot") {
        waitForEnd(insidePid);
        endAllBut(before + QList<QByteArray>{QByteArray::number(pid)});
    }
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(pid, &status, 0));
    endAllBut(before);
    *code = WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
    // One that was still reading its drive ends by another signal than it was told.
    if (gToldInside != 0 && (*code > 128 || !isInside))
        *code = 128 + gToldInside;
    if (!isInside)
        *fault = maker + ": " + readAll(said).remove(QRegularExpression("^" + maker + ": "));
    return isInside;
}

} // namespace

std::vector<QByteArray> sandbox::environment()
{
    std::vector<QByteArray> words{"PATH=/usr/bin:/bin", "HOME=/tmp", "LANG=C.UTF-8"};
    for (const char *name : {"TERM", "NO_COLOR", "TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS",
                             "LSAN_OPTIONS", "TSAN_OPTIONS"})
        if (qEnvironmentVariableIsSet(name))
            words.push_back(QByteArray(name) + '=' + qgetenv(name));
    return words;
}

int sandbox::run(const QStringList &programs, bool hasRealCan, const QStringList &arguments,
                 QString *fault, Keys keys)
{
    SandboxRoot root;
    addSystem(root);
    addPrograms(root, hasRealCan);
    addGiven(root, programs);
    const QStringList inside = QStringList{kFolder + "pvm-bench"} + arguments;
    const QStringList rights =
        hasRealCan ? QStringList{"--cap-add", "CAP_NET_ADMIN"} : QStringList{};
    catchSignals();

    int code = 0;
    if (runInside("bwrap", root.bubblewrapArguments() + rights + inside, keys, &code, fault) ||
        gToldInside != 0)
        return code;
    QTemporaryDir folder;
    const QString top = folder.path() + "/root";
    QDir().mkpath(top);
    QString prootFault;
    fprintf(stderr, "pvm-bench: %s; trying proot instead\n", qPrintable(*fault));
    const bool hasRun =
        runInside("proot", root.prootArguments(top) + inside, keys, &code, &prootFault);
    removeSystemVObjects(top + "/tmp");
    if (hasRun || gToldInside != 0)
        return code;
    *fault = QStringLiteral("the sandbox cannot be made: %1; %2. Allow user namespaces, or ptrace "
                            "with proot installed")
                 .arg(*fault, prootFault);
    return -1;
}

sandbox::Inside::Inside(const QString &socket, const QString &errorOutput) : mSocket(socket.toInt())
{
    fcntl(mSocket, F_SETFD, FD_CLOEXEC);
    dup2(errorOutput.toInt(), STDERR_FILENO);
    close(errorOutput.toInt());
    const pid_t pid = getpid();
    send(mSocket, &pid, sizeof pid, MSG_NOSIGNAL);
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
