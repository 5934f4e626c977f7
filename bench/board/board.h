// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/commandserver.h"
#include "bench/board/controllerprocess.h"
#include "bench/board/inputs.h"
#include "bench/board/realbus.h"
#include "bench/board/rendererprocess.h"
#include "bench/board/watchdog.h"

#include <QCoreApplication>
#include <QDir>
#include <QRegularExpression>
#include <QSharedMemory>

#include <memory>
#include <utility>

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
        bool hasService = false;       ///< a controller that ends is started again
        QString can = {};              ///< the interface of a real bus, empty for the bench's own
    };

    explicit Board(const Setup &setup) : mSetup(setup), mBus(makeBus(setup.can))
    {
        mStartTimer.setSingleShot(true);
        connect(&mStartTimer, &QTimer::timeout, this, [this] {
            failStart(mIsBusConnected ? "the renderer and the controller did not meet within 30 s"
                                      : "the controller did not open can0 within 30 s");
        });
        connect(&mStallTimer, &QTimer::timeout, this, &Board::checkStall);
        connect(&mGpio, &GpioTree::happened, this, &Board::handleFact);
        connect(&mWatchdog, &Watchdog::happened, this, &Board::handleFact);
        connect(&mInputs, &Inputs::happened, this, &Board::happened);
        connect(&mCommands, &CommandServer::started, this, &Board::handleCommand);
        connect(mBus.get(), &VehicleBus::happened, this, &Board::happened);
        connect(mBus.get(), &VehicleBus::connected, this, &Board::handleBusConnected);
        connect(&mController, &ControllerProcess::happened, this, &Board::happened);
        connect(&mController, &ControllerProcess::ended, this, &Board::handleControllerEnded);
        connect(&mRenderer, &RendererProcess::happened, this, &Board::happened);
        connect(&mRenderer, &RendererProcess::lost, this,
                [this] { loseProcess("the renderer stand-in ended by itself"); });
        connect(&mRenderer, &RendererProcess::attached, this, [this] {
            mIsRendererAttached = true;
            checkReady();
        });
    }

    /// Ends the controller and the renderer.
    ~Board() override
    {
        // Their ends are no facts any more.
        blockSignals(true);
        mController.kill();
        mRenderer.kill();
    }

    /// Lays out the board's files. Returns what is wrong, or an empty text.
    QString build()
    {
        // The board's files have fixed places in /etc, /dev and /sys.
        if (QCoreApplication::applicationDirPath() != places::kBench)
            return "a board can only be built inside the bench's sandbox";
        QDir().mkpath(places::kBusFolder);
        QString fault = mGpio.build();
        if (fault.isEmpty() && mSetup.hasWatchdog)
            fault = mWatchdog.build();
        if (fault.isEmpty())
            fault = mBus->build();
        return fault.isEmpty() ? mCommands.build() : fault;
    }

    /// Powers the board: starts the controller and perhaps the renderer. ready() or startFailed()
    /// follows within 30 s.
    void powerOn()
    {
        if (mPhase == Phase::Starting || mPhase == Phase::Running)
            return;
        removeSegment();
        mGpio.resetOutputs();
        mPhase = Phase::Starting;
        mIsBusConnected = false;
        mIsRendererAttached = false;
        mIsSynced = false;
        mIsPowerReleased = false;
        Q_EMIT happened({Fact::Kind::Power, {}, "on"});
        mStartTimer.start(kStartTimeoutMs);
        mStallTimer.start(kStallCheckPeriodMs);
        if (mSetup.rendererFromStart)
            mRenderer.start();
        mController.start(mSetup.controller);
    }

    /// Puts a frame on the bus. Never blocks; a full receive queue loses the frame as the
    /// kernel's would.
    void sendFrame(const BusFrame &frame) { mBus->send(frame); }

    /// The interface goes down or comes back, the device stays connected.
    void setBusUp(bool up)
    {
        if (up != mBus->isUp())
            changeBus(up, {});
    }

    // What is done to these two is reported.
    Inputs &inputs() { return mInputs; }
    RendererProcess &renderer() { return mRenderer; }

    /// How the scripts in /etc behave from now on: when they end, real time, and whether in
    /// failure, having routed nothing.
    void setScripts(int ms, bool isFailing)
    {
        mScriptMs = ms;
        mAreScriptsFailing = isFailing;
        Q_EMIT happened({Fact::Kind::Input, "scripts",
                         isFailing ? "fail"
                         : ms == 0 ? "normal"
                                   : QStringLiteral("take %1 ms").arg(ms)});
    }

    /// Runs a command of the shell on the board, beside the controller. failed() if it does.
    void run(const QString &command)
    {
        auto *shell = new QProcess(this);
        shell->setProcessChannelMode(QProcess::MergedChannels);
        connect(shell, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
                [this, shell, command](int code, QProcess::ExitStatus status) {
                    if (code != 0 || status != QProcess::NormalExit)
                        Q_EMIT failed(QStringLiteral("run \"%1\" failed: %2")
                                          .arg(command, printable(shell->readAll().trimmed())));
                    shell->deleteLater();
                });
        shell->start("/bin/sh", {"-c", command});
        shell->closeWriteChannel();
    }

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
    /// before all was put away; the bench has lost its renderer; or a command of run() failed.
    void failed(const QString &reason);

private:
    static constexpr int kStartTimeoutMs = 30000; // a debugger may need them
    static constexpr int kRestartMs = 1000;       // as RestartSec of the service
    static constexpr int kStallCheckPeriodMs = 500;
    static constexpr int kStallChecks = 10; // in a row: 5 s

    /// Shared memory outlives the processes that used it; a board that lost its power has none.
    /// Gone before a process starts: the object takes the segment's lock with it.
    static void removeSegment()
    {
        QSharedMemory segment(places::kSegmentKey);
        if (segment.attach())
            segment.detach();
    }

    static std::unique_ptr<VehicleBus> makeBus(const QString &can)
    {
        if (can.isEmpty())
            return std::make_unique<StandInBus>();
        return std::make_unique<RealBus>(can);
    }

    enum class Phase { Off, Starting, Running, Lost };

    void powerOff(const QString &why)
    {
        enter(Phase::Off);
        mBus->disconnectDevice(); // before the kernel empties the dead controller's queue
        if (mSetup.can.isEmpty())
            mBus->setUp(false, {});
        mController.kill();
        mRenderer.kill();
        mCommands.dropAll();
        mWatch.discard();
        mWatchdog.reset();
        Q_EMIT happened({Fact::Kind::Power, why, "off"});
    }

    /// A phase in which nothing is waited for.
    void enter(Phase phase)
    {
        mPhase = phase;
        mStartTimer.stop();
        mStallTimer.stop();
    }

    void handleFact(const Fact &fact)
    {
        Q_EMIT happened(fact);
        if (fact.kind == Fact::Kind::Gpio && fact.subject.toInt() == boardlines::kKeepPower)
            mIsPowerReleased = mIsSynced && fact.value == "0";
        else if (fact.kind == Fact::Kind::Watchdog && fact.value == "reset")
            powerOff("watchdog");
    }

    // Files, pipes and sockets reach the bench side by side. What the controller did before it ran
    // a command is handled before the command, so that the facts keep the true order.
    void drain()
    {
        mWatchdog.drain();
        mController.drain();
    }

    void handleCommand(int command, const QString &text)
    {
        drain();
        const int ms = text.startsWith("/etc/") ? mScriptMs : 0;
        Q_EMIT happened({Fact::Kind::Command, text, QString::number(ms / 1000.0)});
        if (text == "reboot")
            reboot();
        else if (text.startsWith("/etc/"))
            endScript(command, text);
        else
            mCommands.reply(command, carryOut(text));
    }

    void endScript(int command, const QString &text)
    {
        const QString script = places::kPictureScript;
        QString picture;
        if (!mAreScriptsFailing && text == script + " 1")
            picture = "PVM";
        else if (!mAreScriptsFailing && text == script + " 0")
            picture = "DA";
        mCommands.replyAfter(mScriptMs, command, mAreScriptsFailing ? 1 : 0, [this, picture] {
            if (!picture.isEmpty())
                Q_EMIT happened({Fact::Kind::Picture, {}, picture});
        });
    }

    // The board goes at once: what was not written to the disk by then is lost, and a board whose
    // power is kept does not go at all.
    void reboot()
    {
        if (!mIsPowerReleased)
            Q_EMIT failed(QStringLiteral("reboot without sync and then keep-power (%1) = 0")
                              .arg(boardlines::kKeepPower));
        powerOff("reboot");
    }

    static bool isBusUpCommand(const QString &command)
    {
        static const QRegularExpression pattern("^ip link set up can0 type can bitrate 500000 "
                                                "listen-only on restart-ms [0-9]+$");
        return pattern.match(command).hasMatch();
    }

    /// The exit status.
    int carryOut(const QString &command)
    {
        if (command == "sync")
            mIsSynced = true;
        if (!command.startsWith("ip "))
            return 0;
        const bool up = isBusUpCommand(command);
        if (!up && command != "ip link set can0 down")
            return 2;
        changeBus(up, command);
        return 0;
    }

    void changeBus(bool up, const QString &command)
    {
        mBus->setUp(up, command);
        Q_EMIT happened({Fact::Kind::Bus, command, mBus->isUp() ? "up" : "down"});
    }

    void handleBusConnected()
    {
        Q_EMIT happened({Fact::Kind::Bus, {}, "connected"});
        mIsBusConnected = true;
        mController.setPid(mBus->devicePid());
        if (mPhase == Phase::Starting && !mBus->isUp())
            failStart("the controller opened can0 without bringing it up");
        else
            checkReady();
    }

    void checkReady()
    {
        const bool hasRenderer = mIsRendererAttached || !mSetup.rendererFromStart;
        if (mPhase != Phase::Starting || !mIsBusConnected || !hasRenderer)
            return;
        mPhase = Phase::Running;
        mStartTimer.stop();
        Q_EMIT ready();
    }

    void failStart(const QString &reason)
    {
        enter(Phase::Lost);
        const QString last = mController.lastLines(1).join(QString());
        Q_EMIT startFailed(last.isEmpty() ? reason : reason + "; its last line: " + last);
    }

    void handleControllerEnded(const QString &how)
    {
        drain();
        mBus->disconnectDevice();
        if (mPhase == Phase::Running && mSetup.hasService)
            restartController(how);
        else
            loseProcess("the controller ended " + how);
    }

    void loseProcess(const QString &how)
    {
        if (mPhase == Phase::Starting)
            failStart(how);
        else if (mPhase == Phase::Running)
            lose(how);
    }

    void restartController(const QString &how)
    {
        Q_EMIT happened({Fact::Kind::Controller, {}, "ended " + how});
        run(QString(places::kPictureScript) + " 1"); // as ExecStopPost of the service
        QTimer::singleShot(kRestartMs, this, [this] {
            if (mPhase == Phase::Running)
                mController.start(mSetup.controller);
        });
    }

    void lose(const QString &reason)
    {
        enter(Phase::Lost);
        Q_EMIT failed(reason);
    }

    // Checks are counted instead of milliseconds: when the whole machine is held up, the controller
    // has had no chance to read either.
    void checkStall()
    {
        mStalledChecks = isControllerWell() ? 0 : mStalledChecks + 1;
        if (mPhase == Phase::Running && mStalledChecks >= kStallChecks)
            lose(mBus->waiting() > 0 ? "the controller has not read the bus for 5 s"
                                     : "the controller has stood still for 5 s");
    }

    /// It takes frames, or has taken all and waits for its timers now and then.
    bool isControllerWell()
    {
        const quint64 takenBefore = std::exchange(mTakenAtCheck, mBus->received());
        const qint64 waitsBefore = std::exchange(mWaitsAtCheck, mController.waits());
        const bool isReading = mTakenAtCheck != takenBefore;
        const bool isAwake = mWaitsAtCheck != waitsBefore;
        // A controller that waits for one of its commands does nothing else.
        return isReading || (isAwake && mBus->waiting() == 0) || isCommandRunning();
    }

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
