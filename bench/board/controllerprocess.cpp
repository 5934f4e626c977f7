// SPDX-License-Identifier: MIT

#include "bench/board/controllerprocess.h"

#include "bench/board/places.h"
#include "bench/board/printable.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int kSamplePeriodMs = 1000;
constexpr int kLinesKept = 200;
constexpr int kLongestLine = 65536; // bytes; longer ones come in pieces
constexpr int kLongestText = 1000;  // characters of a line that are kept
constexpr qint64 kAtOnceMs = 1000;

QProcessEnvironment boardEnvironment()
{
    const QString runtimeFolder = QStringLiteral("/tmp/runtime");
    QDir().mkpath(runtimeFolder);
    QFile::setPermissions(runtimeFolder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    QProcessEnvironment environment;
    environment.insert(QStringLiteral("PATH"),
                       QLatin1String(places::kCommandFolder) + QStringLiteral(":/usr/bin:/bin"));
    environment.insert(QStringLiteral("HOME"), QStringLiteral("/tmp"));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeFolder);
    environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    environment.insert(QStringLiteral("QT_FORCE_STDERR_LOGGING"), QStringLiteral("1"));
    for (const char *name : {"TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"})
        if (qEnvironmentVariableIsSet(name))
            environment.insert(QLatin1String(name), qEnvironmentVariable(name));
    return environment;
}

QString howItEnded(int exitCode, QProcess::ExitStatus status)
{
    if (status == QProcess::NormalExit)
        return QStringLiteral("exit status %1").arg(exitCode);
    const char *name = sigabbrev_np(exitCode);
    return name != nullptr ? QStringLiteral("killed by SIG%1").arg(QLatin1String(name))
                           : QStringLiteral("killed by signal %1").arg(exitCode);
}

QByteArray processFile(qint64 pid, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The number behind a name of the status file, -1 without it.
qint64 statusOf(qint64 pid, const QByteArray &name)
{
    for (const QByteArray &line : processFile(pid, "status").split('\n')) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

double cpuSecondsOf(qint64 pid)
{
    // The name comes second, in parentheses, and may hold blanks; user and system time are the
    // 12th and 13th field after it.
    const QByteArray stat = processFile(pid, "stat");
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return -1;
    return (fields[11].toDouble() + fields[12].toDouble()) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

} // namespace

void ControllerProcess::GroupProcess::setupChildProcess()
{
    setpgid(0, 0);
    signal(SIGINT, SIG_DFL);
}

ControllerProcess::ControllerProcess(QObject *parent) : QObject(parent)
{
    mProcess.setProcessChannelMode(QProcess::MergedChannels);
    connect(&mProcess, &QProcess::readyRead, this, &ControllerProcess::readLines);
    connect(&mProcess, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &ControllerProcess::handleFinished);
    connect(&mProcess, &QProcess::errorOccurred, this, &ControllerProcess::handleError);
    connect(&mSampleTimer, &QTimer::timeout, this, &ControllerProcess::sample);
}

ControllerProcess::~ControllerProcess()
{
    kill();
}

void ControllerProcess::start(const QString &program)
{
    mIsKilled = false;
    mPid = 0;
    mSinceStart.start();
    mProcess.setProcessEnvironment(boardEnvironment());
    mProcess.setWorkingDirectory(QStringLiteral("/"));
    mProcess.setStandardInputFile(QProcess::nullDevice());
    mProcess.start(program, {QStringLiteral("-platform"), QStringLiteral("offscreen")});
    mSampleTimer.start(kSamplePeriodMs);
}

void ControllerProcess::kill()
{
    if (mProcess.state() == QProcess::NotRunning)
        return;
    sample();
    mIsKilled = true;
    ::kill(static_cast<pid_t>(-mProcess.processId()), SIGKILL);
    mProcess.kill(); // it may not lead its group yet
    mProcess.waitForFinished();
}

void ControllerProcess::drain()
{
    mProcess.waitForReadyRead(0);
}

void ControllerProcess::readLines()
{
    while (mProcess.canReadLine() || mProcess.bytesAvailable() > kLongestLine) {
        const QByteArray bytes = mProcess.readLine(kLongestLine);
        if (!bytes.endsWith('\n'))
            Q_EMIT flooding();
        takeLine(bytes);
    }
}

void ControllerProcess::takeLine(const QByteArray &bytes)
{
    const QString text =
        printable(QString::fromUtf8(bytes.endsWith('\n') ? bytes.chopped(1) : bytes), kLongestText);
    if (text.trimmed().isEmpty())
        return;
    mLines.append(text);
    if (mLines.size() > kLinesKept)
        mLines.removeFirst();
    Q_EMIT line(text);
}

QStringList ControllerProcess::lastLines(int count) const
{
    return mLines.mid(qMax(0, mLines.size() - count));
}

void ControllerProcess::handleFinished(int exitCode, QProcess::ExitStatus status)
{
    endSampling();
    readLines();
    takeLine(mProcess.readAll());
    if (mIsKilled)
        return;
    const QString how = howItEnded(exitCode, status);
    Q_EMIT ended(mSinceStart.elapsed() < kAtOnceMs ? QStringLiteral("at once: ") + how
                                                   : QStringLiteral("by itself: ") + how);
}

void ControllerProcess::handleError(QProcess::ProcessError error)
{
    // Every other error ends in finished().
    if (error != QProcess::FailedToStart)
        return;
    endSampling();
    Q_EMIT ended(mProcess.errorString());
}

void ControllerProcess::sample()
{
    if (mPid == 0)
        return;
    mPeakMemoryKiB = qMax(mPeakMemoryKiB, statusOf(mPid, "VmHWM"));
    mCpuSeconds = qMax(mCpuSeconds, cpuSecondsOf(mPid));
}

qint64 ControllerProcess::waits() const
{
    return statusOf(mPid, "voluntary_ctxt_switches");
}

void ControllerProcess::endSampling()
{
    mSampleTimer.stop();
    if (mCpuSeconds > 0)
        mCpuSecondsBefore += mCpuSeconds;
    mCpuSeconds = -1;
}

double ControllerProcess::cpuSeconds() const
{
    if (mPeakMemoryKiB < 0)
        return -1;
    return mCpuSecondsBefore + qMax(0.0, mCpuSeconds);
}
