// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/board/places.h"

#include <QProcess>

/// The renderer stand-in's process: commands go in, what it has received comes out.
class RendererProcess : public QObject
{
    Q_OBJECT

public:
    RendererProcess()
    {
        mProcess.setProgram(QString(places::kBench) + "/pvm-bench-renderer");
        mProcess.setStandardErrorFile(QProcess::nullDevice());
        connect(&mProcess, &QProcess::readyReadStandardOutput, this, &RendererProcess::readLines);
        connect(&mProcess, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, [this] {
            report("ended");
            if (!mIsKilled)
                Q_EMIT lost();
        });
    }
    ~RendererProcess() override { kill(); }

    /// Unless it runs.
    void start()
    {
        if (isRunning())
            return;
        mIsKilled = false;
        mProcess.start();
        report("started");
    }

    /// SIGKILL; its end is told before it returns.
    void kill()
    {
        mIsKilled = true;
        mProcess.kill();
        mProcess.waitForFinished();
    }

    /// "heartbeat", "turn-switch", "initialised" or "slog"; nothing while it does not run.
    void setFlag(const QString &flag, bool on)
    {
        if (!isRunning())
            return;
        const QString command = flag + (on ? " on" : " off");
        mProcess.write(command.toLatin1() + '\n');
        report(command);
    }

    /// Keeps the link's semaphore and lock, and lets go of them.
    void holdLink(bool on) { mProcess.write(on ? "hold\n" : "let go\n"); }

Q_SIGNALS:
    void happened(const Fact &fact);
    void attached(); ///< the link with the controller works
    void lost();     ///< it has ended by itself: a fault of the bench, not of the board

private:
    void report(const QString &what) { Q_EMIT happened({Fact::Kind::Renderer, {}, what}); }
    bool isRunning() const { return mProcess.state() != QProcess::NotRunning; }
    void readLines()
    {
        while (mProcess.canReadLine()) {
            const QStringList words = QString::fromLatin1(mProcess.readLine()).trimmed().split(' ');
            if (words[0] == "attached")
                Q_EMIT attached();
            else if (words[0] == "holding" || words[0] == "free")
                report(words[0]);
            else if (words[0] == "record" && words.size() == 3)
                Q_EMIT happened({Fact::Kind::Record, words[1], words[2]});
        }
    }

    QProcess mProcess;
    bool mIsKilled = false;
};
