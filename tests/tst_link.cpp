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

using stories::Words;

// Qt's event queue and QThread::wait() order these, which the thread sanitizer cannot see in a
// library that is not instrumented.
extern "C" const char *__tsan_default_suppressions()
{
    return "race:PendingExchange\nrace:~SharedMemoryControl";
}

// Semaphore and lock of the link, told when a story asks for it, and failing on request. The
// story's own use of a segment is not told: it happens on the main thread.
static std::atomic<bool> gLocksAreTold{false};
static std::atomic<bool> gAcquireFails{false};
static std::atomic<bool> gLockFails{false};

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

/// A link whose exchanges the test calls for, on its own thread. Its timers never fire here.
class Link
{
public:
    explicit Link(bool isCreator) : control(new SharedMemoryControl(isCreator, nullptr))
    {
        QObject::connect(control, &SharedMemoryControl::avmInitOkSignal,
                         [] { effects::add("initialised"); });
        QObject::connect(control, &SharedMemoryControl::turnSwitchSignal,
                         [] { effects::add("turn switch"); });
        QObject::connect(control, &SharedMemoryControl::avmStopSignal,
                         [](bool stopped) { effects::add(stopped ? "stopped" : "runs"); });
        QMetaObject::invokeMethod(
            control, [] {}, Qt::BlockingQueuedConnection); // it has started
    }

    ~Link() { delete control; }

    void exchange(int count = 1, const char *slot = "on_runTimerOut") const
    {
        for (int i = 0; i < count; ++i)
            QMetaObject::invokeMethod(control, slot, Qt::BlockingQueuedConnection);
    }

    void endItself()
    {
        QSignalSpy spy(control->thread(), SIGNAL(destroyed()));
        control->deleteLater();
        control = nullptr;
        effects::add(QTest::qWaitFor([&spy] { return spy.size() == 1; }, 10000) ? "thread ended"
                                                                                : "thread runs");
    }

    SharedMemoryControl *control;
};

/// An exchange that somebody holds up.
class PendingExchange
{
public:
    explicit PendingExchange(const Link &link)
    {
        mContext.moveToThread(link.control->thread());
        QMetaObject::invokeMethod(link.control, "on_runTimerOut", Qt::QueuedConnection);
        QMetaObject::invokeMethod(
            &mContext, [this] { mIsDone = true; }, Qt::QueuedConnection);
    }

    bool isWaiting() const
    {
        return !QTest::qWaitFor([this] { return mIsDone.load(); }, 50);
    }
    bool ends() const
    {
        return QTest::qWaitFor([this] { return mIsDone.load(); }, 10000);
    }

private:
    std::atomic<bool> mIsDone{false};
    QObject mContext;
};

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

void TestLink::link()
{
    effects::reset();
    effects::recordTimers(true);
    DeviceDatasManager::self();
    std::unique_ptr<Link> link;
    std::unique_ptr<PendingExchange> pending;
    std::unique_ptr<QProcess> process;
    QSharedMemory segment("PvmSharedMemory5");
    const auto setByte = [&segment](const Words &w) {
        static_cast<char *>(segment.data())[w.number()] = static_cast<char>(w.number(1, 16));
    };
    stories::play(
        {{"link", [&](const Words &w) { link = std::make_unique<Link>(w[0] == "creator"); }},
         {"end", [&](const Words &) { link.reset(); }},
         {"end-itself", [&](const Words &) { link->endItself(); }},
         {"thread", [&](const Words &) { effects::add(link->control->thread()->objectName()); }},
         {"exchange", [&](const Words &w) { link->exchange(w.value(0, "1").toInt()); }},
         {"changed", [&](const Words &) { link->exchange(1, "on_DeviceDataChanged"); }},
         {"locks", [](const Words &) { gLocksAreTold = true; }},
         {"failing",
          [](const Words &w) {
              gAcquireFails = w[0] == "acquire";
              gLockFails = w[0] == "lock";
          }},
         {"stranger", [&](const Words &w) { QVERIFY(segment.create(w.number())); }},
         {"attach", [&](const Words &) { QVERIFY(segment.attach()); }},
         {"byte", setByte},
         {"bytes",
          [&](const Words &) {
              const QByteArray bytes(static_cast<const char *>(segment.constData()),
                                     segment.size());
              effects::add(bytes.toHex());
          }},
         {"hold", [&](const Words &) { QVERIFY(segment.lock()); }},
         {"let-go", [&](const Words &) { QVERIFY(segment.unlock()); }},
         {"held-up",
          [&](const Words &) {
              pending = std::make_unique<PendingExchange>(*link);
              QVERIFY(pending->isWaiting());
          }},
         {"goes-on", [&](const Words &) { QVERIFY(pending->ends()); }},
         {"controller",
          [&](const Words &) {
              process = startAndHear(ownProgram, {"be-a-controller"}, "", "ready");
          }},
         {"renderer",
          [&](const Words &) { process = startAndHear(rendererProgram, {}, "hold\n", "holding"); }},
         {"kill",
          [&](const Words &) {
              process->kill();
              QVERIFY(process->waitForFinished(10000));
          }},
         {"gear",
          [](const Words &w) {
              DeviceDatasManager::self()->setGear(static_cast<char>(w.number()));
          }},
         {"record",
          [](const Words &) {
              effects::add(QString::number(DeviceDatasManager::self()->deviceData().gear));
          }},
         {"flags",
          [&](const Words &) {
              effects::add(QStringLiteral("%1 %2 %3 %4")
                               .arg(link->control->getAVMRunCount())
                               .arg(link->control->getIsTurnSwitchEnable())
                               .arg(link->control->getIsAVMInited())
                               .arg(link->control->getIsSlogEnable()));
          }},
         {"run-count", [&](const Words &w) { link->control->setAVMRunCount(w.number()); }},
         {"turn-switch", [&](const Words &w) { link->control->setIsTurnSwitchEnable(w.isOn()); }},
         {"initialised", [&](const Words &w) { link->control->setIsAVMInited(w.isOn()); }},
         {"slog", [&](const Words &w) { link->control->setIsSlogEnable(w.isOn()); }},
         {"dump-nothing",
          [&](const Words &w) { link->control->logCharArray(nullptr, w.number()); }},
         {"beat", [&](const Words &w) {
              for (int i = 0; i < w.number(); ++i)
                  link->control->updatemAVMRunCount();
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
