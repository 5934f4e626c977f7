#pragma once

#include "bench/board/busframe.h"
#include "bench/board/fact.h"
#include "bench/board/inputs.h"

#include <QObject>
#include <QStringList>

#include <memory>

/**
 * The simulated board inside the sandbox: its files, its buses, the controller that runs on it and
 * the renderer beside it. Everything that happens comes out of happened() in order.
 */
class Board : public QObject
{
    Q_OBJECT

public:
    struct Setup
    {
        QString controller;            ///< path of the controller's binary
        bool rendererFromStart = true; ///< the renderer runs, initialised, before ready()
        bool hasWatchdog = true;       ///< there is a /dev/watchdog
    };
    struct Figures
    {
        quint64 framesSent = 0;     ///< frames put on the bus
        quint64 framesReceived = 0; ///< frames that the controller's CAN device has taken
        quint64 framesLost = 0;     ///< the receive queue was full, or the interface down
        quint64 watchdogFeeds = 0;
        qint64 peakMemoryKiB = -1; ///< the controller's; the largest of several lives
        double cpuSeconds = -1;    ///< the controller's, user and system, all lives together
    };

    explicit Board(Setup setup, QObject *parent = nullptr);
    ~Board() override; ///< ends the controller and the renderer

    /// Lays out the board's files. False with the reason in @p error.
    bool build(QString *error);

    /// Powers the board: starts the controller and perhaps the renderer. ready() or startFailed()
    /// follows within 10 s.
    void powerOn();

    /// Puts a frame on the bus. Never blocks; a full receive queue loses the frame as the
    /// kernel's would.
    void sendFrame(const BusFrame &frame);

    void setBusUp(bool up); ///< the interface goes down or comes back, the device stays connected

    void startRenderer();
    void killRenderer();                                ///< SIGKILL
    void setRendererFlag(const QString &flag, bool on); ///< "heartbeat", "turn-switch",
                                                        ///< "initialised", "slog"

    Inputs &inputs(); ///< what the drive does to them is reported

    /// How the scripts in /etc behave from now on: when they end, real time, and whether in
    /// failure, having routed nothing.
    void setScripts(int ms, bool isFailing);

    /// True once every frame sent so far has been taken by the controller or lost.
    bool isBusQuiet() const;

    bool isCommandRunning() const; ///< the controller waits for its end and does nothing else

    Figures figures() const;

    /// The last @p count lines of the controller's output.
    QStringList lastLogLines(int count) const;

Q_SIGNALS:
    void happened(const Fact &fact);
    void ready();                            ///< can0 is up and connected, the renderer attached
    void startFailed(const QString &reason); ///< one line
    /// Died, has not read the bus or given a sign of life for 5 s, or rebooted before all was put
    /// away.
    void controllerLost(const QString &reason);

private:
    class Private;
    std::unique_ptr<Private> d;
};
