// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"

#include <QProcess>
#include <QTimer>

/**
 * The renderer's process. Into the bench's own, the stand-in, commands go, and what it has received
 * comes out. Of somebody else's its output is told, and whether its heartbeat is seen.
 */
class RendererProcess : public QObject
{
    Q_OBJECT

public:
    /// @p own: path of the program that is or runs a renderer; empty for the stand-in.
    explicit RendererProcess(const QString &own);
    ~RendererProcess() override; ///< kills it

    /// Unless it runs.
    void start();

    /// SIGKILL; its end is told before it returns.
    void kill();

    // For the stand-in alone.

    /// "heartbeat", "turn-switch", "initialised" or "slog"; nothing while it does not run.
    void setFlag(const QString &flag, bool on);

    void setHeartbeatPeriod(int ms); ///< nothing while it does not run

    /// Keeps the link's semaphore and lock, and lets go of them.
    void holdLink(bool on);

Q_SIGNALS:
    void happened(const Fact &fact); ///< of the renderer, and of the record that it has received
    void attached();                 ///< the link with the controller works
    void lost(const QString &how);   ///< it has ended by itself

private:
    void report(const QString &what, const QString &line = {});
    bool isOwn() const { return !mOwn.isEmpty(); }
    bool isRunning() const;
    void command(const QString &text);
    void readLines();
    void tell(const QByteArray &bytes);
    void handleStandIn(const QByteArray &line);
    void handleFinished(int exitCode, QProcess::ExitStatus status);
    void checkHeartbeat();

    const QString mOwn;
    QProcess mProcess;
    QTimer mHeartbeatTimer; ///< runs from an own renderer's start to its first heartbeat
    bool mIsKilled = false;
};
