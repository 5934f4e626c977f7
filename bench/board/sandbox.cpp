// SPDX-License-Identifier: MIT

#include "bench/board/sandbox.h"

#include "bench/board/descriptor.h"
#include "bench/board/places.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>

namespace {

const QString kFolder = QString(places::kBench) + '/';
constexpr char kStarted = 'S';

int gInside = -1; // the socket to the inner process, for the signal handler

// A root of its own, so that nothing of the host can be written and every mount point can be made.
QStringList rootArguments()
{
    const QString fixed = "--unshare-ipc --unshare-pid --unshare-uts --ro-bind /usr /usr "
                          "--proc /proc --dev /dev --tmpfs /tmp --tmpfs /run --tmpfs /sys "
                          "--tmpfs /etc --chdir /";
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

QProcessEnvironment environment()
{
    QProcessEnvironment environment;
    environment.insert("PATH", "/usr/bin:/bin");
    environment.insert("HOME", "/tmp");
    environment.insert("LANG", "C.UTF-8");
    for (const char *name : {"TERM", "NO_COLOR", "TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS",
                             "LSAN_OPTIONS", "TSAN_OPTIONS"})
        if (qEnvironmentVariableIsSet(name))
            environment.insert(name, qEnvironmentVariable(name));
    return environment;
}

/// Leads a process group of its own: what a terminal sends to a whole group reaches the outer
/// process alone.
class GroupProcess : public QProcess
{
protected:
    void setupChildProcess() override { setpgid(0, 0); }
};

void tellInside(int signal)
{
    const int error = errno;
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
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
        *fault = QString("no socket: ") + strerror(errno);
        return -1;
    }
    const Descriptor outer(ends[0]);
    Descriptor inner(ends[1]);
    fcntl(outer, F_SETFD, FD_CLOEXEC);
    const Descriptor errorOutput(dup(STDERR_FILENO));
    gInside = outer;
    catchSignals();

    GroupProcess process;
    process.setProcessChannelMode(QProcess::ForwardedOutputChannel);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setProcessEnvironment(environment());
    process.start(bwrap, rootArguments() + programArguments(hasRealCan) +
                             controllerArguments(controller) + QStringList{kFolder + "pvm-bench"} +
                             arguments +
                             QStringList{QString::number(inner), QString::number(errorOutput)});
    process.waitForStarted(-1);
    inner.reset();
    const bool isInside = waitForInside(outer);
    process.waitForFinished(-1);
    if (isInside)
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : EXIT_FAILURE;
    const QString said = QString::fromLocal8Bit(process.readAllStandardError()).simplified();
    *fault = "the sandbox cannot be made: " + (said.isEmpty() ? process.errorString() : said);
    return -1;
}

sandbox::Inside::Inside(const QString &socket, const QString &errorOutput) : mSocket(socket.toInt())
{
    fcntl(mSocket, F_SETFD, FD_CLOEXEC);
    dup2(errorOutput.toInt(), STDERR_FILENO);
    close(errorOutput.toInt());
    send(mSocket, &kStarted, 1, MSG_NOSIGNAL);
}

void sandbox::Inside::watch(const std::function<void(int)> &interrupted)
{
    auto *notifier = new QSocketNotifier(mSocket, QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [this, interrupted] {
        char signal = 0;
        if (recv(mSocket, &signal, 1, MSG_DONTWAIT) != 1)
            _exit(EXIT_FAILURE); // and the kernel ends all that runs in this namespace
        interrupted(signal);
    });
}
