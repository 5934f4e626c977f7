// SPDX-License-Identifier: MIT

#include "bench/board/controllerprocess.h"

#include "bench/board/boardprogram.h"

#include <QFile>

#include <ctime>

namespace {

constexpr int kSamplePeriodMs = 1000;
constexpr int kLinesKept = 200;
constexpr qint64 kAtOnceMs = 1000;

/// The number behind a name of the process's status file, -1 without it.
qint64 statusOf(qint64 pid, const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : file.readAll().split('\n'))
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed().split(' ').first().toLongLong();
    return -1;
}

double cpuSecondsOf(qint64 pid)
{
    clockid_t clock = 0;
    timespec time = {};
    if (clock_getcpuclockid(static_cast<pid_t>(pid), &clock) != 0 ||
        clock_gettime(clock, &time) != 0)
        return -1;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

ControllerProcess::ControllerProcess()
{
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
    boardprogram::start(mProcess, program, {"-platform", "offscreen"});
    mSampleTimer.start(kSamplePeriodMs);
}

void ControllerProcess::kill()
{
    if (mProcess.state() == QProcess::NotRunning)
        return;
    sample();
    mIsKilled = true;
    boardprogram::kill(mProcess);
}

void ControllerProcess::drain()
{
    mProcess.waitForReadyRead(0);
}

QStringList ControllerProcess::lastLines(int count) const
{
    return mLines.mid(qMax(0, mLines.size() - count));
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

void ControllerProcess::readLines()
{
    while (mProcess.canReadLine() || mProcess.bytesAvailable() > boardprogram::kLongestLine) {
        const QByteArray bytes = mProcess.readLine(boardprogram::kLongestLine);
        if (!bytes.endsWith('\n'))
            Q_EMIT happened({Fact::Kind::Controller, {}, "flooding"});
        takeLine(bytes);
    }
}

void ControllerProcess::takeLine(const QByteArray &bytes)
{
    const QString text = boardprogram::lineOf(bytes);
    if (text.trimmed().isEmpty())
        return;
    mLines.append(text);
    if (mLines.size() > kLinesKept)
        mLines.removeFirst();
    Q_EMIT happened({Fact::Kind::Log, text, {}});
}

void ControllerProcess::handleFinished(int exitCode, QProcess::ExitStatus status)
{
    endSampling();
    readLines();
    takeLine(mProcess.readAll());
    if (mIsKilled)
        return;
    const QString how = boardprogram::howItEnded(exitCode, status);
    Q_EMIT ended(mSinceStart.elapsed() < kAtOnceMs ? "at once: " + how : "by itself: " + how);
}

void ControllerProcess::handleError(QProcess::ProcessError error)
{
    // Every other error ends in finished().
    if (error != QProcess::FailedToStart)
        return;
    endSampling();
    Q_EMIT ended(mProcess.errorString());
}

void ControllerProcess::endSampling()
{
    mSampleTimer.stop();
    mCpuSecondsBefore += mCpuSeconds;
    mCpuSeconds = 0;
}
