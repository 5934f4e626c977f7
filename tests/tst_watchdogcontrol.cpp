// SPDX-License-Identifier: MIT

#include "board/watchdogcontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QtTest>

class TestWatchDogControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void story_data() { stories::load(QFINDTESTDATA("stories/watchdog.stories")); }
    void story();
};

void TestWatchDogControl::story()
{
    effects::reset();
    QCOMPARE(WatchDogControl::getInstance(), WatchDogControl::getInstance());
    WatchDogControl watchdog(nullptr);
    stories::play([&watchdog](const QStringList &words) {
        const bool isOn = words.value(1) == "on";
        if (words[0] == "switch")
            watchdog.setWatchDogOnOff(isOn);
        else if (words[0] == "allow")
            watchdog.setWdgFeedOnOff(isOn);
        else if (words[0] == "renderer")
            watchdog.on_avmstopslot(words[1] == "stopped");
        else if (words[0] == "is-on")
            effects::add(watchdog.getIsIntWdgOn() ? "yes" : "no");
        else if (words[0] == "feed")
            watchdog.on_WDTTimerOut();
        else if (words[0] == "feeds") {
            for (int i = 0; i < words[1].toInt(); ++i)
                watchdog.on_WDTTimerOut();
            const QStringList lines = effects::take();
            effects::add(QStringLiteral("%1 bytes").arg(lines.filter("write").size()));
            for (const QString &line : lines.filter("log"))
                effects::add(line);
        } else
            QFAIL("no such step");
    });
    watchdog.setWatchDogOnOff(false);
}

QTEST_GUILESS_MAIN(TestWatchDogControl)
#include "tst_watchdogcontrol.moc"
