// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/board/places.h"
#include "bench/board/printable.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTimer>

#include <csignal>
#include <cstring>
#include <unistd.h>

/**
 * The controller's process, life after life: its output line by line, what it needs of memory and
 * processor, and how it ended.
 */
class ControllerProcess : public QObject
{
    Q_OBJECT

public:
    ControllerProcess()
    {
        mProcess.setProcessChannelMode(QProcess::MergedChannels);
        connect(&mProcess, &QProcess::readyRead, this, &ControllerProcess::readLines);
        connect(&mProcess, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
                &ControllerProcess::handleFinished);
        connect(&mProcess, &QProcess::errorOccurred, this, &ControllerProcess::handleError);
        connect(&mSampleTimer, &QTimer::timeout, this, &ControllerProcess::sample);
    }

    ~ControllerProcess() override { kill(); }

    /// Either ended() follows at once or the process runs.
    void start(const QString &program)
    {
        mIsKilled = false;
        mPid = 0;
        mSinceStart.start();
        mProcess.setProcessEnvironment(boardEnvironment());
        mProcess.setWorkingDirectory("/");
        mProcess.setStandardInputFile(QProcess::nullDevice());
        mProcess.start(program, {"-platform", "offscreen"});
        mSampleTimer.start(kSamplePeriodMs);
    }

    /// With the commands that it runs; ended() does not follow.
    void kill()
    {
        if (mProcess.state() == QProcess::NotRunning)
            return;
        sample();
        mIsKilled = true;
        ::kill(static_cast<pid_t>(-mProcess.processId()), SIGKILL);
        mProcess.kill(); // it may not lead its group yet
        mProcess.waitForFinished();
    }

    void drain() { mProcess.waitForReadyRead(0); } ///< tells the lines written so far

    QStringList lastLines(int count) const { return mLines.mid(qMax(0, mLines.size() - count)); }

    /// The program may be a wrapper, such as a debugger: this is the controller in it, once known.
    void setPid(qint64 pid) { mPid = pid; }

    /// Reads memory and processor time of the running process.
    void sample()
    {
        if (mPid == 0)
            return;
        mPeakMemoryKiB = qMax(mPeakMemoryKiB, statusOf(mPid, "VmHWM"));
        mCpuSeconds = qMax(mCpuSeconds, cpuSecondsOf(mPid));
    }

    qint64 peakMemoryKiB() const { return mPeakMemoryKiB; } ///< -1 before the first sample
    /// How often the main thread has waited for something so far; a live one ticks every 10 ms.
    qint64 waits() const { return statusOf(mPid, "voluntary_ctxt_switches"); }

    /// All lives together, -1 before the first sample.
    double cpuSeconds() const { return mPeakMemoryKiB < 0 ? -1 : mCpuSecondsBefore + mCpuSeconds; }

Q_SIGNALS:
    /// A line of its log, printable, cut to a few hundred characters, blank ones left out; or that
    /// one without end comes in pieces.
    void happened(const Fact &fact);
    void ended(const QString &how); ///< by itself

private:
    static constexpr int kSamplePeriodMs = 1000;
    static constexpr int kLinesKept = 200;
    static constexpr int kLongestLine = 65536; ///< bytes; longer ones come in pieces
    static constexpr int kLongestText = 1000;  ///< characters of a line that are kept
    static constexpr qint64 kAtOnceMs = 1000;

    static QProcessEnvironment boardEnvironment()
    {
        const QString runtimeFolder = "/tmp/runtime";
        QDir().mkpath(runtimeFolder);
        QFile::setPermissions(runtimeFolder,
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

        // The sandbox's own, and what a board has beside it.
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.remove("TERM");
        environment.insert("PATH", QString(places::kCommandFolder) + ":/usr/bin:/bin");
        environment.insert("XDG_RUNTIME_DIR", runtimeFolder);
        environment.insert("QT_FORCE_STDERR_LOGGING", "1");
        return environment;
    }

    static QString howItEnded(int exitCode, QProcess::ExitStatus status)
    {
        if (status == QProcess::NormalExit)
            return QStringLiteral("exit status %1").arg(exitCode);
        const char *name = sigabbrev_np(exitCode);
        return "killed by " +
               (name ? QString("SIG") + name : QStringLiteral("signal %1").arg(exitCode));
    }

    /// The number behind a name of the process's status file, -1 without it.
    static qint64 statusOf(qint64 pid, const QByteArray &name)
    {
        QFile file(QStringLiteral("/proc/%1/status").arg(pid));
        if (!file.open(QIODevice::ReadOnly))
            return -1;
        for (const QByteArray &line : file.readAll().split('\n'))
            if (line.startsWith(name + ':'))
                return line.mid(name.size() + 1).trimmed().split(' ').first().toLongLong();
        return -1;
    }

    static double cpuSecondsOf(qint64 pid)
    {
        clockid_t clock = 0;
        timespec time = {};
        if (clock_getcpuclockid(static_cast<pid_t>(pid), &clock) != 0 ||
            clock_gettime(clock, &time) != 0)
            return -1;
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    /// Leads a process group of its own, so that kill() reaches the commands too.
    class GroupProcess : public QProcess
    {
    protected:
        void setupChildProcess() override
        {
            setpgid(0, 0);
            signal(SIGINT, SIG_DFL);
        }
    };

    void readLines()
    {
        while (mProcess.canReadLine() || mProcess.bytesAvailable() > kLongestLine) {
            const QByteArray bytes = mProcess.readLine(kLongestLine);
            if (!bytes.endsWith('\n'))
                Q_EMIT happened({Fact::Kind::Controller, {}, "flooding"});
            takeLine(bytes);
        }
    }

    void takeLine(const QByteArray &bytes)
    {
        const QString text = printable(
            QString::fromUtf8(bytes.endsWith('\n') ? bytes.chopped(1) : bytes), kLongestText);
        if (text.trimmed().isEmpty())
            return;
        mLines.append(text);
        if (mLines.size() > kLinesKept)
            mLines.removeFirst();
        Q_EMIT happened({Fact::Kind::Log, text, {}});
    }

    void handleFinished(int exitCode, QProcess::ExitStatus status)
    {
        endSampling();
        readLines();
        takeLine(mProcess.readAll());
        if (mIsKilled)
            return;
        const QString how = howItEnded(exitCode, status);
        Q_EMIT ended(mSinceStart.elapsed() < kAtOnceMs ? "at once: " + how : "by itself: " + how);
    }

    void handleError(QProcess::ProcessError error)
    {
        // Every other error ends in finished().
        if (error != QProcess::FailedToStart)
            return;
        endSampling();
        Q_EMIT ended(mProcess.errorString());
    }

    void endSampling()
    {
        mSampleTimer.stop();
        mCpuSecondsBefore += mCpuSeconds;
        mCpuSeconds = 0;
    }

    GroupProcess mProcess;
    QElapsedTimer mSinceStart;
    qint64 mPid = 0;
    bool mIsKilled = false;
    QStringList mLines;
    QTimer mSampleTimer;
    qint64 mPeakMemoryKiB = -1;
    double mCpuSeconds = 0;       ///< of this life
    double mCpuSecondsBefore = 0; ///< of the lives before
};
