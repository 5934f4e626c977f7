// SPDX-License-Identifier: MIT

#include "bench/telling/whyteller.h"

#include <QFile>
#include <QJsonDocument>
#include <QtTest>

#include <linux/can.h>

using Kind = Fact::Kind;

/// What takes in facts, a step at a time, as the loop that plays a drive does.
class Telling
{
public:
    explicit Telling(const Style &style) : mTimeline(mOut, mClock, style) { take("-1 power =on"); }

    /// `SECONDS KIND SUBJECT=VALUE`, `SECONDS car WHAT VALUE`, or `SECONDS now`.
    void take(const QString &step)
    {
        static const QMap<QString, Kind> kinds{
            {"command", Kind::Command},   {"exit", Kind::Exit},
            {"picture", Kind::Picture},   {"gpio", Kind::Gpio},
            {"watchdog", Kind::Watchdog}, {"record", Kind::Record},
            {"log", Kind::Log},           {"controller", Kind::Controller},
            {"frames", Kind::Frames},     {"power", Kind::Power},
            {"input", Kind::Input},       {"renderer", Kind::Renderer}};
        const int64_t us = qRound64(step.section(' ', 0, 0).toDouble() * 1e6);
        const QString kind = step.section(' ', 1, 1), rest = step.section(' ', 2);
        if (kind == "car") {
            sendFrame(rest, us);
        } else if (kind != "now") {
            const Fact fact{kinds[kind], rest.section('=', 0, -2), rest.section('=', -1)};
            mFacts.take(fact, us);
            mTimeline.take(fact, us, mTeller.take(fact, us));
        }
        mTeller.follow(us);
        mTimeline.advance(us);
    }

    QStringList lines() const { return mTold.split('\n').mid(1, mTold.count('\n') - 1); }

    /// The facts of a kind: `SECONDS SUBJECT VALUE`, of a why also the wish.
    QStringList facts(const QString &kind) const
    {
        QStringList all;
        for (const QByteArray &line : mFacts.kept().trimmed().split('\n')) {
            const QJsonObject fact = QJsonDocument::fromJson(line).object();
            if (fact["kind"] == kind)
                all << QStringList{QString::number(fact["t"].toDouble()),
                                   fact["subject"].toString(), fact["value"].toVariant().toString(),
                                   fact["unmet"].toString()}
                           .join(' ')
                           .trimmed();
        }
        return all;
    }

private:
    void sendFrame(const QString &words, int64_t us)
    {
        static const QMap<QString, int> codes{{"P", 0}, {"R", 0x70}, {"OFF", 0}, {"LEFT", 0x51}};
        BusFrame frame{us, 0x413, 8, {}};
        const QString value = words.section(' ', 1);
        if (words.startsWith("gear"))
            frame.id = 0x1004501 | CAN_EFF_FLAG;
        else if (words.startsWith("speed"))
            frame.id = 0x681AA02 | CAN_EFF_FLAG;
        const int at = words.startsWith("gear") ? 5 : words.startsWith("light") ? 7 : 0;
        frame.data[at] = static_cast<uint8_t>(codes.value(value, value.toInt()));
        mFacts.takeFrame(frame, us);
        mTimeline.takeFrame(frame, us);
        mTeller.takeFrame(frame, us);
    }

    const DriveClock mClock{1};
    QString mTold;
    QTextStream mOut{&mTold};
    Timeline mTimeline;
    Facts mFacts{mClock, nullptr, true};
    WhyTeller mTeller{mClock, mTimeline, mFacts};
};

class TestTelling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tells_data()
    {
        QTest::addColumn<QString>("story");
        QTest::addColumn<QStringList>("lines");
        const auto row = [](const char *name, const QString &story, const QStringList &lines) {
            QTest::newRow(name) << story << lines;
        };
        const QString fed = "-1 watchdog =opened; 0 watchdog =fed; ";
        const QStringList opened{"PVM     boot  watchdog opened", "PVM    0.000  watchdog fed"};
        row("fed each second", fed + "1 watchdog =fed; 3.499 now", opened);
        row("no longer fed", fed + "2.5 now; 4 watchdog =fed; 5 watchdog =fed",
            opened +
                QStringList{"PVM    2.500  watchdog no longer fed", "PVM    4.000  watchdog fed"});
        row("unfed before it begins", "-9 watchdog =opened; -9 watchdog =fed; -5 now",
            {"PVM     boot  watchdog opened", "PVM     boot  watchdog fed"});
        row("speed",
            "1 record speed=15; 2 record speed=14; 3 record speed=16; 4 record speed=200; "
            "5 record speed=15",
            {"PVM    1.000  record   speed 15 (within the limit)",
             "PVM    3.000  record   speed 16 (above the limit)",
             "PVM    5.000  record   speed 15 (within the limit)"});
        row("angle and radar alone", "1 record angle=10; 1.5 record radar=ff000000", {});
        row("a script that failed",
            "1 command /etc/set_t840gmsl_0.sh 1=0; 1 exit /etc/a=0; 2 exit /etc/b=7",
            {"PVM    1.000  script   /etc/set_t840gmsl_0.sh 1",
             "PVM    2.000  script   /etc/b failed, status 7"});
        row("the clock", "1 command date -s 202311162034.00=0",
            {"PVM    1.000  clock    date -s 202311162034.00"});
        row("a light that flips",
            "1 car light LEFT; 1.2 car light OFF; 1.4 car light LEFT; "
            "1.6 car light OFF; 1.999 car light OFF; 2 car light OFF",
            {"PVM    1.000  car      light LEFT",
             "PVM    2.000  car      light OFF, changed 3 times"});
        row("a line without end, once", "1 controller =flooding; 2 controller =flooding",
            {"PVM    1.000  log      a line without end; such lines come in pieces"});
        row("what is too long",
            "1 input " + QString(58, 'a') + "=on; 2 input " + QString(54, 'b') + "=on",
            {"PVM    1.000  input    " + QString(54, 'a') + "...",
             "PVM    2.000  input    " + QString(54, 'b') + " on"});
        row("a wish in two lines, once",
            "1 picture =DA; 2 log ==== CAN SIG LIGHT_STATUS  \"[OFF]\" ,change to: \"[LEFT]\"=; "
            "2.1 now; 2.2 now",
            {"DA     1.000  picture  is now DA: nobody asked: as at start",
             "DA     2.000  why      not PVM: turn light left since 2.000: no renderer runs"});
    }
    void tells()
    {
        QFETCH(QString, story);
        QFETCH(QStringList, lines);
        Telling telling({});
        for (const QString &step : story.split("; "))
            telling.take(step);
        QCOMPARE(telling.lines().join('\n'), lines.join('\n'));
        for (const QString &line : telling.lines())
            QVERIFY(line.size() <= 80);
    }

    /// What stands shorter than a gear's run of frames is none; a picture is told however short it
    /// was.
    void whyStands_data()
    {
        QTest::addColumn<QString>("story");
        QTest::addColumn<QStringList>("whys");
        const QString click = "log ==== SWITCH HARZARD shortly clicked=; ";
        const QString to = "log ====  toSwitchVideo  isToPVM  ";
        const QString script = "/etc/set_t840gmsl_0.sh ";
        const QString first = "0 " + click + "0 " + to + "0=; 0 command " + script +
                              "0=0; 0 exit " + script + "0=0; 0 picture =DA; 0.02 now; ";
        const QString shown =
            first + "1 " + click + "1 " + to + "1=; 1 command " + script + "1=0; ";
        const auto row = [](const char *name, const QString &story, const QStringList &whys) {
            QTest::newRow(name) << story << whys;
        };
        row("a wish of 59 ms", shown + "1.059 picture =PVM; 1.08 now",
            {"0 DA click at 0.000", "1.059 PVM click at 1.000"});
        row("a wish of 60 ms", shown + "1.06 picture =PVM; 1.08 now",
            {"0 DA click at 0.000", "1 DA click at 0.000 click at 1.000: script not ended yet",
             "1.06 PVM click at 1.000"});
        row("a picture of 5 ms", shown + "1.01 picture =PVM; 1.015 picture =DA; 1.1 now",
            {"0 DA click at 0.000", "1.01 PVM click at 1.000",
             "1.015 DA the log does not tell click at 1.000: script not ended yet"});
        row("a cause that is said 9 ms later",
            "1 " + to + "0=; 1 command " + script +
                "0=0; 1 picture =DA; 1.009 log ==== greater than "
                "LIMTT_SPEED ====  curSpeed  16  lastSpeed  1=; 1.1 now",
            {"1 DA speed rose to 16 at 1.000"});
    }
    void whyStands()
    {
        QFETCH(QString, story);
        Telling telling({});
        for (const QString &step : story.split("; "))
            telling.take(step);
        QFETCH(QStringList, whys);
        QCOMPARE(telling.facts("why").mid(1).join('\n'), whys.join('\n'));
    }

    void factsOfTheCar()
    {
        Telling telling({});
        for (const char *step :
             {"1 car speed 1", "1.049 car speed 2", "1.05 car speed 3", "1.2 car speed 3"})
            telling.take(step);
        QCOMPARE(telling.facts("car"), (QStringList{"1 speed 1", "1.05 speed 3"}));
    }

    /// Of a log without end the page keeps the beginning and says so, and all that is no log.
    void keptLog()
    {
        Telling telling({});
        for (int i = 0; i < 5000; ++i)
            telling.take("1 log " + QString(90, 'x') + '=');
        telling.take("2 input ACC=on");
        const QStringList log = telling.facts("log");
        QVERIFY(log.size() > 1500 && log.size() < 3000);
        QVERIFY(log.last().contains("the log is cut off here"));
        QCOMPARE(log.filter("cut off").size(), 1);
        QCOMPARE(telling.facts("input"), QStringList{"2 ACC on"});
    }

    void fullDisk()
    {
        QFile full("/dev/full");
        QVERIFY(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const DriveClock clock(1);
        Facts facts(clock, &full, false);
        facts.add(0, "input", "ACC", "on");
        QCOMPARE(facts.fault(), QString("No space left on device"));
    }
};

QTEST_GUILESS_MAIN(TestTelling)
#include "tst_telling.moc"
