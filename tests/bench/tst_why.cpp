// SPDX-License-Identifier: MIT

#include "bench/why/whyreader.h"

#include <QtTest>

#include <linux/can.h>

using Kind = Fact::Kind;

static void send(WhyReader *reader, uint32_t id, int at, int value, int64_t us)
{
    BusFrame frame{us, id > CAN_SFF_MASK ? id | CAN_EFF_FLAG : id, 8, {}};
    frame.data[at] = static_cast<uint8_t>(value);
    reader->takeFrame(frame, us);
}

/// `car gear R`, also as the other node tells it: `node gear R`.
static bool sendWords(WhyReader *reader, const QString &words, int64_t us)
{
    static const QMap<QString, int> gears{{"P", 0}, {"R", 7}, {"N", 6}, {"D", 5}, {"bad", 3}};
    const QString who = words.section(' ', 0, 0), what = words.section(' ', 1, 1);
    const QString value = words.section(' ', 2);
    if (who == "node")
        send(reader, 0x1004001, 4, gears[value], us);
    else if (who == "car" && what == "gear")
        send(reader, 0x1004501, 5, gears[value] << 4, us);
    else if (who == "car" && what == "light")
        send(reader, 0x413, 7, value == "LEFT" ? 0x51 : value == "RIGHT" ? 0x45 : 0, us);
    else if (who == "car")
        send(reader, 0x681AA02, 0, value.toInt(), us);
    return who == "node" || who == "car";
}

/// The controller's own lines, by a short name.
static QStringList linesOf(const QString &words)
{
    const QStringList word = words.split(' ');
    const QMap<QString, QStringList> lines{
        {"gear", {"==== CAN SIG GEAR  0 ,change to: " + word.last()}},
        {"light", {"==== CAN SIG LIGHT_STATUS  \"[OFF]\" ,change to: \"[" + word.last() + "]\""}},
        {"allowed",
         {"====  setIsTurnSwitchEnable  isTurnSwitchEnable  true", "====  turnSwitchSlot"}},
        {"forbidden",
         {"====  setIsTurnSwitchEnable  isTurnSwitchEnable  false", "====  turnSwitchSlot"}},
        {"enter-R", {"==== enter RVC ====", "====  toSwitchVideo  isToPVM  1"}},
        {"leave-R", {"==== start delayQuitRvcTimer ===="}},
        {"left-R", {"on_delayQuitRvcTimerOut", "==== quit RVC ===="}},
        {"P", {"==== Enter P ====", "====  toSwitchVideo  isToPVM  0"}},
        {"turn", {"==== enter Trun ====", "====  toSwitchVideo  isToPVM  1"}},
        {"turned",
         {"==== quit Trun ====", "==== quit Trun mShowPVMBeforeSwitchTurnLight ==== false",
          "====  toSwitchVideo  isToPVM  0"}},
        {"click", {"==== SWITCH HARZARD shortly clicked"}},
        {"to", {"====  toSwitchVideo  isToPVM  " + word.last()}},
        {"refused", {"====  toSwitchVideo  isCanOutFromPVM  false"}},
        {"fast",
         {"==== greater than LIMTT_SPEED ====  curSpeed  " + word.last() + "  lastSpeed  1"}},
        {"stop", {"=== avm stop ==="}},
        {"shell", {"sh: 1: /etc/set_t840gmsl_0.sh: Permission denied"}},
    };
    return lines.value(word.first());
}

/// Plays a story of `SECONDS WORDS`; what the last moment's why is.
static QString whyOf(const QString &story)
{
    WhyReader reader;
    reader.take({Kind::Power, "", "on"}, -1'000'000);
    int64_t us = 0;
    for (const QString &line : story.split("; ")) {
        us = qRound64(line.section(' ', 0, 0).toDouble() * 1e6);
        const QString words = line.section(' ', 1), rest = words.section(' ', 1);
        const QString script = "/etc/set_t840gmsl_0.sh ";
        if (words.startsWith("script"))
            reader.take({Kind::Command, script + rest, "0"}, us);
        else if (words.startsWith("exit"))
            reader.take({Kind::Exit, script + rest.section(' ', 0, 0), rest.section(' ', 1)}, us);
        else if (words.startsWith("shown"))
            reader.take({Kind::Picture, "", rest}, us);
        else if (words.startsWith("bus"))
            reader.take({Kind::Bus, "", rest}, us);
        else if (words.startsWith("renderer"))
            reader.take({Kind::Renderer, "", rest}, us);
        else if (words.startsWith("controller"))
            reader.take({Kind::Controller, "", rest}, us);
        else if (words.startsWith("loss"))
            reader.takeLoss(us);
        else if (words.startsWith("watchdog"))
            reader.take({Kind::Watchdog, "", rest}, us);
        else if (!sendWords(&reader, words, us))
            for (const QString &said : linesOf(words))
                reader.take({Kind::Log, said, ""}, us);
    }
    const Why why = reader.now(us);
    return why.picture + ' ' + why.because + " | " + why.unmet;
}

class TestWhy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tells_data()
    {
        QTest::addColumn<QString>("story");
        QTest::addColumn<QString>("why");
        const QString toDA = "1 gear 1; 1 P; 1 script 0; 1 exit 0 0; 1 shown DA; ";
        const QString toPVM = "2 gear 2; 2 enter-R; 2 script 1; 2 exit 1 0; 2 shown PVM; ";
        const QString turned = toDA +
                               "2 allowed; 3 car light LEFT; 3 light LEFT; 3 turn; 3 script 1; "
                               "3 exit 1 0; 3 shown PVM; ";
        const QStringList rows[] = {
            // What has brought the picture, and whether it is still wanted.
            {"0 now", "PVM nobody asked: as at start | "},
            {toDA + "1 now", "DA P at 1.000 | "},
            {toDA + toPVM + "2 now", "PVM R since 2.000 | "},
            {toDA + toPVM + "3 gear 3; 3 leave-R; 3.099 now",
             "PVM R at 2.000, kept since | R left at 3.000: the 100 ms are not over"},
            {toDA + toPVM + "3 gear 3; 3 leave-R; 3.1 left-R", "PVM R at 2.000, kept since | "},
            {turned + "3 now", "PVM turn light left at 3.000 | "},
            {turned + "4 car light OFF; 4 light OFF; 4 turned; 4 script 0; 4 exit 0 0; 4 shown DA",
             "DA turn light off at 4.000 | "},
            {turned + "4 car speed 16; 4 to 0; 4 refused; 4 fast 16",
             "PVM turn light left at 3.000 | speed rose to 16 at 4.000: DA refused by turn light "
             "left"},
            {toDA + "2 controller ended: crashed; 2 script 1; 2 exit 1 0; 2 shown PVM",
             "PVM put back by the service at 2.000 | "},
            // A request and its script.
            {toDA + "2 gear 2; 2 enter-R; 2.4 now",
             "DA P at 1.000 | R at 2.000: no script has begun yet"},
            {toDA + "2 gear 2; 2 enter-R; 2.6 now",
             "DA P at 1.000 | R at 2.000: no script, PVM was taken as routed"},
            {toDA + "2 gear 2; 2 enter-R; 2 script 1; 9 now",
             "DA P at 1.000 | R at 2.000: script not ended yet"},
            {toDA + "2 gear 2; 2 enter-R; 2 script 1; 2 exit 1 7",
             "DA P at 1.000 | R at 2.000: script failed, status 7"},
            {toDA + "2 gear 2; 2 enter-R; 2 shell",
             "DA P at 1.000 | R at 2.000: set_t840gmsl_0.sh: Permission denied"},
            {toDA + "2 gear 2; 2 enter-R; 2 script 1; 2 exit 1 0",
             "DA P at 1.000 | R at 2.000: the log does not tell"},
            // The lever: who says what, and whether the controller can have heard it.
            {toDA + "2 car gear R; 2.01 car gear R; 2.02 car gear P; 2.03 car gear R",
             "DA P at 1.000 | R since 2.000: at most 2 frames in a row of the 5 that it takes, "
             "0x1004501 says P"},
            {toDA + "2 car gear R; 2.01 node gear P; 2.02 car gear R; 2.03 node gear P",
             "DA P at 1.000 | R since 2.000: at most 1 frame in a row of the 5 that it takes, "
             "0x1004001 says P"},
            {toDA + "2 car gear R; 2.01 node gear R; 2.02 node gear P; 2.03 node gear R",
             "DA P at 1.000 | R since 2.000: at most 2 frames in a row of the 5 that it takes, "
             "0x1004001 says P"},
            {toDA + "2 node gear R; 2.01 car gear R; 2.02 node gear P; 2.03 node gear R",
             "DA P at 1.000 | R since 2.000: at most 2 frames in a row of the 5 that it takes, "
             "0x1004001 says P"},
            {toDA + "2 node gear R; 2.02 node gear P; 2.04 node gear R",
             "DA P at 1.000 | R since 2.000: at most 1 frame in a row of the 11 that it takes, "
             "0x1004001 says P"},
            {toDA + "2 car gear R; " + QString("2 node gear R; ").repeated(20) + "2 now",
             "DA P at 1.000 | R since 2.000: more than 20 frames in a row, not taken"},
            {toDA + "2 car gear R; " + QString("2 node gear R; ").repeated(19) + "2 now",
             "DA P at 1.000 | R since 2.000: at most 20 frames in a row"},
            {toDA + "2 car gear R; 2.089 now",
             "DA P at 1.000 | R since 2.000: at most 1 frame in a row of the 5 that it takes"},
            {toDA + "2 car gear R; 2.091 now", "DA P at 1.000 | "},
            {toDA + "1.5 bus down; 2 car gear R",
             "DA P at 1.000 | R since 2.000: can0 is down since 1.500"},
            {toDA + "1.5 bus down; 1.8 bus up; 2 car gear R",
             "DA P at 1.000 | R since 2.000: at most 1 frame in a row of the 5 that it takes"},
            {toDA + "1.9 car gear D; 1.95 car gear R; 1.96 car gear D; 1.97 car gear R; " + toPVM +
                 "2.01 now",
             "PVM R since 2.000 | "},
            {toDA + "1.8 loss; 2 car gear R",
             "DA P at 1.000 | R since 2.000: frames are lost, not read in time"},
            {toDA + "1.4 loss; 2 car gear R",
             "DA P at 1.000 | R since 2.000: at most 1 frame in a row of the 5 that it takes"},
            {toDA + "1.5 watchdog fed; 1.8 loss; 2.92 car gear R; 3 car gear R",
             "DA P at 1.000 | R since 2.920: at most 2 frames in a row of the 5 that it takes"},
            {toDA + "1.5 watchdog fed; 2.93 car gear R; 3.01 car gear R",
             "DA P at 1.000 | R since 2.930: no sign of the controller since 1.500"},
            {toDA + "1.4 watchdog fed; 1.4 stop; 2.92 car gear R; 3 car gear R",
             "DA P at 1.000 | R since 2.920: at most 2 frames in a row of the 5 that it takes"},
            {toDA + "1.5 controller ended: crashed; 2 car gear R",
             "DA P at 1.000 | R since 2.000: no controller runs"},
            {toDA + toPVM + "3 car gear bad",
             "PVM R since 2.000 | undefined since 3.000: this code is no gear's"},
            // The turn light.
            {toDA + "2 car light LEFT; 2 light LEFT; 3 now",
             "DA P at 1.000 | turn light left since 2.000: no renderer runs"},
            {toDA + "2 renderer started; 2 car light LEFT; 2 light LEFT; 3 now",
             "DA P at 1.000 | turn light left since 2.000: not allowed yet"},
            {toDA + "2 renderer started; 2 forbidden; 2 car light RIGHT; 2 light RIGHT; 3 now",
             "DA P at 1.000 | turn light right since 2.000: the renderer's turn switch is off "
             "since 2.000"},
            {toDA + "2 forbidden; 2 car light RIGHT; 2 light RIGHT; 3 now",
             "DA P at 1.000 | turn light right since 2.000: no renderer runs, and its turn switch "
             "was off"},
            {toDA + "2 allowed; 3 car light LEFT; 3.05 now", "DA P at 1.000 | just sent"},
            {toDA + "2 allowed; 3 car light LEFT; 3.2 now",
             "DA P at 1.000 | the log does not tell"},
            {turned + "4 car light OFF; 4.15 car gear R; 4.2 now",
             "PVM turn light left at 3.000 | "},
            {toDA + "1 renderer started; 1 forbidden; 2 car light LEFT; 2 light LEFT; 2.5 renderer "
                    "turn-switch on; 3 now",
             "DA P at 1.000 | turn light left since 2.000: the renderer's turn switch is on since "
             "2.500, which the controller has not seen yet"},
            {turned + "4 gear 2; 4 enter-R; 5 car speed 16; 5 to 0; 5 refused; 5 fast 16",
             "PVM turn light left at 3.000 | speed rose to 16 at 5.000: DA refused by gear R and "
             "turn light "
             "left"},
            {turned + "4 car light OFF; 4.05 now", "PVM turn light left at 3.000 | just sent"},
            {turned + "3.5 script 0; 4 car light OFF; 4.2 now",
             "PVM turn light left at 3.000 | turn light off since 4.000: the controller waits for "
             "set_t840gmsl_0.sh 0 since 3.500"},
            {"0 renderer started; 0 renderer ended: killed; " + turned + "4 now",
             "PVM turn light left at 3.000; no renderer runs since 0.000 | "},
            {"0 renderer started; 0 renderer ended: killed; " + turned + "4 renderer started",
             "PVM turn light left at 3.000 | "},
            // The speed and the switch.
            {toDA + "2 click; 2 to 1; 2 script 1; 2 exit 1 0; 2 shown PVM; 3 car speed 15; 4 now",
             "PVM click at 2.000 | "},
            {toDA + "1.5 car speed 20; 2 click; 2 to 1; 2 script 1; 2 exit 1 0; 2 shown PVM; 4 now",
             "PVM click at 2.000 | speed above 15 since 1.500: only its rise asks, and that was "
             "before PVM"},
            {toDA + "1 gear 4; 1 car speed 9; 2 click; 2 to 1; 2 script 1; 2 exit 1 0; 2 shown "
                    "PVM; 3 car speed 20; 4 now",
             "PVM click at 2.000 | speed above 15 since 3.000: speed rule off since PVM was opened "
             "by hand at "
             "2.000"},
            {toDA + "1 gear 4; 1 car speed 9; 2 click; 2 to 1; 2 script 1; 2 exit 1 0; 2 shown "
                    "PVM; 3 car speed 20; "
                    "4 gear 2; 4 enter-R; 5 gear 4; 5 leave-R; 5.1 left-R; 6 now",
             "PVM click at 2.000 | speed above 15 since 3.000: only its rise asks, and the rule "
             "was off then"},
            {toDA + toPVM +
                 "3 gear 3; 3 car speed 20; 3 to 0; 3 fast 20; 3 script 0; 3 exit 0 1; 4 car speed "
                 "9; "
                 "5 car speed 20; 6 click; 6 to 1; 6 script 1; 6 exit 1 0; 6 shown PVM; 7 now",
             "PVM click at 6.000 | speed above 15 since 5.000: only its rise asks, and DA was "
             "taken "
             "as routed then"},
            {toDA + toPVM + "3 click", "PVM R since 2.000 | click at 3.000: held by gear R"},
        };
        for (const QStringList &row : rows)
            QTest::newRow(qPrintable(row[0])) << row[0] << row[1];
    }
    void tells()
    {
        QFETCH(QString, story);
        QTEST(whyOf(story), "why");
    }
};

QTEST_GUILESS_MAIN(TestWhy)
#include "tst_why.moc"
