// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QStringList>
#include <QTimer>

/**
 * The controller's process, life after life: its output line by line, what it needs of memory and
 * processor, and how it ended.
 */
class ControllerProcess : public QObject
{
    Q_OBJECT

public:
    ControllerProcess();
    ~ControllerProcess() override; ///< kills it

    /// Starts the program with a board's environment. Either ended() follows at once or the process
    /// runs.
    void start(const QString &program);

    /// With the commands that it runs; ended() does not follow. Nothing while it does not run.
    void kill();

    void drain(); ///< tells the lines written so far

    /// Of its log, printable, the last one last; the bench keeps 200.
    QStringList lastLines(int count) const;

    /// The program may be a wrapper, such as a debugger: this is the controller in it, once known.
    void setPid(qint64 pid) { mPid = pid; }

    /// Reads memory and processor time of the running process, which happens every second anyway.
    void sample();

    qint64 peakMemoryKiB() const { return mPeakMemoryKiB; } ///< -1 before the first sample
    /// How often the main thread has waited for something so far, -1 when that cannot be read; a
    /// live one ticks every 10 ms.
    qint64 waits() const;

    /// All lives together, -1 before the first sample.
    double cpuSeconds() const { return mPeakMemoryKiB < 0 ? -1 : mCpuSecondsBefore + mCpuSeconds; }

Q_SIGNALS:
    /// A line of its log, printable, cut to 1000 characters, blank ones left out; or that
    /// one without end comes in pieces.
    void happened(const Fact &fact);
    void ended(const QString &how); ///< by itself

private:
    void readLines();
    void takeLine(const QByteArray &bytes);
    void handleFinished(int exitCode, QProcess::ExitStatus status);
    void handleError(QProcess::ProcessError error);
    void endSampling();

    QProcess mProcess;
    QElapsedTimer mSinceStart;
    qint64 mPid = 0;
    bool mIsKilled = false;
    QStringList mLines;
    QTimer mSampleTimer;
    qint64 mPeakMemoryKiB = -1;
    double mCpuSeconds = 0;       ///< of this life
    double mCpuSecondsBefore = 0; ///< of the lives before
};
