// SPDX-License-Identifier: MIT

#include "bench/board/board.h"

#include "bench/board/boardlines.h"
#include "bench/board/places.h"
#include "bench/board/printable.h"
#include "bench/board/realbus.h"
#include "bench/board/standinbus.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QSharedMemory>

#include <utility>

namespace {

constexpr int kStartTimeoutMs = 30000; // a debugger may need them
constexpr int kRestartMs = 1000;       // as RestartSec of the service
constexpr int kStallCheckPeriodMs = 500;
constexpr int kStallChecks = 10; // in a row: 5 s

/// Shared memory outlives the processes that used it; a board that lost its power has none.
/// Gone before a process starts: the object takes the segment's lock with it.
void removeSegment()
{
    QSharedMemory segment(places::kSegmentKey);
    if (segment.attach())
        segment.detach();
}

std::unique_ptr<VehicleBus> makeBus(const QString &can)
{
    if (can.isEmpty())
        return std::make_unique<StandInBus>();
    return std::make_unique<RealBus>(can);
}

bool isBusUpCommand(const QString &command)
{
    static const QRegularExpression pattern("^ip link set up can0 type can bitrate 500000 "
                                            "listen-only on restart-ms [0-9]+$");
    return pattern.match(command).hasMatch();
}

} // namespace

Board::Board(const Setup &setup)
    : mSetup(setup), mBus(makeBus(setup.can)), mRenderer(setup.renderer)
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
    connect(&mRenderer, &RendererProcess::lost, this, &Board::handleRendererLost);
    connect(&mRenderer, &RendererProcess::attached, this, [this] {
        mIsRendererAttached = true;
        checkReady();
    });
}

Board::~Board()
{
    // Their ends are no facts any more.
    blockSignals(true);
    mController.kill();
    mRenderer.kill();
}

QString Board::build()
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

void Board::powerOn()
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

void Board::setBusUp(bool up)
{
    if (up != mBus->isUp())
        changeBus(up, {});
}

void Board::setScripts(int ms, bool isFailing)
{
    mScriptMs = ms;
    mAreScriptsFailing = isFailing;
    Q_EMIT happened({Fact::Kind::Input, "scripts",
                     isFailing ? "fail"
                     : ms == 0 ? "normal"
                               : QStringLiteral("take %1 ms").arg(ms)});
}

void Board::run(const QString &command)
{
    auto *shell = new QProcess(this);
    shell->setProcessChannelMode(QProcess::MergedChannels);
    connect(shell, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this, shell, command](int code, QProcess::ExitStatus status) {
                const QByteArray said = shell->readAll().trimmed();
                if (code != 0 || status != QProcess::NormalExit)
                    Q_EMIT failed(
                        QStringLiteral("run \"%1\" failed: %2").arg(command, printable(said)));
                else if (!said.isEmpty())
                    for (const QByteArray &line : said.split('\n'))
                        Q_EMIT happened({Fact::Kind::Input, "run", printable(line)});
                shell->deleteLater();
            });
    shell->start("/bin/sh", {"-c", command});
    shell->closeWriteChannel();
}

void Board::powerOff(const QString &why)
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
void Board::enter(Phase phase)
{
    mPhase = phase;
    mStartTimer.stop();
    mStallTimer.stop();
}

void Board::handleFact(const Fact &fact)
{
    Q_EMIT happened(fact);
    if (fact.kind == Fact::Kind::Gpio && fact.subject.toInt() == boardlines::kKeepPower)
        mIsPowerReleased = mIsSynced && fact.value == "0";
    else if (fact.kind == Fact::Kind::Watchdog && fact.value == "reset")
        powerOff("watchdog");
}

// Files, pipes and sockets reach the bench side by side. What the controller did before it ran
// a command is handled before the command, so that the facts keep the true order.
void Board::drain()
{
    mWatchdog.drain();
    mController.drain();
}

void Board::handleCommand(int command, const QString &text)
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

void Board::endScript(int command, const QString &text)
{
    const QString script = places::kPictureScript;
    QString picture;
    if (!mAreScriptsFailing && text == script + " 1")
        picture = "PVM";
    else if (!mAreScriptsFailing && text == script + " 0")
        picture = "DA";
    const int status = mAreScriptsFailing ? 1 : 0;
    mCommands.replyAfter(mScriptMs, command, status, [this, text, picture, status] {
        if (!picture.isEmpty())
            Q_EMIT happened({Fact::Kind::Picture, {}, picture});
        Q_EMIT happened({Fact::Kind::Exit, text, QString::number(status)});
    });
}

// The board goes at once: what was not written to the disk by then is lost, and a board whose
// power is kept does not go at all.
void Board::reboot()
{
    if (!mIsPowerReleased)
        Q_EMIT failed(QStringLiteral("reboot without sync and then keep-power (%1) = 0")
                          .arg(boardlines::kKeepPower));
    powerOff("reboot");
}

/// Returns the exit status.
int Board::carryOut(const QString &command)
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

void Board::changeBus(bool up, const QString &command)
{
    mBus->setUp(up, command);
    Q_EMIT happened({Fact::Kind::Bus, command, mBus->isUp() ? "up" : "down"});
}

void Board::handleBusConnected()
{
    Q_EMIT happened({Fact::Kind::Bus, {}, "connected"});
    mIsBusConnected = true;
    mController.setPid(mBus->devicePid());
    if (mPhase == Phase::Starting && !mBus->isUp())
        failStart("the controller opened can0 without bringing it up");
    else
        checkReady();
}

void Board::checkReady()
{
    const bool hasRenderer = mIsRendererAttached || !mSetup.rendererFromStart;
    if (mPhase != Phase::Starting || !mIsBusConnected || !hasRenderer)
        return;
    mPhase = Phase::Running;
    mStartTimer.stop();
    Q_EMIT ready();
}

void Board::failStart(const QString &reason)
{
    enter(Phase::Lost);
    const QString last = mController.lastLines(1).join(QString());
    Q_EMIT startFailed(last.isEmpty() ? reason : reason + "; its last line: " + last);
}

void Board::handleControllerEnded(const QString &how)
{
    drain();
    mBus->disconnectDevice();
    if (mPhase == Phase::Running && mSetup.hasService)
        restartController(how);
    else
        loseProcess("the controller ended " + how);
}

/// The stand-in's end is the bench's fault. Another's is what a drive may be about, once it began.
void Board::handleRendererLost(const QString &how)
{
    if (mSetup.renderer.isEmpty())
        loseProcess("the renderer stand-in ended by itself");
    else if (mPhase == Phase::Starting)
        failStart("the renderer ended by itself: " + how);
}

void Board::loseProcess(const QString &how)
{
    if (mPhase == Phase::Starting)
        failStart(how);
    else if (mPhase == Phase::Running)
        lose(how);
}

void Board::restartController(const QString &how)
{
    Q_EMIT happened({Fact::Kind::Controller, {}, "ended " + how});
    run(QString(places::kPictureScript) + " 1"); // as ExecStopPost of the service
    QTimer::singleShot(kRestartMs, this, [this] {
        if (mPhase == Phase::Running)
            mController.start(mSetup.controller);
    });
}

void Board::lose(const QString &reason)
{
    enter(Phase::Lost);
    Q_EMIT failed(reason);
}

// Checks are counted instead of milliseconds: when the whole machine is held up, the controller
// has had no chance to read either.
void Board::checkStall()
{
    mStalledChecks = isControllerWell() ? 0 : mStalledChecks + 1;
    if (mPhase == Phase::Running && mStalledChecks >= kStallChecks)
        lose(mBus->waiting() > 0 ? "the controller has not read the bus for 5 s"
                                 : "the controller has stood still for 5 s");
}

/// It takes frames, or has taken all and waits for its timers now and then.
bool Board::isControllerWell()
{
    const quint64 takenBefore = std::exchange(mTakenAtCheck, mBus->received());
    const qint64 waitsBefore = std::exchange(mWaitsAtCheck, mController.waits());
    const bool isReading = mTakenAtCheck != takenBefore;
    const bool isAwake = mWaitsAtCheck != waitsBefore;
    // A controller that waits for one of its commands does nothing else.
    return isReading || (isAwake && mBus->waiting() == 0) || isCommandRunning();
}
