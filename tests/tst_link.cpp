// SPDX-License-Identifier: MIT

// The link is made of named objects that the whole system shares: each story runs as a process of
// its own inside a private IPC namespace and /tmp.

#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QProcess>
#include <QSharedMemory>
#include <QSignalSpy>
#include <QSystemSemaphore>
#include <QThread>
#include <QtTest>

#include <atomic>

using stories::Args;

// QThread::wait() orders this, which the thread sanitizer cannot see in a library that is not
// instrumented.
extern "C" const char *__tsan_default_suppressions()
{
    return "race:~SharedMemoryControl";
}

// Semaphore and lock of the link, told when a story asks for it, and failing on request. The
// story's own use of a segment is not told: it happens on the main thread.
static std::atomic<bool> gLocksAreTold{false};
static std::atomic<bool> gAcquireFails{false};
static std::atomic<bool> gLockFails{false};
static std::atomic<bool> gIsExchangeDone{false};

static void tellLock(const QString &what)
{
    if (gLocksAreTold)
        effects::add(what);
}

// The names are the linker's.
extern "C" {

void __real__ZN16QSystemSemaphoreC1ERK7QStringiNS_10AccessModeE(QSystemSemaphore *, const QString &,
                                                                int, int);
void __wrap__ZN16QSystemSemaphoreC1ERK7QStringiNS_10AccessModeE(QSystemSemaphore *semaphore,
                                                                const QString &key, int count,
                                                                int mode)
{
    // A link leaves its semaphore to the renderer: as long as these are known, none is lost.
    static auto *s_all = new QList<QSystemSemaphore *>;
    s_all->append(semaphore);
    tellLock(QStringLiteral("semaphore %1 %2 mode %3").arg(key).arg(count).arg(mode));
    __real__ZN16QSystemSemaphoreC1ERK7QStringiNS_10AccessModeE(semaphore, key, count, mode);
}

void __real__ZN16QSystemSemaphoreD1Ev(QSystemSemaphore *);
void __wrap__ZN16QSystemSemaphoreD1Ev(QSystemSemaphore *semaphore)
{
    effects::add(QStringLiteral("semaphore deleted"));
    __real__ZN16QSystemSemaphoreD1Ev(semaphore);
}

bool __real__ZN16QSystemSemaphore7acquireEv(QSystemSemaphore *);
bool __wrap__ZN16QSystemSemaphore7acquireEv(QSystemSemaphore *semaphore)
{
    tellLock(QStringLiteral("acquire"));
    return !gAcquireFails && __real__ZN16QSystemSemaphore7acquireEv(semaphore);
}

bool __real__ZN16QSystemSemaphore7releaseEi(QSystemSemaphore *, int);
bool __wrap__ZN16QSystemSemaphore7releaseEi(QSystemSemaphore *semaphore, int count)
{
    tellLock(QStringLiteral("release %1").arg(count));
    return __real__ZN16QSystemSemaphore7releaseEi(semaphore, count);
}

bool __real__ZN13QSharedMemory4lockEv(QSharedMemory *);
bool __wrap__ZN13QSharedMemory4lockEv(QSharedMemory *segment)
{
    tellLock(QStringLiteral("lock"));
    return !gLockFails && __real__ZN13QSharedMemory4lockEv(segment);
}

bool __real__ZN13QSharedMemory6unlockEv(QSharedMemory *);
bool __wrap__ZN13QSharedMemory6unlockEv(QSharedMemory *segment)
{
    tellLock(QStringLiteral("unlock"));
    return __real__ZN13QSharedMemory6unlockEv(segment);
}

} // extern "C"

class TestLink : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void link_data() { stories::load("link"); }
    void link();

public:
    QString rendererProgram;
    QString ownProgram;
};

// Starts a program and waits for a line of it. It is killed with the object at the latest.
static std::unique_ptr<QProcess> startAndHear(const QString &program, const QStringList &arguments,
                                              const char *say, const char *hear)
{
    auto process = std::make_unique<QProcess>();
    process->start(program, arguments);
    process->write(say);
    QByteArray said;
    while (!said.contains(hear) && process->waitForReadyRead(10000))
        said += process->readAll();
    effects::add((said.contains(hear) ? "" : "not ") + QString(hear));
    return process;
}

// A link that has started on its own thread. Its timers never fire here.
static std::unique_ptr<SharedMemoryControl> makeLink(bool isCreator)
{
    auto link = std::make_unique<SharedMemoryControl>(isCreator, nullptr);
    QObject::connect(link.get(), &SharedMemoryControl::avmInitOkSignal,
                     [] { effects::add("initialised"); });
    QObject::connect(link.get(), &SharedMemoryControl::turnSwitchSignal,
                     [] { effects::add("turn switch"); });
    QObject::connect(link.get(), &SharedMemoryControl::avmStopSignal,
                     [](bool stopped) { effects::add(stopped ? "stopped" : "runs"); });
    QMetaObject::invokeMethod(
        link.get(), [] {}, Qt::BlockingQueuedConnection);
    return link;
}

static void beat(SharedMemoryControl &link, int count)
{
    for (int i = 0; i < count; ++i)
        link.updatemAVMRunCount();
}

static bool isExchangeDone(int ms)
{
    return QTest::qWaitFor([] { return gIsExchangeDone.load(); }, ms);
}

void TestLink::link()
{
    effects::reset();
    effects::recordTimers(true);
    // A renderer's link makes the manager itself.
    if (!QByteArray(QTest::currentDataTag()).contains("makes the manager"))
        DeviceDatasManager::self();
    QSharedMemory missing("PvmSharedMemory5");
    QVERIFY(!missing.attach());
    const QString textWithoutSegment = missing.errorString(); // each Qt has its own
    std::unique_ptr<SharedMemoryControl> link;
    std::unique_ptr<QProcess> process;
    QSharedMemory segment("PvmSharedMemory5");
    const auto setByte = [&segment](Args w) {
        static_cast<char *>(segment.data())[w.number()] = static_cast<char>(w.number(1, 16));
    };
    stories::play(
        {{"link", [&](Args w) { link = makeLink(w[0] == "creator"); }},
         {"end", [&](Args) { link.reset(); }},
         {"end-itself",
          [&](Args) {
              QSignalSpy spy(link->thread(), SIGNAL(destroyed()));
              link.release()->deleteLater();
              QVERIFY(QTest::qWaitFor([&spy] { return spy.size() == 1; }, 10000));
          }},
         {"thread", [&](Args) { effects::add(link->thread()->objectName()); }},
         {"exchange",
          [&](Args w) {
              for (int i = 0; i < w.value(0, "1").toInt(); ++i)
                  QMetaObject::invokeMethod(link.get(), "on_runTimerOut",
                                            Qt::BlockingQueuedConnection);
              for (QString line : effects::take())
                  effects::add(line.replace(textWithoutSegment, "(Qt: none)"));
          }},
         {"changed",
          [&](Args) {
              QMetaObject::invokeMethod(link.get(), "on_DeviceDataChanged",
                                        Qt::BlockingQueuedConnection);
          }},
         {"locks", [](Args) { gLocksAreTold = true; }},
         {"failing",
          [](Args w) {
              gAcquireFails = w[0] == "acquire";
              gLockFails = w[0] == "lock";
          }},
         {"stranger", [&](Args w) { QVERIFY(segment.create(w.number())); }},
         {"attach", [&](Args) { QVERIFY(segment.attach()); }},
         {"byte", setByte},
         {"bytes",
          [&](Args) {
              const QByteArray bytes(static_cast<const char *>(segment.constData()),
                                     segment.size());
              effects::add(bytes.toHex());
          }},
         {"hold", [&](Args) { QVERIFY(segment.lock()); }},
         {"let-go", [&](Args) { QVERIFY(segment.unlock()); }},
         {"held-up",
          [&](Args) {
              gIsExchangeDone = false;
              QMetaObject::invokeMethod(link.get(), "on_runTimerOut", Qt::QueuedConnection);
              QMetaObject::invokeMethod(
                  link.get(), [] { gIsExchangeDone = true; }, Qt::QueuedConnection);
              QVERIFY(!isExchangeDone(50));
          }},
         {"goes-on", [](Args) { QVERIFY(isExchangeDone(10000)); }},
         {"controller",
          [&](Args) { process = startAndHear(ownProgram, {"be-a-controller"}, "", "ready"); }},
         {"renderer",
          [&](Args) { process = startAndHear(rendererProgram, {}, "hold\n", "holding"); }},
         {"kill",
          [&](Args) {
              process->kill();
              QVERIFY(process->waitForFinished(10000));
          }},
         {"gear",
          [](Args w) { DeviceDatasManager::self()->setGear(static_cast<char>(w.number())); }},
         {"record", [](Args) { effects::add(DeviceDatasManager::self()->deviceData().gear); }},
         {"flags",
          [&](Args) {
              effects::add(QStringLiteral("%1 %2 %3 %4")
                               .arg(link->getAVMRunCount())
                               .arg(link->getIsTurnSwitchEnable())
                               .arg(link->getIsAVMInited())
                               .arg(link->getIsSlogEnable()));
          }},
         {"there",
          [&](Args) {
              effects::add(QStringLiteral("%1 %2")
                               .arg(link->isLinkAttached())
                               .arg(link->isControllerThere()));
          }},
         {"run-count", [&](Args w) { link->setAVMRunCount(w.number()); }},
         {"turn-switch", [&](Args w) { link->setIsTurnSwitchEnable(w.isOn()); }},
         {"initialised", [&](Args w) { link->setIsAVMInited(w.isOn()); }},
         {"slog", [&](Args w) { link->setIsSlogEnable(w.isOn()); }},
         {"dump-nothing", [&](Args w) { link->logCharArray(nullptr, w.number()); }},
         {"beat", [&](Args w) { beat(*link, w.number()); }},
         {"beat-from-two-threads", [&](Args w) {
              std::unique_ptr<QThread> other(QThread::create(beat, std::ref(*link), w.number()));
              other->start();
              beat(*link, w.number());
              QVERIFY(other->wait(10000));
          }}});
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == "be-a-controller") {
        SharedMemoryControl control(true, nullptr);
        fprintf(stdout, "ready\n");
        fflush(stdout);
        return QCoreApplication::exec();
    }
    TestLink test;
    test.ownProgram = application.applicationFilePath();
    test.rendererProgram = application.applicationDirPath() + "/pvm-bench-renderer";
    return QTest::qExec(&test, argc, argv);
}

#include "tst_link.moc"
