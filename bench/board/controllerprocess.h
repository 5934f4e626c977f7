// SPDX-License-Identifier: MIT

#pragma once

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
    explicit ControllerProcess(QObject *parent = nullptr);
    ~ControllerProcess() override; ///< kills it

    /// Either ended() follows at once or the process runs.
    void start(const QString &program);

    void kill(); ///< with the commands that it runs; ended() does not follow

    void drain(); ///< emits the lines written so far

    QStringList lastLines(int count) const;
    /// The program may be a wrapper, such as a debugger: this is the controller in it, once known.
    void setPid(qint64 pid) { mPid = pid; }

    void sample(); ///< reads memory and processor time of the running process
    qint64 peakMemoryKiB() const { return mPeakMemoryKiB; } ///< -1 before the first sample
    /// How often the main thread has waited for something so far; a live one ticks every 10 ms.
    qint64 waits() const;

    double cpuSeconds() const; ///< all lives together, -1 before the first sample

Q_SIGNALS:
    /// Printable, cut to a few hundred characters; blank lines are left out.
    void line(const QString &text);
    void flooding();                ///< a line without end: it comes in pieces
    void ended(const QString &how); ///< by itself

private:
    /// Leads a process group of its own, so that kill() reaches the commands too.
    class GroupProcess : public QProcess
    {
    protected:
        void setupChildProcess() override;
    };

    void readLines();
    void takeLine(const QByteArray &bytes);
    void handleFinished(int exitCode, QProcess::ExitStatus status);
    void handleError(QProcess::ProcessError error);
    void endSampling();

    GroupProcess mProcess;
    QElapsedTimer mSinceStart;
    qint64 mPid = 0;
    bool mIsKilled = false;
    QStringList mLines;
    QTimer mSampleTimer;
    qint64 mPeakMemoryKiB = -1;
    double mCpuSeconds = -1;      ///< of this life
    double mCpuSecondsBefore = 0; ///< of the lives before
};
