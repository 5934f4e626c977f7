// SPDX-License-Identifier: MIT

#include "bench/board/board.h"

#include "bench/board/boardlines.h"
#include "bench/board/places.h"

#include <QCoreApplication>
#include <QDir>
#include <QRegularExpression>
#include <QSharedMemory>

namespace {

constexpr int kStartTimeoutMs = 30000; // a debugger may need them
constexpr int kStallCheckPeriodMs = 500;
constexpr int kStallChecks = 10; // in a row: 5 s

const QString kBusDownCommand = QStringLiteral("ip link set can0 down");

bool isBusUpCommand(const QString &command)
{
    static const QRegularExpression pattern(
        QStringLiteral("^ip link set up can0 type can bitrate 500000 listen-only on "
                       "restart-ms [0-9]+$"));
    return pattern.match(command).hasMatch();
}

// Shared memory outlives the processes that used it; a board that has lost its power has none.
void removeSegment()
{
    QSharedMemory segment(QLatin1String(places::kSegmentKey));
    if (segment.attach())
        segment.detach();
}

} // namespace

Board::Board(const Setup &setup, QObject *parent) : QObject(parent), mSetup(setup)
{
    using Kind = Fact::Kind;
    mStartTimer.setSingleShot(true);
    connect(&mStartTimer, &QTimer::timeout, this, &Board::handleStartTimeout);
    connect(&mStallTimer, &QTimer::timeout, this, &Board::checkStall);
    connect(&mGpio, &GpioTree::written, this, &Board::handleGpio);
    connect(&mInputs, &Inputs::changed, this,
            [this](const QString &line, const QString &what) { report(Kind::Input, line, what); });
    connect(&mWatchdog, &Watchdog::happened, this, &Board::handleWatchdog);
    connect(&mCommands, &CommandServer::started, this, &Board::handleCommand);
    connect(&mBus, &VehicleBus::connected, this, &Board::handleBusConnected);
    connect(&mBus, &VehicleBus::losing, this,
            [this] { report(Kind::Frames, QString(), QStringLiteral("lost")); });
    connect(&mController, &ControllerProcess::line, this,
            [this](const QString &text) { report(Kind::Log, text, QString()); });
    connect(&mController, &ControllerProcess::flooding, this,
            [this] { report(Kind::Controller, QString(), QStringLiteral("flooding")); });
    connect(&mController, &ControllerProcess::ended, this, &Board::handleControllerEnded);
    connect(&mRenderer, &RendererProcess::attached, this, &Board::handleAttached);
    connect(&mRenderer, &RendererProcess::holding, this,
            [this] { report(Kind::Renderer, QString(), QStringLiteral("holding")); });
    connect(&mRenderer, &RendererProcess::ended, this,
            [this] { report(Kind::Renderer, QString(), QStringLiteral("ended")); });
    connect(
        &mRenderer, &RendererProcess::record, this,
        [this](const QString &field, const QString &value) { report(Kind::Record, field, value); });
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
    if (QCoreApplication::applicationDirPath() != QLatin1String(places::kBench))
        return QStringLiteral("a board can only be built inside the bench's sandbox");
    QDir().mkpath(QLatin1String(places::kBusFolder));
    QString fault = mGpio.build();
    if (fault.isEmpty() && mSetup.hasWatchdog)
        fault = mWatchdog.build();
    if (fault.isEmpty())
        fault = mBus.build();
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
    report(Fact::Kind::Power, QString(), QStringLiteral("on"));
    mStartTimer.start(kStartTimeoutMs);
    mStallTimer.start(kStallCheckPeriodMs);
    if (mSetup.rendererFromStart)
        startRenderer();
    mController.start(mSetup.controller);
}

void Board::powerOff(const QString &why)
{
    mPhase = Phase::Off;
    mStartTimer.stop();
    mStallTimer.stop();
    mBus.disconnectDevice(); // before the kernel empties the dead controller's queue
    mBus.setUp(false);
    mController.kill();
    mRenderer.kill();
    mCommands.dropAll();
    mWatch.discard();
    mWatchdog.reset();
    report(Fact::Kind::Power, why, QStringLiteral("off"));
}

void Board::report(Fact::Kind kind, const QString &subject, const QString &value)
{
    Q_EMIT happened(Fact{kind, subject, value});
}

// Files, pipes and sockets reach the bench side by side. What the controller did before it ran a
// command is handled before the command, so that the facts keep the true order.
void Board::drain()
{
    mWatchdog.drain();
    mController.drain();
}

void Board::handleCommand(int command, const QStringList &words)
{
    drain();
    const QString text = words.join(QLatin1Char(' '));
    report(Fact::Kind::Command, text, QString());
    if (text == QLatin1String("reboot"))
        reboot();
    else if (text.startsWith(QLatin1String("/etc/")))
        endScript(command, text);
    else
        mCommands.reply(command, carryOut(text));
}

void Board::endScript(int command, const QString &text)
{
    const bool isFailing = mAreScriptsFailing;
    mCommands.replyAfter(mScriptMs, command, isFailing ? 1 : 0, [this, text, isFailing] {
        if (!isFailing)
            reportPicture(text);
    });
}

// The board goes at once: what was not written to the disk by then is lost, and a board whose power
// is kept does not go at all.
void Board::reboot()
{
    if (!mIsPowerReleased)
        Q_EMIT controllerLost(QStringLiteral("reboot without sync and then keep-power (%1) = 0")
                                  .arg(boardlines::kKeepPower));
    powerOff(QStringLiteral("reboot"));
}

/// The exit status.
int Board::carryOut(const QString &command)
{
    if (command == QLatin1String("sync"))
        mIsSynced = true;
    if (!command.startsWith(QLatin1String("ip ")))
        return 0;
    const bool up = isBusUpCommand(command);
    if (!up && command != kBusDownCommand)
        return 2;
    changeBus(up, command);
    return 0;
}

void Board::reportPicture(const QString &command)
{
    if (command == QLatin1String(places::kPictureScript) + QStringLiteral(" 1"))
        report(Fact::Kind::Picture, QString(), QStringLiteral("PVM"));
    else if (command == QLatin1String(places::kPictureScript) + QStringLiteral(" 0"))
        report(Fact::Kind::Picture, QString(), QStringLiteral("DA"));
}

void Board::handleGpio(int line, bool level)
{
    report(Fact::Kind::Gpio, QString::number(line), QString::number(level ? 1 : 0));
    if (line == boardlines::kKeepPower)
        mIsPowerReleased = mIsSynced && !level;
}

void Board::changeBus(bool up, const QString &command)
{
    mBus.setUp(up);
    report(Fact::Kind::Bus, command, up ? QStringLiteral("up") : QStringLiteral("down"));
}

void Board::handleBusConnected()
{
    report(Fact::Kind::Bus, QString(), QStringLiteral("connected"));
    mIsBusConnected = true;
    mController.setPid(mBus.devicePid());
    if (mPhase == Phase::Starting && !mBus.isUp())
        failStart(QStringLiteral("the controller opened can0 without bringing it up"));
    else
        checkReady();
}

void Board::handleAttached()
{
    mIsRendererAttached = true;
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
    mPhase = Phase::Lost;
    mStartTimer.stop();
    mStallTimer.stop();
    const QStringList last = mController.lastLines(1);
    Q_EMIT startFailed(last.isEmpty() ? reason
                                      : reason + QStringLiteral("; its last line: ") + last[0]);
}

void Board::handleStartTimeout()
{
    failStart(mIsBusConnected
                  ? QStringLiteral("the renderer and the controller did not meet within 30 s")
                  : QStringLiteral("the controller did not open can0 within 30 s"));
}

void Board::handleControllerEnded(const QString &how)
{
    drain();
    mBus.disconnectDevice();
    if (mPhase == Phase::Starting) {
        failStart(QStringLiteral("the controller ended ") + how);
    } else if (mPhase == Phase::Running) {
        mPhase = Phase::Lost;
        mStallTimer.stop();
        Q_EMIT controllerLost(QStringLiteral("the controller ended ") + how);
    }
}

void Board::handleWatchdog(const QString &what)
{
    report(Fact::Kind::Watchdog, QString(), what);
    if (what == QLatin1String("reset"))
        powerOff(QStringLiteral("watchdog"));
}

// Checks are counted instead of milliseconds: when the whole machine is held up, the controller has
// had no chance to read either.
void Board::checkStall()
{
    mStalledChecks = isControllerWell() ? 0 : mStalledChecks + 1;
    if (mPhase != Phase::Running || mStalledChecks < kStallChecks)
        return;
    mPhase = Phase::Lost;
    mStallTimer.stop();
    Q_EMIT controllerLost(mBus.waiting() > 0
                              ? QStringLiteral("the controller has not read the bus for 5 s")
                              : QStringLiteral("the controller has stood still for 5 s"));
}

/// It takes frames, or has taken all and waits for its timers now and then.
bool Board::isControllerWell()
{
    const quint64 taken = mBus.taken();
    const bool isReading = taken != mTakenAtCheck;
    mTakenAtCheck = taken;
    const qint64 waits = mController.waits();
    const bool isAwake = waits != mWaitsAtCheck;
    mWaitsAtCheck = waits;
    // A controller that waits for one of its commands does nothing else.
    return isReading || (isAwake && mBus.waiting() == 0) || mCommands.isCommandRunning();
}

void Board::setBusUp(bool up)
{
    if (up != mBus.isUp())
        changeBus(up, QString());
}

void Board::startRenderer()
{
    if (mRenderer.isRunning())
        return;
    mRenderer.start();
    report(Fact::Kind::Renderer, QString(), QStringLiteral("started"));
}

void Board::setRendererFlag(const QString &flag, bool on)
{
    if (!mRenderer.isRunning())
        return;
    const QString command = flag + (on ? QStringLiteral(" on") : QStringLiteral(" off"));
    mRenderer.command(command.toLatin1());
    report(Fact::Kind::Renderer, QString(), command);
}

void Board::setScripts(int ms, bool isFailing)
{
    mScriptMs = ms;
    mAreScriptsFailing = isFailing;
    report(Fact::Kind::Input, QStringLiteral("scripts"),
           isFailing ? QStringLiteral("fail")
           : ms == 0 ? QStringLiteral("normal")
                     : QStringLiteral("take %1 ms").arg(ms));
}

bool Board::isCommandRunning() const
{
    return mCommands.isCommandRunning();
}
