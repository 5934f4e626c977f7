#include "board/watchdogcontrol.h"
#include "tests/seam/effects.h"

#include <QtTest>

class TestWatchDogControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void opensOnceAndCloses();
    void failedOpen();
    void feedsOnlyWhenAllAllow();
    void logsEvery180thFeed();
};

static const QStringList kSwitchedOn{"timer 1000", "log setWatchDogOnOff true"};

void TestWatchDogControl::init()
{
    effects::reset();
    effects::recordTimers(true);
}

void TestWatchDogControl::opensOnceAndCloses()
{
    effects::setFile("/dev/watchdog", "");
    QCOMPARE(WatchDogControl::getInstance(), WatchDogControl::getInstance());
    WatchDogControl watchdog(nullptr);
    watchdog.setWatchDogOnOff(false);
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(), QStringList());
    watchdog.setWatchDogOnOff(true);
    QCOMPARE(effects::take(), QStringList{"open /dev/watchdog O_WRONLY"} + kSwitchedOn);
    watchdog.on_WDTTimerOut();
    watchdog.on_WDTTimerOut();
    effects::take();
    watchdog.setWatchDogOnOff(true);
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(),
             kSwitchedOn + QStringList({"write \"A\"", "log === feed wdt ===  1"}));
    QVERIFY(watchdog.getIsIntWdgOn());
    watchdog.setWatchDogOnOff(false);
    QCOMPARE(effects::take(),
             (QStringList{"write \"V\"", "close", "log setWatchDogOnOff ret 1  isOn  false"}));
    QVERIFY(!watchdog.getIsIntWdgOn());
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(), QStringList());
}

void TestWatchDogControl::failedOpen()
{
    WatchDogControl watchdog(nullptr);
    watchdog.setWatchDogOnOff(true);
    QCOMPARE(effects::take(), (QStringList{"open /dev/watchdog O_WRONLY failed",
                                           "log ERR: open(/dev/watchdog) failed."}));
    QVERIFY(!watchdog.getIsIntWdgOn());
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(), QStringList());
}

void TestWatchDogControl::feedsOnlyWhenAllAllow()
{
    effects::setFile("/dev/watchdog", "");
    WatchDogControl watchdog(nullptr);
    watchdog.setWatchDogOnOff(true);
    watchdog.on_WDTTimerOut();
    effects::take();
    watchdog.setWdgFeedOnOff(false);
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(), QStringList());
    watchdog.setWdgFeedOnOff(true);
    watchdog.on_avmstopslot(true);
    watchdog.on_avmstopslot(true);
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(), (QStringList{"log === avm stop === ", "log === avm stop === "}));
    watchdog.on_avmstopslot(false);
    watchdog.on_WDTTimerOut();
    QCOMPARE(effects::take(), QStringList{"write \"A\""});
    watchdog.setWatchDogOnOff(false);
}

void TestWatchDogControl::logsEvery180thFeed()
{
    effects::setFile("/dev/watchdog", "");
    WatchDogControl watchdog(nullptr);
    watchdog.setWatchDogOnOff(true);
    QList<int> logged;
    for (int feed = 1; feed <= 400; ++feed) {
        effects::onWrite = [feed](const QByteArray &) { return feed != 181; };
        effects::take();
        watchdog.on_WDTTimerOut();
        const QStringList lines = effects::take();
        if (lines.size() == 2) {
            logged << feed;
            QCOMPARE(lines.last(),
                     QStringLiteral("log === feed wdt ===  %1").arg(feed == 181 ? -1 : 1));
        }
    }
    QCOMPARE(logged, (QList<int>{1, 181, 361}));
    watchdog.setWatchDogOnOff(false);
}

QTEST_GUILESS_MAIN(TestWatchDogControl)
#include "tst_watchdogcontrol.moc"
