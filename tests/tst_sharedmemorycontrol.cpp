// The link is made of named objects that the whole system shares: each case runs as a process of
// its own inside a private IPC namespace and /tmp.

#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"

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
    /// The last four bytes, from the front: run count, turn switch, initialised, slog.
    void setFlag(int index, int value)
    {
        static_cast<char *>(mMemory.data())[size() - 4 + index] = static_cast<char>(value);
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

    QStringList exchange(int count = 1, const char *slot = "on_runTimerOut")
    {
        effects::take();
        for (int i = 0; i < count; ++i)
            QMetaObject::invokeMethod(control, slot, Qt::BlockingQueuedConnection);
        return effects::take();
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
    void init()
    {
        effects::reset();
        effects::recordTimers(true);
        DeviceDatasManager::self();
        effects::take();
    }
    void fresh();
    void flags();
    void heartbeat();
    void slog();
    void leftover();
    void largeStranger();
    void flagsOnlyStranger();
    void smallStranger();
    void deletedOnItsOwnThread();
    void lockedSegment();
    void killedRenderer();
    void peer();
    void runCountWraps();

public:
    QString rendererProgram;
    QString ownProgram;
};

void TestSharedMemoryControl::fresh()
{
    Link link(true);
    QCOMPARE(effects::take(), (QStringList{"log sharedMemory ShareMemInitOK ", "timer 1000"}));
    link.exchange();
    Segment segment;
    QVERIFY(segment.attach());
    QCOMPARE(segment.bytes(), kFresh + QByteArray(36, 0));
    DeviceDatasManager::self()->setGear(2);
    QCOMPARE(link.exchange(1, "on_DeviceDataChanged"), (QStringList{"timer stop", "timer 1000"}));
    QCOMPARE(segment.bytes().at(18), char(2));
    // The eleventh exchange finds the run count unchanged for the tenth time, once for all.
    QCOMPARE(link.exchange(8), QStringList());
    QCOMPARE(link.exchange(), QStringList{"stopped"});
    QCOMPARE(link.exchange(40), QStringList());
    QPointer<QThread> thread = link.control->thread();
    QCOMPARE(thread->objectName(), QString("ShareMemThread"));
    delete link.control;
    link.control = nullptr;
    QCOMPARE(effects::take(), QStringList{"log ~SharedMemoryControl"});
    QVERIFY(thread.isNull());
}

void TestSharedMemoryControl::flags()
{
    Link link(true);
    link.exchange();
    Segment segment;
    QVERIFY(segment.attach());
    const QString turn = "log ====  setIsTurnSwitchEnable  isTurnSwitchEnable  ";
    const QString inited = "log ====  setIsAVMInited  isAVMInited  ";
    const struct
    {
        int turnSwitch, avmInited;
        QStringList seen;
    } rows[] = {{2, 0xFF, {}},
                {1, 0, {turn + "true", "turn switch"}},
                {1, 1, {inited + "true", "initialised"}},
                {1, 1, {}},
                {0, 2, {inited + "false", turn + "false", "turn switch"}},
                {1, 1, {inited + "true", turn + "true", "initialised", "turn switch"}},
                {0xFF, 1, {turn + "false", "turn switch"}}};
    int beat = 1;
    for (const auto &row : rows) {
        segment.setFlag(0, beat++);
        segment.setFlag(1, row.turnSwitch);
        segment.setFlag(2, row.avmInited);
        QCOMPARE(link.exchange(), row.seen);
        QCOMPARE(link.control->getIsTurnSwitchEnable(), row.turnSwitch == 1);
        QCOMPARE(link.control->getIsAVMInited(), row.avmInited == 1);
    }
}

void TestSharedMemoryControl::heartbeat()
{
    Link link(true);
    link.exchange();
    Segment segment;
    QVERIFY(segment.attach());
    for (const int count : {5, 6, 254, 255, 0}) {
        segment.setFlag(0, count);
        QCOMPARE(link.exchange(10), QStringList());
        QCOMPARE(link.control->getAVMRunCount(), count);
    }
    QCOMPARE(link.exchange(), QStringList{"stopped"});
    segment.setFlag(0, 7);
    QCOMPARE(link.exchange(), QStringList{"runs"});
    QCOMPARE(link.exchange(9), QStringList());
    QCOMPARE(link.exchange(), QStringList{"stopped"});
}

void TestSharedMemoryControl::slog()
{
    Link link(true);
    link.exchange();
    Segment segment;
    QVERIFY(segment.attach());
    QCOMPARE(link.exchange(1, "on_DeviceDataChanged"), (QStringList{"timer stop", "timer 1000"}));
    segment.setFlag(3, 1);
    const auto dump = [](const QByteArray &bytes) {
        return QStringLiteral("log Send  size  %1 \" %2 \"")
            .arg(bytes.size())
            .arg(QString::fromLatin1(bytes.toHex(' ')).replace(' ', "  "));
    };
    QCOMPARE(link.exchange(), QStringList{dump(segment.bytes())});
    segment.setFlag(0, 200);
    QCOMPARE(link.exchange(), QStringList{dump(segment.bytes())});
    QCOMPARE(link.exchange(1, "on_DeviceDataChanged"),
             (QStringList{"timer stop", dump(kFresh), "timer 1000"}));
    segment.setFlag(1, 1);
    segment.setFlag(2, 1);
    QCOMPARE(link.exchange(),
             (QStringList{"log ====  setIsAVMInited  isAVMInited  true", dump(segment.bytes()),
                          "log ====  setIsTurnSwitchEnable  isTurnSwitchEnable  true",
                          "initialised", "turn switch"}));
    segment.setFlag(3, 2);
    QCOMPARE(link.exchange(), QStringList());
    link.control->setIsSlogEnable(true);
    char none = 0;
    link.control->logCharArray(&none, 0);
    QCOMPARE(effects::take(), QStringList{"log Send  size  0 \"\""});
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
    segment.setFlag(2, 1);
    effects::take();
    Link link(true);
    const QStringList lines = effects::take();
    QVERIFY2(lines.first().startsWith("log sharedMemory error create \""),
             qPrintable(lines.first()));
    QCOMPARE(lines.at(1), QString("log sharedMemory ShareMemInitOK "));
    QCOMPARE(link.exchange(), QStringList());
    QCOMPARE(segment.bytes(), kFresh + QByteArray(36, 0));
}

void TestSharedMemoryControl::largeStranger()
{
    Segment segment;
    QVERIFY(segment.create(128));
    Link link(true);
    link.exchange();
    QCOMPARE(segment.bytes(), kFresh + QByteArray(100, 0));
    segment.setFlag(2, 1);
    QVERIFY(link.exchange().contains("initialised"));
}

// Too small for the record, large enough for the flags.
void TestSharedMemoryControl::flagsOnlyStranger()
{
    Segment segment;
    QVERIFY(segment.create(27));
    Link link(true);
    link.exchange();
    segment.setFlag(2, 1);
    QVERIFY(link.exchange().contains("initialised"));
    QCOMPARE(segment.bytes(), QByteArray(25, 0) + QByteArray::fromHex("0100"));
}

void TestSharedMemoryControl::smallStranger()
{
    Segment segment;
    QVERIFY(segment.create(2));
    Link link(true);
    QCOMPARE(link.exchange(9), QStringList());
    QCOMPARE(link.exchange(5), QStringList{"stopped"});
    QCOMPARE(segment.bytes(), QByteArray(segment.size(), 0));
    Link peerLink(false);
    QCOMPARE(peerLink.exchange(), QStringList{"log too small shareSize  2"});
    QCOMPARE(segment.bytes(), QByteArray(2, 0));
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

void TestSharedMemoryControl::peer()
{
    Link link(false);
    QVERIFY(link.control->getIsTurnSwitchEnable());
    QVERIFY(effects::take().contains("timer 100"));
    for (int failure = 1; failure <= 41; ++failure) {
        const QStringList lines = link.exchange();
        QCOMPARE(lines.size(), failure % 20 == 1 ? 1 : 0);
        QVERIFY(lines.isEmpty() || lines.first().startsWith("log sharedMemory error attach \""));
    }
    Segment segment;
    QVERIFY(segment.create(64));
    QSignalSpy spy(DeviceDatasManager::self().data(), SIGNAL(deviceDataChangedSignal()));
    link.control->setIsTurnSwitchEnable(false);
    link.control->setIsAVMInited(true);
    link.control->setAVMRunCount(0x1FE);
    QCOMPARE(effects::take(), QStringList{"log ====  setIsAVMInited  isAVMInited  true"});
    // An empty segment is a record too.
    QCOMPARE(link.exchange(2), QStringList());
    QCOMPARE(segment.bytes(), QByteArray(60, 0) + QByteArray::fromHex("fe000100"));
    QCOMPARE(spy.size(), 1);
    link.control->setIsSlogEnable(true);
    QSharedMemory writer("PvmSharedMemory5");
    QVERIFY(writer.attach());
    static_cast<char *>(writer.data())[18] = 2;
    const QStringList lines = link.exchange();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().startsWith("log  Rvc  size  28 \" 00  00 "), qPrintable(lines.first()));
    QCOMPARE(segment.bytes().right(4), QByteArray::fromHex("fe000101"));
    QCOMPARE(link.exchange(1, "on_DeviceDataChanged"), (QStringList{"timer stop", "timer 1000"}));
    QCOMPARE(DeviceDatasManager::self()->deviceData().gear, char(2));
}

void TestSharedMemoryControl::runCountWraps()
{
    Link link(false);
    for (int round = 0; round < 2; ++round) {
        for (int count = 2; count <= 254; ++count) {
            link.control->updatemAVMRunCount();
            QCOMPARE(link.control->getAVMRunCount(), count);
        }
        link.control->updatemAVMRunCount();
        QCOMPARE(link.control->getAVMRunCount(), 1);
    }
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
