#include "bench/board/board.h"

#include "bench/board/commandserver.h"
#include "bench/board/controllerprocess.h"
#include "bench/board/filewatch.h"
#include "bench/board/gpiotree.h"
#include "bench/board/inputs.h"
#include "bench/board/rendererprocess.h"
#include "bench/board/vehiclebus.h"
#include "bench/board/watchdog.h"

#include <QCoreApplication>
#include <QDir>
#include <QRegularExpression>
#include <QSharedMemory>
#include <QTimer>

namespace {

constexpr int kStartTimeoutMs = 10000;
constexpr int kStallCheckPeriodMs = 500;
constexpr int kStallChecks = 10; // in a row: 5 s

const QString kBenchFolder = QStringLiteral("/bench");
const QString kSegmentKey = QStringLiteral("PvmSharedMemory5");
const QString kScripts = QStringLiteral("/etc/");
const QString kScript = QStringLiteral("/etc/set_t840gmsl_0.sh");
const QString kBusDownCommand = QStringLiteral("ip link set can0 down");
constexpr int kKeepPowerLine = 150;

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
    QSharedMemory segment(kSegmentKey);
    if (segment.attach())
        segment.detach();
}

} // namespace

class Board::Private
{
public:
    enum class Phase { Off, Starting, Running, Lost };

    Private(Board *board, const Setup &givenSetup);

    bool build(QString *error);
    void powerOn();
    void powerOff(const QString &why);
    void report(Fact::Kind kind, const QString &subject, const QString &value);
    void drain();

    void handleCommand(int command, const QStringList &words);
    void endScript(int command, const QString &text);
    int carryOut(const QString &command);
    void reportPicture(const QString &command);
    void handleGpio(int line, bool level);
    void reboot();
    void setBusUp(bool up, const QString &command);

    void handleBusConnected();
    void handleAttached();
    void checkReady();
    void failStart(const QString &reason);
    void handleStartTimeout();
    void handleControllerEnded(const QString &how);
    void handleWatchdog(const QString &what);
    void checkStall();

    Board *q;
    Setup setup;
    FileWatch watch;
    GpioTree gpio{&watch};
    Inputs inputs{gpio};
    Watchdog watchdog{&watch};
    CommandServer commands;
    VehicleBus bus;
    RendererProcess renderer;
    ControllerProcess controller;
    QTimer startTimer;
    QTimer stallTimer;
    Phase phase = Phase::Off;
    bool isBusConnected = false;
    bool isRendererAttached = false;
    bool isSynced = false;        ///< in this life
    bool isPowerReleased = false; ///< the keep-power line is 0, after the sync
    int scriptMs = 0;             ///< before a script ends
    bool areScriptsFailing = false;
    quint64 takenAtCheck = 0; ///< frames, at the last look at the bus
    qint64 waitsAtCheck = 0;  ///< the controller's, at the last look at it
    int stalledChecks = 0;    ///< in a row with waiting frames left alone, or with no sign of life
};

Board::Private::Private(Board *board, const Setup &givenSetup) : q(board), setup(givenSetup)
{
    using Kind = Fact::Kind;
    startTimer.setSingleShot(true);
    connect(&startTimer, &QTimer::timeout, q, [this] { handleStartTimeout(); });
    connect(&stallTimer, &QTimer::timeout, q, [this] { checkStall(); });
    connect(&gpio, &GpioTree::written, q,
            [this](int line, bool level) { handleGpio(line, level); });
    connect(&inputs, &Inputs::changed, q,
            [this](const QString &name, const QString &what) { report(Kind::Input, name, what); });
    connect(&watchdog, &Watchdog::happened, q,
            [this](const QString &what) { handleWatchdog(what); });
    connect(&commands, &CommandServer::started, q,
            [this](int command, const QStringList &words) { handleCommand(command, words); });
    connect(&bus, &VehicleBus::connected, q, [this] { handleBusConnected(); });
    connect(&controller, &ControllerProcess::line, q,
            [this](const QString &text) { report(Kind::Log, text, QString()); });
    connect(&controller, &ControllerProcess::ended, q,
            [this](const QString &how) { handleControllerEnded(how); });
    connect(&renderer, &RendererProcess::attached, q, [this] { handleAttached(); });
    connect(&renderer, &RendererProcess::holding, q,
            [this] { report(Kind::Renderer, QString(), QStringLiteral("holding")); });
    connect(&renderer, &RendererProcess::ended, q,
            [this] { report(Kind::Renderer, QString(), QStringLiteral("ended")); });
    connect(
        &renderer, &RendererProcess::record, q,
        [this](const QString &field, const QString &value) { report(Kind::Record, field, value); });
}

bool Board::Private::build(QString *error)
{
    // The board's files have fixed places in /etc, /dev and /sys.
    if (QCoreApplication::applicationDirPath() != kBenchFolder) {
        *error = QStringLiteral("a board can only be built inside the bench's sandbox");
        return false;
    }
    QDir().mkpath(QStringLiteral("/run/pvm-bench/can"));
    return gpio.build(error) && (!setup.hasWatchdog || watchdog.build(error)) && bus.build(error) &&
           commands.build(kBenchFolder + QStringLiteral("/pvm-bench-command"), error);
}

void Board::Private::powerOn()
{
    if (phase == Phase::Starting || phase == Phase::Running)
        return;
    removeSegment();
    gpio.resetOutputs();
    phase = Phase::Starting;
    isBusConnected = false;
    isRendererAttached = false;
    isSynced = false;
    isPowerReleased = false;
    report(Fact::Kind::Power, QString(), QStringLiteral("on"));
    startTimer.start(kStartTimeoutMs);
    stallTimer.start(kStallCheckPeriodMs);
    if (setup.rendererFromStart)
        q->startRenderer();
    controller.start(setup.controller);
}

void Board::Private::powerOff(const QString &why)
{
    phase = Phase::Off;
    startTimer.stop();
    stallTimer.stop();
    controller.kill();
    renderer.kill();
    commands.dropAll();
    bus.disconnectDevice();
    bus.setUp(false);
    watch.discard();
    watchdog.reset();
    report(Fact::Kind::Power, why, QStringLiteral("off"));
}

void Board::Private::report(Fact::Kind kind, const QString &subject, const QString &value)
{
    Q_EMIT q->happened(Fact{kind, subject, value});
}

// Files, pipes and sockets reach the bench side by side. What the controller did before it ran a
// command is handled before the command, so that the facts keep the true order.
void Board::Private::drain()
{
    watchdog.drain();
    controller.drain();
}

void Board::Private::handleCommand(int command, const QStringList &words)
{
    drain();
    const QString text = words.join(QLatin1Char(' '));
    report(Fact::Kind::Command, text, QString());
    if (text == QLatin1String("reboot"))
        reboot();
    else if (text.startsWith(kScripts))
        endScript(command, text);
    else
        commands.reply(command, carryOut(text));
}

void Board::Private::endScript(int command, const QString &text)
{
    const bool isFailing = areScriptsFailing;
    commands.replyAfter(scriptMs, command, isFailing ? 1 : 0, [this, text, isFailing] {
        if (!isFailing)
            reportPicture(text);
    });
}

// The board goes at once: what was not written to the disk by then is lost, and a board whose power
// is kept does not go at all.
void Board::Private::reboot()
{
    if (!isPowerReleased)
        Q_EMIT q->controllerLost(
            QStringLiteral("reboot without sync and then keep-power (%1) = 0").arg(kKeepPowerLine));
    powerOff(QStringLiteral("reboot"));
}

/// The exit status.
int Board::Private::carryOut(const QString &command)
{
    if (command == QLatin1String("sync"))
        isSynced = true;
    if (!command.startsWith(QLatin1String("ip ")))
        return 0;
    const bool up = isBusUpCommand(command);
    if (!up && command != kBusDownCommand)
        return 2;
    setBusUp(up, command);
    return 0;
}

void Board::Private::reportPicture(const QString &command)
{
    if (command == kScript + QStringLiteral(" 1"))
        report(Fact::Kind::Picture, QString(), QStringLiteral("PVM"));
    else if (command == kScript + QStringLiteral(" 0"))
        report(Fact::Kind::Picture, QString(), QStringLiteral("DA"));
}

void Board::Private::handleGpio(int line, bool level)
{
    report(Fact::Kind::Gpio, QString::number(line), QString::number(level ? 1 : 0));
    if (line == kKeepPowerLine)
        isPowerReleased = isSynced && !level;
}

void Board::Private::setBusUp(bool up, const QString &command)
{
    bus.setUp(up);
    report(Fact::Kind::Bus, command, up ? QStringLiteral("up") : QStringLiteral("down"));
}

void Board::Private::handleBusConnected()
{
    report(Fact::Kind::Bus, QString(), QStringLiteral("connected"));
    isBusConnected = true;
    if (phase == Phase::Starting && !bus.isUp())
        failStart(QStringLiteral("the controller opened can0 without bringing it up"));
    else
        checkReady();
}

void Board::Private::handleAttached()
{
    isRendererAttached = true;
    checkReady();
}

void Board::Private::checkReady()
{
    const bool hasRenderer = isRendererAttached || !setup.rendererFromStart;
    if (phase != Phase::Starting || !isBusConnected || !hasRenderer)
        return;
    phase = Phase::Running;
    startTimer.stop();
    Q_EMIT q->ready();
}

void Board::Private::failStart(const QString &reason)
{
    phase = Phase::Lost;
    startTimer.stop();
    stallTimer.stop();
    const QStringList last = controller.lastLines(1);
    Q_EMIT q->startFailed(last.isEmpty() ? reason
                                         : reason + QStringLiteral("; its last line: ") + last[0]);
}

void Board::Private::handleStartTimeout()
{
    failStart(isBusConnected
                  ? QStringLiteral("the renderer and the controller did not meet within 10 s")
                  : QStringLiteral("the controller did not open can0 within 10 s"));
}

void Board::Private::handleControllerEnded(const QString &how)
{
    drain();
    bus.disconnectDevice();
    if (phase == Phase::Starting) {
        failStart(QStringLiteral("the controller ended at once: ") + how);
    } else if (phase == Phase::Running) {
        phase = Phase::Lost;
        stallTimer.stop();
        Q_EMIT q->controllerLost(QStringLiteral("the controller ended: ") + how);
    }
}

void Board::Private::handleWatchdog(const QString &what)
{
    report(Fact::Kind::Watchdog, QString(), what);
    if (what == QLatin1String("reset"))
        powerOff(QStringLiteral("watchdog"));
}

// Checks are counted instead of milliseconds: when the whole machine is held up, the controller has
// had no chance to read either.
void Board::Private::checkStall()
{
    const bool isReading = bus.waiting() == 0 || bus.taken() != takenAtCheck;
    takenAtCheck = bus.taken();
    const bool isAwake = controller.waits() != waitsAtCheck;
    waitsAtCheck = controller.waits();
    // A controller that waits for one of its commands does nothing else.
    const bool isWell = (isReading && isAwake) || commands.isCommandRunning();
    stalledChecks = isWell ? 0 : stalledChecks + 1;
    if (phase != Phase::Running || stalledChecks < kStallChecks)
        return;
    phase = Phase::Lost;
    stallTimer.stop();
    Q_EMIT q->controllerLost(isAwake ? QStringLiteral("the controller has not read the bus for 5 s")
                                     : QStringLiteral("the controller has stood still for 5 s"));
}

Board::Board(Setup setup, QObject *parent) : QObject(parent)
{
    d = std::make_unique<Private>(this, setup);
}

Board::~Board()
{
    // Their ends are no facts any more.
    blockSignals(true);
    d->controller.kill();
    d->renderer.kill();
}

bool Board::build(QString *error)
{
    return d->build(error);
}

void Board::powerOn()
{
    d->powerOn();
}

void Board::sendFrame(const BusFrame &frame)
{
    d->bus.send(frame);
}

void Board::setBusUp(bool up)
{
    if (up != d->bus.isUp())
        d->setBusUp(up, QString());
}

void Board::startRenderer()
{
    if (d->renderer.isRunning())
        return;
    d->renderer.start();
    d->report(Fact::Kind::Renderer, QString(), QStringLiteral("started"));
}

void Board::killRenderer()
{
    d->renderer.kill();
}

void Board::setRendererFlag(const QString &flag, bool on)
{
    if (!d->renderer.isRunning())
        return;
    const QString command = flag + (on ? QStringLiteral(" on") : QStringLiteral(" off"));
    d->renderer.command(command.toLatin1());
    d->report(Fact::Kind::Renderer, QString(), command);
}

Inputs &Board::inputs()
{
    return d->inputs;
}

void Board::setScripts(int ms, bool isFailing)
{
    d->scriptMs = ms;
    d->areScriptsFailing = isFailing;
    d->report(Fact::Kind::Input, QStringLiteral("scripts"),
              isFailing ? QStringLiteral("fail")
              : ms == 0 ? QStringLiteral("normal")
                        : QStringLiteral("take %1 ms").arg(ms));
}

bool Board::isBusQuiet() const
{
    return d->bus.waiting() == 0;
}

bool Board::isCommandRunning() const
{
    return d->commands.isCommandRunning();
}

Board::Figures Board::figures() const
{
    d->controller.sample();
    Figures figures;
    figures.framesSent = d->bus.sent();
    figures.framesReceived = d->bus.taken();
    figures.framesLost = d->bus.lost();
    figures.watchdogFeeds = d->watchdog.feeds();
    figures.peakMemoryKiB = d->controller.peakMemoryKiB();
    figures.cpuSeconds = d->controller.cpuSeconds();
    return figures;
}

QStringList Board::lastLogLines(int count) const
{
    return d->controller.lastLines(count);
}
