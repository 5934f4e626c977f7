// SPDX-License-Identifier: MIT

#include "bench/car/vehicle.h"
#include "bench/drive/drivefile.h"
#include "bench/driving/hand.h"
#include "bench/driving/saveddrive.h"
#include "bench/language/words.h"

#include <QTemporaryFile>
#include <QtTest>

namespace {

Statement statementOf(const QString &words, int64_t us)
{
    Statement statement;
    const QString fault = parseWords(words, &statement);
    Q_ASSERT(fault.isEmpty());
    statement.atUs = us;
    return statement;
}

/// Steps of somebody who drives: MS say WORDS, MS picture|power VALUE, MS lost, MS frame, MS end.
void drive(const QString &steps, SavedDrive *saved)
{
    for (const QString &step : steps.split("; ", Qt::SkipEmptyParts)) {
        const int64_t us = step.section(' ', 0, 0).toLongLong() * 1000;
        const QString what = step.section(' ', 1, 1);
        const QString rest = step.section(' ', 2);
        if (what == "say")
            saved->take(statementOf(rest, us));
        else if (what == "picture")
            saved->takeFact({Fact::Kind::Picture, {}, rest}, us);
        else if (what == "power")
            saved->takeFact({Fact::Kind::Power, {}, rest}, us);
        else if (what == "lost")
            saved->takeFact({Fact::Kind::Frames, {}, "lost"}, us);
        else if (what == "frame")
            saved->takeFrame({vehicle::kStartUs + us, 0x413, 1, {0x51}});
        else
            saved->end(us);
    }
}

const QString kHead =
    "# Driven by hand with pvm-bench drive: what was done, and the pictures that came\n";
const QString kHeadWithLoss =
    "at 0 board may lose frames # driven by hand with pvm-bench drive, some were lost\n";

} // namespace

class TestDriving : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void saves_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("saved");
        const QString r = "at 1.000 gear R\n";
        QTest::newRow("words") << "1000 say gear R # out; 2500 say speed 4 over 2; 3000 end"
                               << kHead + "at 1.000 gear R # out\nat 2.500 speed 4 over 2\n"
                                          "at 3.000 end\n";
        QTest::newRow("picture, early") << "1000 say gear R; 2000 picture DA; 3000 end"
                                        << kHead + r +
                                               "at 1.500 expect picture DA within 2.0\n"
                                               "at 3.000 end\n";
        QTest::newRow("picture, not before the words")
            << "1000 say gear R; 1300 picture DA; 1400 picture PVM; 1500 say gear D"
            << kHead + r +
                   "at 1.000 expect picture DA within 1.8\nat 1.000 expect picture PVM within 1.9\n"
                   "at 1.500 gear D\n";
        QTest::newRow("the same picture again")
            << "0 say gear R; 100 picture PVM; 900 picture DA; 2000 picture DA"
            << kHead + "at 0.000 gear R\nat 0.400 expect picture DA within 2.0\n";
        QTest::newRow("pictures of the start")
            << "-1 picture DA; 1000 say gear R; 1100 picture PVM"
            << kHead + r + "at 1.000 expect picture PVM within 1.6\n";
        QTest::newRow("before the first word")
            << "700 picture DA; 1000 say gear R"
            << kHead + "at 0.200 expect picture DA within 2.0\n" + r;
        QTest::newRow("power") << "1000 say gear R; 9000 power off; 9100 power on; 9900 picture DA"
                               << kHead + r +
                                      "at 4.000 expect power off within 6.5\n"
                                      "at 9.400 expect picture DA within 2.0\n";
        QTest::newRow("lost") << "1000 say gear R; 2000 lost; 3000 end"
                              << kHeadWithLoss + r + "at 3.000 end\n";
        QTest::newRow("lost before") << "500 lost; 1000 say gear R" << kHeadWithLoss + r;
        QTest::newRow("a live bus") << "0 frame; 50 frame; 1000 say switch click 0.2"
                                    << kHead + "(1700000000.000000) can0 413#51\n"
                                               "(1700000000.050000) can0 413#51\n"
                                               "at 1.000 switch click 0.2\n";
        QTest::newRow("end behind the last word")
            << "1000 say gear R; 999 end" << kHead + r + "at 1.000 end\n";
        QTest::newRow("nothing done") << "700 picture DA; 800 lost; 900 end"
                                      << "an earlier drive\n";
    }

    void saves()
    {
        QFETCH(QString, steps);
        QFETCH(QString, saved);
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write("an earlier drive\n");
        QVERIFY(file.flush());
        file.seek(0);
        SavedDrive savedDrive(&file);
        drive(steps, &savedDrive);
        QVERIFY(file.flush());
        QFile read(file.fileName());
        QVERIFY(read.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(read.readAll()), saved);
        QCOMPARE(savedDrive.fault(), QString());
        if (!savedDrive.isBegun())
            return;
        QCOMPARE(savedDrive.lines(), static_cast<int>(saved.count('\n')));
        read.seek(0);
        Drive driven;
        QCOMPARE(readDrive(read.handle(), "saved", {}, &driven), QString());
    }

    void tellsWhatCannotBeWritten()
    {
        QFile full("/dev/full");
        QVERIFY(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        SavedDrive saved(&full);
        saved.takeFact({Fact::Kind::Picture, {}, "DA"}, 0);
        QCOMPARE(saved.fault(), QString());
        saved.take(statementOf("gear R", 0));
        QVERIFY(!saved.fault().isEmpty());
    }

    void refuses_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("words");
        QTest::addColumn<bool>("hasVehicle");
        QTest::addColumn<bool>("hasStandIn");
        QTest::addColumn<QString>("fault"); ///< its beginning; empty for none
        const auto row = [](const char *before, const char *words, bool vehicle, bool standIn,
                            const char *fault) {
            QTest::newRow(qPrintable(
                QStringLiteral("%1, %2 %3%4").arg(before, words).arg(vehicle).arg(standIn)))
                << QString(before) << QString(words) << vehicle << standIn << QString(fault);
        };
        row("", "gear R", true, true, "");
        row("", "gear R", false, true, "what the vehicle does comes from the live frames");
        row("", "frame 413#51", false, true, "what the vehicle does");
        row("", "switch click 0.2", false, true, "");
        row("", "gera R", true, true, "'gera' is not allowed; allowed there: gear, light");
        row("", "gear X", true, true, "'X' is not allowed after 'gear'");
        for (const char *words : {"board without watchdog", "board with service",
                                  "board may lose frames", "pace 1 to 2"})
            row("", words, true, true, "this stands at 0");
        row("", "renderer start", true, true, "the renderer runs already");
        row("renderer kill", "renderer start", true, true, "");
        row("", "renderer kill", true, false, "");
        row("", "renderer slog on", true, false, "this needs the bench's own renderer");
        row("", "expect record gear R", true, false, "this needs the bench's own renderer");
        row("", "expect picture PVM within 1", true, false, "");
    }

    void refuses()
    {
        QFETCH(QString, before);
        QFETCH(QString, words);
        QFETCH(bool, hasVehicle);
        QFETCH(bool, hasStandIn);
        QFETCH(QString, fault);
        Hand hand(hasVehicle, hasStandIn);
        Statement statement;
        if (!before.isEmpty())
            QCOMPARE(hand.read(before, &statement), QString());
        const QString told = hand.read(words, &statement);
        QVERIFY2(fault.isEmpty() ? told.isEmpty() : told.startsWith(fault), qPrintable(told));
    }

    /// Whatever key, its words are of the language, and the next key goes on from there.
    void keysSayWords_data()
    {
        QTest::addColumn<QVector<int>>("keys");
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("words"); ///< of the last key
        const auto row = [](const char *before, const QVector<Key> &keys, const char *words) {
            QVector<int> numbers;
            for (Key key : keys)
                numbers << static_cast<int>(key);
            QTest::newRow(words) << numbers << QString(before) << QString(words);
        };
        row("speed 0", {Key::Faster}, "speed 5");
        row("speed 0", {Key::Faster, Key::Faster, Key::Faster}, "speed 15");
        row("speed 252", {Key::Faster}, "speed 255");
        row("speed 255", {Key::Faster, Key::Slower}, "speed 250");
        row("speed 3", {Key::Slower}, "speed 0");
        row("light OFF", {Key::Left}, "light LEFT");
        row("light OFF", {Key::Left, Key::Right}, "light RIGHT");
        row("light RIGHT", {Key::Right}, "light OFF");
        row("gear P", {Key::Reverse}, "gear R");
        row("gear P", {Key::Drive}, "gear D");
        row("gear P", {Key::Neutral}, "gear N");
        row("gear R", {Key::Park}, "gear P");
        row("gear P", {Key::Click}, "switch click 0.2");
    }

    void keysSayWords()
    {
        QFETCH(QVector<int>, keys);
        QFETCH(QString, before);
        QFETCH(QString, words);
        Hand hand(true, true);
        Statement statement;
        QCOMPARE(hand.read(before, &statement), QString());
        // A frame that was on its way says what was before.
        hand.takeFrame({0, 0x681AA02 | 0x80000000U, 8, {0x63}});
        QString said;
        for (int key : keys) {
            said = hand.wordsOf(static_cast<Key>(key));
            QCOMPARE(hand.read(said, &statement), QString());
        }
        QCOMPARE(said, words);
    }

    void speedOfARampComesFromItsFrames()
    {
        Hand hand(true, true);
        Statement statement;
        QCOMPARE(hand.read("speed 10", &statement), QString());
        QCOMPARE(hand.read("speed 90 over 10", &statement), QString());
        hand.takeFrame({0, 0x681AA02 | 0x80000000U, 8, {40}});
        QCOMPARE(hand.wordsOf(Key::Faster), QString("speed 45"));
    }

    void wordsBehind_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("words");
        QTest::newRow("choice") << "gear " << QStringList{"P", "R", "N", "D", "undefined"};
        QTest::newRow("value") << "speed " << QStringList{"SPEED"};
        QTest::newRow("option") << "speed 4 " << QStringList{"over"};
        QTest::newRow("text") << "run " << QStringList{"\"TEXT\""};
        QTest::newRow("several rows")
            << "bus " << QStringList{"load", "asleep", "awake", "up", "down"};
        QTest::newRow("nothing more") << "gear R " << QStringList{};
        QTest::newRow("wrong") << "gear X " << QStringList{};
        QTest::newRow("comment") << "gear # " << QStringList{};
        QTest::newRow("open quote") << "run \"x " << QStringList{};
    }

    void wordsBehind()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, words);
        QCOMPARE(::wordsBehind(text), words);
        QVERIFY(::wordsBehind({}).contains("gear"));
        QVERIFY(isValueName("SPEED") && isValueName("\"TEXT\"") && !isValueName("OFF"));
    }
};

QTEST_GUILESS_MAIN(TestDriving)
#include "tst_driving.moc"
