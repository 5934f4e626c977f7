// SPDX-License-Identifier: MIT

// The link is made of named objects that the whole system shares: each case runs as a process of
// its own inside a private IPC namespace and /tmp.

#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QProcess>
#include <QSharedMemory>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

static const QByteArray kFresh =
    QByteArray::fromHex("ffffffff000000000000ffff00000000ffff00ffffffffffffffff00");

// Qt's event queue and QThread::wait() order these, which the thread sanitizer cannot see in a
// library that is not instrumented.
extern "C" const char *__tsan_default_suppressions()
{
    return "race:PendingExchange\nrace:~SharedMemoryControl";
}

/// The other side of the segment, byte by byte.
class Segment
{
public:
    Segment() { mMemory.setKey("PvmSharedMemory5"); }

    bool create(int size) { return mMemory.create(size); }
    bool attach() { return mMemory.attach(); }
    int size() const { return mMemory.size(); }
    QByteArray bytes() const
    {
        return QByteArray(static_cast<const char *>(mMemory.constData()), size());
    }
    void setByte(int index, int value)
    {
        static_cast<char *>(mMemory.data())[index] = static_cast<char>(value);
    }

private:
    QSharedMemory mMemory;
};

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

class TestSharedMemoryControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void story_data() { stories::load(QFINDTESTDATA("stories/link.stories")); }
    void story();
    void leftover();
    void deletedOnItsOwnThread();
    void lockedSegment();
    void killedRenderer();

public:
    QString rendererProgram;
    QString ownProgram;
};

void TestSharedMemoryControl::init()
{
    effects::reset();
    effects::recordTimers(true);
    DeviceDatasManager::self();
    effects::take();
}

void TestSharedMemoryControl::story()
{
    std::unique_ptr<Link> link;
    Segment segment;
    stories::play([&](const QStringList &words) {
        const QString &verb = words[0];
        const int value = words.value(1).toInt();
        if (verb == "link")
            link = std::make_unique<Link>(words[1] == "creator");
        else if (verb == "end")
            link.reset();
        else if (verb == "exchange")
            link->exchange(words.value(1, "1").toInt());
        else if (verb == "changed")
            link->exchange(1, "on_DeviceDataChanged");
        else if (verb == "stranger")
            QVERIFY(segment.create(value));
        else if (verb == "attach")
            QVERIFY(segment.attach());
        else if (verb == "byte")
            segment.setByte(value, words[2].toInt(nullptr, 16));
        else if (verb == "bytes")
            effects::add(segment.bytes().toHex());
        else if (verb == "gear")
            DeviceDatasManager::self()->setGear(static_cast<char>(value));
        else if (verb == "record")
            effects::add(QString::number(DeviceDatasManager::self()->deviceData().gear));
        else if (verb == "flags")
            effects::add(QStringLiteral("%1 %2 %3 %4")
                             .arg(link->control->getAVMRunCount())
                             .arg(link->control->getIsTurnSwitchEnable())
                             .arg(link->control->getIsAVMInited())
                             .arg(link->control->getIsSlogEnable()));
        else if (verb == "run-count")
            link->control->setAVMRunCount(value);
        else if (verb == "turn-switch")
            link->control->setIsTurnSwitchEnable(value == 1);
        else if (verb == "initialised")
            link->control->setIsAVMInited(value == 1);
        else if (verb == "slog")
            link->control->setIsSlogEnable(value == 1);
        else if (verb == "dump-nothing")
            link->control->logCharArray(nullptr, value);
        else if (verb == "beat")
            for (int i = 0; i < value; ++i)
                link->control->updatemAVMRunCount();
        else
            QFAIL("no such step");
    });
}

// A controller that was killed has left its segment behind; the renderer is still attached.
void TestSharedMemoryControl::leftover()
{
    QProcess controller;
    controller.start(ownProgram, {"be-a-controller"});
    QVERIFY(controller.waitForReadyRead(10000));
    Segment segment;
    QVERIFY(segment.attach());
    controller.kill();
    QVERIFY(controller.waitForFinished(10000));
    segment.setByte(62, 1);
    effects::take();
    Link link(true);
    const QStringList lines = effects::take();
    QVERIFY2(lines.first().startsWith("log sharedMemory error create \""),
             qPrintable(lines.first()));
    QCOMPARE(lines.at(1), QString("log sharedMemory ShareMemInitOK "));
    link.exchange();
    QCOMPARE(effects::take(), QStringList());
    QCOMPARE(segment.bytes(), kFresh + QByteArray(36, 0));
}

void TestSharedMemoryControl::deletedOnItsOwnThread()
{
    auto *control = new SharedMemoryControl(true, nullptr);
    QSignalSpy spy(control->thread(), SIGNAL(destroyed()));
    control->deleteLater();
    QTRY_COMPARE_WITH_TIMEOUT(spy.size(), 1, 10000);
    QVERIFY(effects::take().contains("log ~SharedMemoryControl"));
}

// The segment's own lock counts, not only the semaphore.
void TestSharedMemoryControl::lockedSegment()
{
    Link link(true);
    link.exchange();
    QSharedMemory holder("PvmSharedMemory5");
    QVERIFY(holder.attach() && holder.lock());
    PendingExchange exchange(link);
    QVERIFY(exchange.isWaiting());
    QVERIFY(holder.unlock() && exchange.ends());
}

void TestSharedMemoryControl::killedRenderer()
{
    Link link(true);
    link.exchange();
    QProcess renderer;
    renderer.start(rendererProgram, QStringList());
    renderer.write("hold\n");
    QByteArray said;
    while (!said.contains("holding") && renderer.waitForReadyRead(10000))
        said += renderer.readAll();
    QVERIFY(said.contains("holding"));
    PendingExchange exchange(link);
    QVERIFY(exchange.isWaiting());
    renderer.kill();
    QVERIFY(renderer.waitForFinished(10000));
    QVERIFY(exchange.ends());
    DeviceDatasManager::self()->setGear(4);
    link.exchange();
    Segment segment;
    QVERIFY(segment.attach());
    QCOMPARE(segment.bytes().at(18), char(4));
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
    TestSharedMemoryControl test;
    test.ownProgram = application.applicationFilePath();
    test.rendererProgram = application.applicationDirPath() + "/pvm-bench-renderer";
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sharedmemorycontrol.moc"
