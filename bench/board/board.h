// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/commandserver.h"
#include "bench/board/controllerprocess.h"
#include "bench/board/fact.h"
#include "bench/board/filewatch.h"
#include "bench/board/gpiotree.h"
#include "bench/board/inputs.h"
#include "bench/board/rendererprocess.h"
#include "bench/board/vehiclebus.h"
#include "bench/board/watchdog.h"

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
        QString controller;            ///< path of the program that is or runs the controller
        bool rendererFromStart = true; ///< the renderer runs, initialised, before ready()
        bool hasWatchdog = true;       ///< there is a /dev/watchdog
    };

    explicit Board(const Setup &setup, QObject *parent = nullptr);
    ~Board() override; ///< ends the controller and the renderer

    /// Lays out the board's files. Returns what is wrong, or an empty text.
    QString build();

    /// Powers the board: starts the controller and perhaps the renderer. ready() or startFailed()
    /// follows within 30 s.
    void powerOn();

    /// Puts a frame on the bus. Never blocks; a full receive queue loses the frame as the
    /// kernel's would.
    void sendFrame(const BusFrame &frame) { mBus.send(frame); }

    void setBusUp(bool up); ///< the interface goes down or comes back, the device stays connected

    void startRenderer();
    void killRenderer() { mRenderer.kill(); }           ///< SIGKILL
    void setRendererFlag(const QString &flag, bool on); ///< "heartbeat", "turn-switch",
                                                        ///< "initialised", "slog"

    Inputs &inputs() { return mInputs; } ///< what the drive does to them is reported

    /// How the scripts in /etc behave from now on: when they end, real time, and whether in
    /// failure, having routed nothing.
    void setScripts(int ms, bool isFailing);

    bool isCommandRunning() const; ///< the controller waits for its end and does nothing else

    const VehicleBus &bus() const { return mBus; }
    const Watchdog &watchdog() const { return mWatchdog; }
    ControllerProcess &controller() { return mController; }

Q_SIGNALS:
    void happened(const Fact &fact);
    void ready();                            ///< can0 is up and connected, the renderer attached
    void startFailed(const QString &reason); ///< one line
    /// Died, has not read the bus or given a sign of life for 5 s, or rebooted before all was put
    /// away.
    void controllerLost(const QString &reason);

private:
    enum class Phase { Off, Starting, Running, Lost };

    void powerOff(const QString &why);
    void report(Fact::Kind kind, const QString &subject, const QString &value);
    void drain();

    void handleCommand(int command, const QStringList &words);
    void endScript(int command, const QString &text);
    int carryOut(const QString &command);
    void reportPicture(const QString &command);
    void handleGpio(int line, bool level);
    void reboot();
    void changeBus(bool up, const QString &command);

    void handleBusConnected();
    void handleAttached();
    void checkReady();
    void failStart(const QString &reason);
    void handleStartTimeout();
    void handleControllerEnded(const QString &how);
    void handleWatchdog(const QString &what);
    void checkStall();
    bool isControllerWell();

    const Setup mSetup;
    FileWatch mWatch;
    GpioTree mGpio{&mWatch};
    Inputs mInputs{mGpio};
    Watchdog mWatchdog{&mWatch};
    CommandServer mCommands;
    VehicleBus mBus;
    RendererProcess mRenderer;
    ControllerProcess mController;
    QTimer mStartTimer;
    QTimer mStallTimer;
    Phase mPhase = Phase::Off;
    bool mIsBusConnected = false;
    bool mIsRendererAttached = false;
    bool mIsSynced = false;        ///< in this life
    bool mIsPowerReleased = false; ///< the keep-power line is 0, after the sync
    int mScriptMs = 0;             ///< before a script ends
    bool mAreScriptsFailing = false;
    quint64 mTakenAtCheck = 0; ///< frames, at the last look at the bus
    qint64 mWaitsAtCheck = 0;  ///< the controller's, at the last look at it
    int mStalledChecks = 0;    ///< in a row without a sign of life
};
