// SPDX-License-Identifier: MIT

#include "bench/virtual/virtualtime.h"

#include "bench/board/descriptor.h"
#include "bench/board/sandbox.h"
#include "bench/board/stopsignal.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTemporaryDir>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <vector>

namespace {

constexpr int kMemoryMiB = 512;
constexpr char kStart[] = "1700000000000000000"; // ns since 1970; any, but always the same
constexpr int kLookMs = 20;                      // between two looks at what is told
constexpr int kPatienceMs = 10000;               // with a machine that was told to end

bool write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

/// All of it, also to a pipe that is read slowly.
bool writeAll(int fd, const QByteArray &bytes)
{
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t size =
            ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (size >= 0)
            done += size;
        else if (errno == EAGAIN) {
            pollfd place{fd, POLLOUT, 0};
            poll(&place, 1, -1);
        } else if (errno != EINTR)
            return false;
    }
    return true;
}

/// The machine's memory is a file that is mapped, parts of it to be executed.
QByteArray memoryFolder(const QString &otherwise)
{
    struct statvfs shared = {};
    const bool isFit = statvfs("/dev/shm", &shared) == 0 && (shared.f_flag & ST_NOEXEC) == 0 &&
                       shared.f_bavail * shared.f_frsize >> 20 > kMemoryMiB &&
                       access("/dev/shm", W_OK) == 0;
    return isFit ? "/dev/shm" : QFile::encodeName(otherwise);
}

/// Its processes take turns: on one core none has to be woken on another. Two machines are not to
/// share one: the core is the next whose name nobody has, and the name is held for as long as a
/// process of this machine lives.
void takeCore()
{
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    const int first = sched_getcpu();
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        const int core = (first + i) % CPU_SETSIZE;
        if (!CPU_ISSET(core, &allowed))
            continue;
        const QByteArray name = "pvm-bench-core-" + QByteArray::number(core);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX; // no file: the first byte of the name is 0
        memcpy(address.sun_path + 1, name.constData(), static_cast<size_t>(name.size()));
        const int holder = socket(AF_UNIX, SOCK_DGRAM, 0);
        if (bind(holder, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
            CPU_ZERO(&allowed);
            CPU_SET(core, &allowed);
            sched_setaffinity(0, sizeof allowed, &allowed);
            return;
        }
        close(holder);
    }
}

class Machine
{
public:
    QString prepare(const QStringList &arguments, int input, const QList<int> &outputs)
    {
        const QDir beside(QCoreApplication::applicationDirPath());
        mKernel = QFile::encodeName(beside.filePath("pvm-bench-kernel"));
        if (!QFile::exists(mKernel))
            return QSysInfo::currentCpuArchitecture() == "x86_64"
                       ? mKernel + " is missing: scripts/kernel builds it"
                       : QString("virtual time takes an amd64 machine");
        QFile drive;
        drive.open(input, QIODevice::ReadOnly);
        const QByteArray text = drive.readAll();
        stopsignal::await(); // from here on there is something to be cleared away
        QByteArray words;
        QStringList all{"/usr/bin/env", "-i"};
        for (const QByteArray &setting : sandbox::environment())
            all << QFile::decodeName(setting);
        all << QCoreApplication::applicationFilePath() << virtualtime::kCommand;
        for (const QString &word : all + arguments)
            words += QFile::encodeName(word) + '\0';
        bool isWritten = mFolder.isValid() && QDir(mFolder.path()).mkdir("descriptors") &&
                         write(path("words"), words) && write(descriptor(input), text) &&
                         QFile::link(beside.filePath("pvm-bench-virtual"), path("init"));
        for (int fd : outputs + QList<int>{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            isWritten = isWritten && (fd == input || fd < 0 || write(descriptor(fd), {}));
        return isWritten ? QString() : mFolder.path() + ": " + strerror(errno);
    }

    /// False if nobody reads any longer what is told.
    bool run()
    {
        start();
        bool isRead = true;
        QElapsedTimer sinceTold;
        for (pollfd end{mEnd, POLLIN, 0}; isRead && poll(&end, 1, kLookMs) <= 0;) {
            isRead = mOutput.pass() && mErrors.pass();
            if (stopsignal::told() != 0 && !sinceTold.isValid()) {
                write(path("signal.new"), QByteArray::number(stopsignal::told()));
                QFile::rename(path("signal.new"), path("signal"));
                sinceTold.start();
            }
            if (sinceTold.isValid() && sinceTold.hasExpired(kPatienceMs))
                break; // something in there computes for ever, and time stands still
        }
        kill(mPid, SIGTERM); // it ends its processes
        TEMP_FAILURE_RETRY(waitpid(mPid, nullptr, 0));
        return isRead && mOutput.pass() && mErrors.pass();
    }

    int code() const
    {
        QFile file(path("status"));
        bool isNumber = false;
        const int code =
            file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt(&isNumber) : 0;
        return isNumber ? code : stopsignal::told() != 0 ? 128 + stopsignal::told() : -1;
    }

    /// Writes what was written in there behind what stands in an output, if anything does.
    bool give(int fd) const
    {
        QFile file(descriptor(fd));
        return !file.open(QIODevice::ReadOnly) || writeAll(fd, file.readAll());
    }

    /// What the kernel said last.
    QString words() const
    {
        QFile file(path("kernel"));
        file.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(file.readAll().right(300)).simplified();
    }

private:
    /// A file that grows, of which the news are passed on.
    struct Tail
    {
        QFile file;
        int to;

        bool pass()
        {
            return (file.isOpen() || file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) &&
                   writeAll(to, file.readAll());
        }
    };

    QString path(const char *name) const { return mFolder.filePath(name); }
    QString descriptor(int fd) const
    {
        return mFolder.filePath("descriptors/" + QString::number(fd));
    }

    void start()
    {
        const QByteArray folder = QFile::encodeName(mFolder.path());
        std::vector<QByteArray> words{mKernel,
                                      "mem=" + QByteArray::number(kMemoryMiB) + "M",
                                      "root=/dev/root",
                                      "rootfstype=hostfs",
                                      "rootflags=/",
                                      "ro",
                                      "init=" + folder + "/init",
                                      "seccomp=auto", // else its processes are traced
                                      "time-travel=inf-cpu",
                                      QByteArray("time-travel-start=") + kStart,
                                      "quiet",
                                      "con=null",
                                      "con0=null,fd:1", // its last words
                                      "uml_dir=" + folder,
                                      "--",
                                      folder};
        std::vector<QByteArray> settings{QByteArray("HOME=") + folder,
                                         QByteArray("TMPDIR=") + memoryFolder(mFolder.path())};
        std::vector<char *> argv, envp;
        for (QByteArray &word : words)
            argv.push_back(word.data());
        for (QByteArray &setting : settings)
            envp.push_back(setting.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
        const QByteArray said = QFile::encodeName(path("kernel"));
        const pid_t parent = getpid();
        mPid = fork();
        if (mPid != 0) {
            mEnd.reset(static_cast<int>(syscall(SYS_pidfd_open, mPid, 0)));
            return;
        }
        setpgid(0, 0); // what a terminal sends to a whole group reaches the bench alone
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(EXIT_FAILURE);
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
            std::signal(signal, SIG_DFL);
        takeCore();
        personality(ADDR_NO_RANDOMIZE); // its memory is as large each time
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(open(said.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDOUT_FILENO);
        dup2(STDOUT_FILENO, STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(EXIT_FAILURE);
    }

    QTemporaryDir mFolder; ///< what goes in and comes out
    QByteArray mKernel;
    pid_t mPid = -1;
    Descriptor mEnd; ///< readable when the machine is off
    Tail mOutput{QFile(descriptor(STDOUT_FILENO)), STDOUT_FILENO};
    Tail mErrors{QFile(descriptor(STDERR_FILENO)), STDERR_FILENO};
};

} // namespace

int virtualtime::run(const QStringList &arguments, int input, const QList<int> &outputs,
                     QString *fault)
{
    Machine machine;
    *fault = machine.prepare(arguments, input, outputs);
    if (!fault->isEmpty())
        return -1;
    if (!machine.run()) {
        *fault = "standard output: nobody reads it any more";
        return EXIT_FAILURE;
    }
    const int code = machine.code();
    if (code < 0)
        *fault = "virtual time takes a machine that allows seccomp filters or ptrace; the kernel "
                 "ended early: " +
                 machine.words();
    for (int fd : outputs)
        if (fd >= 0 && !machine.give(fd)) {
            *fault = QString("an output: ") + strerror(errno);
            return EXIT_FAILURE;
        }
    return code;
}

QString virtualtime::addBus(const QString &other)
{
    QProcess ip;
    ip.setProcessChannelMode(QProcess::MergedChannels);
    for (const QStringList &words :
         {QStringList{"add", "can0", "type", "vxcan", "peer", "name", other},
          QStringList{"set", other, "up"}}) {
        ip.start("ip", QStringList{"link"} + words);
        ip.waitForFinished();
        if (ip.error() == QProcess::FailedToStart || ip.exitCode() != 0)
            return "ip link: " +
                   QString::fromLocal8Bit(ip.readAll() + ip.errorString().toLocal8Bit())
                       .simplified();
    }
    return {};
}
