#include "bench/board/sandbox.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include <vector>

namespace {

const QString kFolder = QStringLiteral("/bench");
constexpr int kPreflightTimeoutMs = 10000;

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

QString beside(const char *name)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(name);
}

// A root of its own, so that nothing of the host can be written and every mount point can be made.
QStringList rootArguments()
{
    QStringList arguments = words("--unshare-ipc --unshare-pid --unshare-uts --die-with-parent "
                                  "--ro-bind /usr /usr --proc /proc --dev /dev "
                                  "--tmpfs /tmp --tmpfs /run --tmpfs /sys --tmpfs /etc --chdir /");
    for (const char *folder : {"/bin", "/lib", "/lib64", "/sbin"}) {
        const QFileInfo info(QString::fromLatin1(folder));
        if (info.isSymLink())
            arguments << QStringLiteral("--symlink") << info.symLinkTarget() << info.filePath();
        else if (info.exists())
            arguments << QStringLiteral("--ro-bind") << info.filePath() << info.filePath();
    }
    for (const char *file : {"ld.so.cache", "localtime", "passwd", "group", "fonts"}) {
        const QString path = QStringLiteral("/etc/") + QLatin1String(file);
        arguments << QStringLiteral("--ro-bind-try") << path << path;
    }
    return arguments;
}

QStringList programArguments(const QString &controller)
{
    const QString canPlugins =
        QLibraryInfo::location(QLibraryInfo::PluginsPath) + QStringLiteral("/canbus");
    const QString plugin = QStringLiteral("libpvm-bench-can.so");
    QStringList arguments;
    for (const char *name : {"pvm-bench", "pvm-bench-renderer", "pvm-bench-command"}) {
        arguments << QStringLiteral("--ro-bind") << beside(name)
                  << kFolder + QLatin1Char('/') + QLatin1String(name);
    }
    arguments << QStringLiteral("--ro-bind") << QFileInfo(controller).absoluteFilePath()
              << sandbox::controllerPath();
    // Two plugins of one key would leave it to chance which one the controller gets.
    arguments << QStringLiteral("--tmpfs") << canPlugins;
    arguments << QStringLiteral("--ro-bind") << beside("libpvm-bench-can.so")
              << canPlugins + QLatin1Char('/') + plugin;
    return arguments;
}

QStringList environmentArguments()
{
    QStringList arguments{QStringLiteral("--clearenv")};
    const auto set = [&arguments](const char *name, const QString &value) {
        arguments << QStringLiteral("--setenv") << QLatin1String(name) << value;
    };
    set("PATH", QStringLiteral("/usr/bin:/bin"));
    set("HOME", QStringLiteral("/tmp"));
    set("LANG", QStringLiteral("C.UTF-8"));
    for (const char *name :
         {"TERM", "TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (qEnvironmentVariableIsSet(name))
            set(name, qEnvironmentVariable(name));
    }
    return arguments;
}

/// Empty when the sandbox can be had here, otherwise what bubblewrap says.
QString preflight(const QString &bwrap, const QStringList &arguments)
{
    QProcess process;
    process.start(bwrap, arguments + words("/bench/pvm-bench --version"));
    if (!process.waitForFinished(kPreflightTimeoutMs))
        return QStringLiteral("bubblewrap: ") + process.errorString();
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return QString();
    const QString said = QString::fromLocal8Bit(process.readAllStandardError()).simplified();
    return QStringLiteral("the sandbox cannot be made: ") +
           (said.isEmpty() ? QStringLiteral("exit status %1").arg(process.exitCode()) : said);
}

/// A descriptor that reads as @p content, open in the programs that this process turns into.
int contentDescriptor(const QByteArray &content)
{
    const int fd = memfd_create("drive", 0);
    if (fd >= 0 &&
        (write(fd, content.constData(), static_cast<size_t>(content.size())) != content.size() ||
         lseek(fd, 0, SEEK_SET) != 0)) {
        close(fd);
        return -1;
    }
    return fd;
}

void execute(const QString &program, const QStringList &arguments)
{
    std::vector<QByteArray> texts{QFile::encodeName(program)};
    for (const QString &argument : arguments)
        texts.push_back(QFile::encodeName(argument));
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (QByteArray &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    execv(pointers[0], pointers.data());
}

} // namespace

QString sandbox::controllerPath()
{
    return kFolder + QStringLiteral("/pvm-controller");
}

QString sandbox::drivePath()
{
    return kFolder + QStringLiteral("/drive");
}

QString sandbox::enter(const Setup &setup)
{
    const QString bwrap = QStandardPaths::findExecutable(QStringLiteral("bwrap"));
    if (bwrap.isEmpty())
        return QStringLiteral("bubblewrap is missing: install the package `bubblewrap`");

    QStringList arguments =
        rootArguments() + programArguments(setup.controller) + environmentArguments();
    QString refusal = preflight(bwrap, arguments);
    if (!refusal.isEmpty())
        return refusal;

    const int drive = contentDescriptor(setup.drive);
    if (drive < 0)
        return QStringLiteral("no memory for the drive");
    arguments << QStringLiteral("--ro-bind-data") << QString::number(drive) << drivePath()
              << kFolder + QStringLiteral("/pvm-bench") << setup.arguments;
    execute(bwrap, arguments);
    return QStringLiteral("cannot run %1: %2").arg(bwrap, QString::fromLocal8Bit(strerror(errno)));
}
