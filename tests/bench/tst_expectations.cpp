// SPDX-License-Identifier: MIT

#include "bench/judging/expectations.h"
#include "bench/judging/tickcounts.h"
#include "bench/language/words.h"

#include <QtTest>

static const QMap<QString, Fact::Kind> kinds = {
    {"run", Fact::Kind::Command},       {"log", Fact::Kind::Log},
    {"gpio", Fact::Kind::Gpio},         {"picture", Fact::Kind::Picture},
    {"watchdog", Fact::Kind::Watchdog}, {"power", Fact::Kind::Power},
    {"frames", Fact::Kind::Frames}};

/// Plays a story of `TIME WORDS`: "? ..." is expected, "now" lets time pass, the rest happens.
static QString verdictsOf(const QString &story, double speed)
{
    QStringList verdicts;
    std::vector<Statement> statements;
    for (const QString &line : story.split("; ")) {
        const QString words = line.section(' ', 1);
        if (!words.startsWith('?'))
            continue;
        Statement statement;
        QString fault = parseWords("expect " + words.mid(2).replace('\'', '"'), &statement);
        if (!fault.isEmpty())
            return fault;
        statement.line = static_cast<int>(statements.size()) + 1;
        statement.atUs = qRound64(line.section(' ', 0, 0).toDouble() * speed * 1e6);
        statements.push_back(statement);
    }
    const DriveClock clock(speed);
    Expectations expectations(clock, statements, [&](const Settled &settled) {
        verdicts << (settled.isHeld ? "ok " : "no ") +
                        settled.text.section(settled.isHeld ? ": ok, " : ", but ", 1);
    });
    auto next = statements.begin();
    for (const QString &line : story.split("; ")) {
        const auto us = qRound64(line.section(' ', 0, 0).toDouble() * 1e6);
        const QString words = line.section(' ', 1), what = words.section(' ', 0, 0);
        const QString rest = words.section(' ', 1);
        if (kinds.contains(what)) {
            const bool isEvent = what == "run" || what == "log";
            const QString subject = isEvent ? rest : rest.section(' ', 0, -2);
            expectations.take({kinds[what], subject, rest.section(' ', -1)}, us);
        } else if (what == "?") {
            expectations.ask(*next++, us);
        }
        expectations.advance(us);
    }
    return verdicts.join("; ").replace('"', '\'') + (expectations.isWaiting() ? " waiting" : "");
}

/// Plays a story of `MILLISECONDS KIND SUBJECT`; what is measured in it.
static QString spansOf(const QString &story)
{
    TickCounts counts;
    QString spans;
    for (const QString &line : story.split("; "))
        spans += counts.take({kinds[line.section(' ', 1, 1)], line.section(' ', 2), {}},
                             line.section(' ', 0, 0).toLongLong() * 1000);
    return spans;
}

class TestExpectations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void settles_data()
    {
        QTest::addColumn<QString>("story");
        QTest::addColumn<QString>("verdicts");
        const char *const rows[][2] = {
            {"0 ? picture PVM; 0 picture DA; 0 ? picture PVM", "ok ; no it is DA"},
            {"1 ? picture DA within 1; 1.999 picture DA", "ok after 0.999 s"},
            {"1 ? picture DA within 1; 2.001 picture DA", "no it is PVM"},
            {"1 ? picture PVM for 1; 1.999 picture DA", "no it is DA"},
            {"1 ? picture PVM for 1; 2.001 picture DA", "ok "},
            {"1 ? picture DA for 1; 1.5 picture DA", "no it is PVM"},
            {"1 ? gpio 150 1; 1 gpio 150 1; 1 ? gpio 150 1", "no nothing has been seen of it; ok "},
            {"1 run a; 1 run b; 2 ? command 'b'; 2 ? command 'a'",
             "ok 1.000 s before; no it came at 1.000, before what line 1 accounts for"},
            {"1 run a; 1 run b; 2 ? command 'a'; 2 ? no command",
             "ok 1.000 s before; no there was 'b' at 1.000"},
            {"1 ? command 'a' within 1; 1 ? command 'b' within 1; 1.2 run b; 1.3 run a",
             "ok after 0.300 s waiting"},
            {"1 ? command 'a' within 1; 1 ? no command for 1; 1.5 run a; 3 now",
             "ok after 0.500 s; ok "},
            {"1 ? command 'a' within 1; 1 ? no command for 1; 1.5 run a; 1.6 run a",
             "ok after 0.500 s; no there was 'a' at 1.600"},
            {"1 ? no command 'a' for 1; 1.5 run b; 2 now; 3 ? command 'b'",
             "ok ; ok 1.500 s before"},
            {"1 ? no command 'a' for 1; 1.5 run a", "no there was 'a' at 1.500"},
            {"1 ? command 'a' within 1; 1.5 run ab; 2 now", "no there was only 'ab'"},
            {"-1 run a; 1 ? no command; 1 ? command 'a'", "ok ; no nothing came"},
            {"1 ? log 'b c' within 1; 1.5 log a b c d", "ok after 0.500 s"},
            {"1 ? no log 'b' for 1; 1.5 log abc", "no there was 'abc' at 1.500"},
            {"1 ? command 'a' within 3; 1 ? command 'b' within 1; 2.5 run b; 4 now",
             "no there was only 'b'; no there was only 'b'"},
            {"1 run a; 2 ? no command; 2 ? no command", "no there was 'a' at 1.000; ok "},
            {"1 run log; 2 ? command 'log'", "ok 1.000 s before"},
            {"1 run x; 1 log y; 2 ? no command; 2 ? log 'y'",
             "no there was 'x' at 1.000; ok 1.000 s before"},
            {"1 watchdog fed; 1 ? watchdog fed within 1; 1.9 watchdog fed", "ok after 0.900 s"},
            {"1 watchdog fed; 1 ? watchdog fed within 1; 2 now", "no it was not"},
            {"1 ? watchdog unfed for 2; 2.9 watchdog fed", "no it was fed"},
            {"1 watchdog opened; 1 watchdog fed; 1 ? watchdog opened", "ok "},
            {"1 picture DA; 2 power on; 3 ? picture PVM", "ok "},
            {"1 ? power off by reboot within 2; 2 power reboot off", "ok after 1.000 s"},
            {"1 ? power off by reboot within 2; 2 power watchdog off; 2 power on; 3 now",
             "no it is watchdog"},
            {"1 ? power off within 2; 2 power watchdog off", "ok after 1.000 s"},
            {"1 ? log 'x' within 1; 1.5 log y; 2 now", "no no such line came"},
            {"1 ? frames lost; 2 frames lost; 3 power on; 3 ? frames lost",
             "no nothing has been seen of it; ok "},
        };
        for (const auto &row : rows)
            QTest::newRow(row[0]) << row[0] << row[1];
    }

    void settles()
    {
        QFETCH(QString, story);
        QTEST(verdictsOf(story, 1), "verdicts");
    }

    void keepsWithinInRealSeconds()
    {
        QCOMPARE(verdictsOf("1 ? picture DA within 1; 1.9 picture DA", 10),
                 QString("ok after 0.900 s"));
        QCOMPARE(verdictsOf("1 ? picture PVM for 1; 1.2 picture DA", 10), QString("ok "));
    }

    void measuresTicks()
    {
        const QString lost = "0 log SER LOCK Status(SCREEN exist):  0; ";
        const QString back = "9 log SER LOCK Status(SCREEN exist):  1; ";
        const QString script = "199 run /etc/set_t840gmsl_0.sh 1",
                      span = " after 190 ms (19 ticks)";
        QCOMPARE(spansOf(lost + back + script + "; 400 run /etc/set_t840gmsl_0.sh 1"), span);
        QCOMPARE(spansOf(lost + back + "150 run /etc/set_t840gmsl_0.sh 1; " + script), span);
        QCOMPARE(spansOf(back + script), QString()); // the first reading
        QCOMPARE(spansOf(lost + back + "20 power on; " + script), QString());
        QCOMPARE(spansOf("1 picture; 9 picture; 412 run /etc/set_t840gmsl_1.sh"),
                 QString(" after 403 ms (39 or 40 ticks)"));
    }
};

QTEST_GUILESS_MAIN(TestExpectations)
#include "tst_expectations.moc"
