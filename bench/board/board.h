// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/commandserver.h"
#include "bench/board/controllerprocess.h"
#include "bench/board/filewatch.h"
#include "bench/board/gpiotree.h"
#include "bench/board/inputs.h"
#include "bench/board/rendererprocess.h"
#include "bench/board/vehiclebus.h"
#include "bench/board/watchdog.h"

#include <QTimer>

#include <memory>

/**
 * The simulated board inside the sandbox: its files, its buses, the controller that runs on it and
 * the renderer beside it. Everything that happens comes out of happened() in order. Times are real
 * ones.
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
        bool hasService = false;       ///< a controller that ends is started again, 1 s later
        QString can = {};              ///< the interface of a real bus, empty for the bench's own
        QString renderer = {};         ///< path of one's own renderer, empty for the stand-in
    };

    explicit Board(const Setup &setup);

    /// Ends the controller and the renderer.
    ~Board() override;

    /// Lays out the board's files. Returns what is wrong, or an empty text.
    QString build();

    /// Powers the board: starts the controller and perhaps the renderer. ready() or startFailed()
    /// follows within 30 s. Nothing while it starts or runs.
    void powerOn();

    /// Puts a frame on the bus. Never blocks; a full receive queue loses the frame as the
    /// kernel's would.
    void sendFrame(const BusFrame &frame) { mBus->send(frame); }

    /// The interface goes down or comes back, the device stays connected. Nothing if it is so.
    void setBusUp(bool up);

    // What is done to these two is reported.
    Inputs &inputs() { return mInputs; }
    RendererProcess &renderer() { return mRenderer; }

    /// How the scripts in /etc behave from now on: how many milliseconds until they end, and
    /// whether in failure, having routed nothing.
    void setScripts(int ms, bool isFailing);

    /// Runs a command of the shell on the board, beside the controller. failed() if it does.
    void run(const QString &command);

    /// The controller waits for its end and does nothing else.
    bool isCommandRunning() const { return mCommands.isCommandRunning(); }

    const VehicleBus &bus() const { return *mBus; }
    const Watchdog &watchdog() const { return mWatchdog; }
    ControllerProcess &controller() { return mController; }

Q_SIGNALS:
    void happened(const Fact &fact);
    void ready();                            ///< can0 is up and connected, the renderer attached
    void startFailed(const QString &reason); ///< one line
    /// The controller died, has not read the bus or given a sign of life for 5 s, or rebooted
    /// before all was put away; the stand-in has ended by itself; or a command of run() failed.
    void failed(const QString &reason);

private:
    enum class Phase { Off, Starting, Running, Lost };

    void powerOff(const QString &why);
    void enter(Phase phase);
    void drain();
    void changeBus(bool up, const QString &command);
    void handleFact(const Fact &fact);

    // The commands that the controller runs.
    void handleCommand(int command, const QString &text);
    void endScript(int command, const QString &text);
    void reboot();
    int carryOut(const QString &command);

    // The start.
    void handleBusConnected();
    void checkReady();
    void failStart(const QString &reason);

    // A process that ends or stands still.
    void handleControllerEnded(const QString &how);
    void handleRendererLost(const QString &how);
    void restartController(const QString &how);
    void loseProcess(const QString &how);
    void lose(const QString &reason);
    void checkStall();
    bool isControllerWell();

    const Setup mSetup;
    FileWatch mWatch;
    GpioTree mGpio{mWatch};
    Inputs mInputs{mGpio};
    Watchdog mWatchdog{mWatch};
    CommandServer mCommands;
    const std::unique_ptr<VehicleBus> mBus;
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
