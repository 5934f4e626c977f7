// SPDX-License-Identifier: MIT

#include "bench/drive/drivefile.h"

#include <QTemporaryFile>
#include <QtTest>

#include <fcntl.h>
#include <linux/can.h>

/// Reads a drive's text from a file, as the bench does.
static QString parse(const QByteArray &text, Drive *drive, const LogCut &cut = {})
{
    QTemporaryFile file;
    if (!file.open() || file.write(text) != text.size() || !file.seek(0))
        return "no temporary file";
    return readDrive(file.handle(), "d", cut, drive);
}

class TestDriveFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refuses_data()
    {
        QTest::addColumn<QByteArray>("text"); // behind one good frame, so in line 2
        QTest::addColumn<QString>("fault");   // behind "d:2: "
        const struct
        {
            const char *text, *fault;
        } rows[] = {
            {"(1.5 can0 413#00", "time stamp without ')'"},
            {"(15) can0 413#00", "bad time stamp '(15)'"},
            {"(-1.0) can0 413#00", "bad time stamp '(-1.0)'"},
            {"(1234567890123.0) can0 413#00", "bad time stamp '(1234567890123.0)'"},
            {"(5.0)can0 413#00", "no blank behind the time stamp"},
            {"(5.0) 413#00", "missing channel"},
            {"(5.0) can0", "missing frame"},
            {"(5.0) can0 41300", "no '#' in frame '41300'"},
            {"(5.0) can0 4G3#00", "identifier '4G3' has not 3 or 8 hex digits"},
            {"(5.0) can0 800#00", "identifier '800' is too large"},
            {"(5.0) can0 40000000#00", "identifier '40000000' is too large"},
            {"(5.0) can0 413#000", "odd number of hex digits in the data"},
            {"(5.0) can0 413#0x", "'x' is not a hex digit"},
            {"(5.0) can0 413#001122334455667788", "more than 8 bytes of data"},
            {"(5.0) can0 413##", "CAN FD frame without flags"},
            {"(5.0) can0 413#00_8", "bad raw length behind '_'"},
            {"(5.0) can0 413#00 X", "'X' behind the frame"},
            {"(5.0) can1 413#000", "odd number of hex digits in the data"},
            {"(0.999999) can0 413#00", "time stamp runs backwards"},
            {"go home", "unknown word 'go'; a line begins with '('"},
            {"at", "missing time after 'at'"},
            {"at 1. end", "'1.' is not a time in seconds"},
            {"at 1x end", "'1x' is not a time in seconds"},
            {"at 1", "a word is missing after the time; allowed there: gear, light, key, speed, "},
            {"at 1 jump", "'jump' is not allowed after the time; allowed there: gear, light"},
            {"at 1 bus",
             "a word is missing after 'bus'; allowed there: load, asleep|awake, up|down"},
            {"at 1 gear R", "a drive plays a log or a vehicle of words, not both: see line 1"},
            {"at 1 gear X", "'X' is not allowed after 'gear'; allowed there: P|R|N|D|undefined"},
            {"at 1 speed 256",
             "'256' is not allowed after 'speed'; allowed there: SPEED (0 to 255, the car's"},
            {"at 1 speed -1", "'-1' is not allowed after 'speed'"},
            {"at 1 bus load 101", "'101' is not allowed after 'load'; allowed there: PERCENT (0 to "
                                  "100, without a sign)"},
            {"at 1 speed 20km/h", "'20km/h' is not allowed after 'speed'; allowed there: SPEED (0 "
                                  "to 255, the car's own byte, without a unit); did you mean 20?"},
            {"at 1 switch click 200ms", "'200ms' is not allowed after 'click'; allowed there: "
                                        "SECONDS (such as 2.5, without a unit); did you mean 0.2?"},
            {"at 1 renderer strat",
             "'strat' is not allowed after 'renderer'; allowed there: start, kill, holds|lets-go, "
             "heartbeat|turn-switch|initialised|slog; did you mean start?"},
            {"at 1 acc On", "'On' is not allowed after 'acc'; allowed there: on|off, "
                            "unreadable|readable; did you mean on?"},
            {"at 1 gear X #", "'X' is not allowed after 'gear'; allowed there: P|R|N|D|undefined"},
            {"at 1 radar 000004", "'000004' is not allowed after 'radar'"},
            {"at 1 clock 2023-02-29 20:34", "'2023-02-29' is not allowed after 'clock'"},
            {"at 1 clock 2023-02-28 24:00", "'24:00' is not allowed after '2023-02-28'"},
            {"at 1 frame 413#0",
             "'413#0' is not allowed after 'frame'; allowed there: a frame, but "
             "odd number of hex digits in the data"},
            {"at 1 frame 413#R", "'413#R' is not allowed after 'frame'"},
            {"  can0  413   [1]  00",
             "written by candump without times: try candump -L can0 >FILE"},
            {"(5.0)  can0  413   [1]  00",
             "written by candump -td (or -tz: then with = for +=): try awk"},
            {"at 1 gear # R", "a word is missing after 'gear'"},
            {"at 1 end 2", "'2' is not allowed after 'end'; allowed there: nothing more"},
            {"at 1 expect picture", "a word is missing after 'picture'; allowed there: PVM|DA"},
            {"at 1 expect picture DA within x", "'x' is not allowed after 'within'"},
            {"at 1 expect command \"a", "text without its closing quote"},
            {"at 1 expect command \"a\"b", "no blank behind the closing quote"},
            {"at 1 expect command a", "'a' is not allowed after 'command'; allowed there: \"TEXT"},
            {"at 1 expect gpio x 1",
             "'x' is not allowed after 'gpio'; allowed there: OUTPUT (229 deserializer"},
            {"at 1 expect gpio 999 1", "'999' is not allowed after 'gpio'"},
            {"at 1 expect gpio 269 1", "'269' is not allowed after 'gpio'"},
            {"at 1 switch click", "a word is missing after 'click'; allowed there: SECONDS"},
            {"at 1 switch on", "'on' is not allowed after 'switch'; allowed there: press|release"},
            {"at 1 lock serializer on", "'lock' is not allowed after the time"},
            {"at 0 expect power off \"x\"",
             "'x' is not allowed after 'off'; allowed there: within"},
            {"at 0 expect power off by fire", "'fire' is not allowed after 'by'"},
            {"at 1 board without watchdog", "this is for the whole drive and stands at 0"},
            {"at 0 pace 2 to 1", "LOW is above HIGH"},
            {"at 86401 gear R", "a drive lasts a day at most"},
            {"at 1 speed 5 over 86401", "a drive lasts a day at most"},
            {"at 1 board with service", "this is for the whole drive and stands at 0"},
            {"at 1 board may lose frames", "this is for the whole drive and stands at 0"},
            {"at 1 pace 1 to 2", "this is for the whole drive and stands at 0"},
            {"at 0 expect watchdog unfed for 1\nat 0 board without watchdog",
             "nothing can be expected of a watchdog that the board has not"},
            {"at 1 end\nat 1 gear R", "3: nothing comes after 'end', in line 2"},
            {"at 2 end\nat 1 end", "3: time runs backwards"},
        };
        for (const auto &row : rows)
            QTest::newRow(row.text) << QByteArray(row.text) << QString(row.fault);
        QTest::newRow("NUL") << QByteArray("a\0t", 3) << "unknown word 'a?t'";
        QTest::newRow("long") << QByteArray(4097, 'x') << "line of more than 4096 bytes";
    }

    void refuses()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, fault);
        Drive drive;
        const QString wrong = parse("(1.0) can0 413#00\r\n" + text + '\n', &drive);
        // The fault is in line 2, that of the text, unless it says so.
        const QString expected = (fault.startsWith("3: ") ? "d:" : "d:2: ") + fault;
        QVERIFY2(wrong.startsWith(expected), qPrintable(wrong));
        QVERIFY(!wrong.contains('\n'));
    }

    void hasNothingToPlay()
    {
        const char *const rows[][2] = {
            {"", "d:1: no frame and no word: nothing to play"},
            {"#\n(1.0) can1 413#\n",
             "d:2: no frame of channel can0 (seen: can1; --channel can1 plays it)"},
            {"(1.0) can0 413#R\n", "d:1: channel can0 has only CAN FD and remote frames"},
            {"at 1 gear R\n(1.0) can0 413#\n",
             "d:2: a drive plays a log or a vehicle of words, not both: see line 1"},
        };
        Drive drive;
        for (const auto &row : rows)
            QCOMPARE(parse(row[0], &drive), QString(row[1]));
        QCOMPARE(readDrive(open("/", O_RDONLY), "/", {}, &drive), QString("/: Is a directory"));
    }

    /// A broken line, frames that are out of order, a clock that was set back and forth.
    void tolerates()
    {
        LogCut cut;
        cut.isTolerant = true;
        const QByteArray log = "(100.0) can0 1#\n(100.0) can0 413#\n(100.1) can1 413#\n"
                               "(100.5) can0 413#\n(100.499999) can0 414#\n(9.0) can0 415#\n"
                               "(1700000000.0) can0 416#\nrubbish\n(1700000000.5) can0 417#\n";
        Drive drive;
        QCOMPARE(parse(log, &drive).left(20), QString("d:1: identifier '1' "));
        QCOMPARE(parse(log, &drive, cut), QString());
        QStringList times;
        for (const BusFrame &frame : drive.frames)
            times << QString::number(drive.timeOf(frame));
        QCOMPARE(times.join(' '), QString("0 500000 500000 1500000 2500000 3000000"));
        QVERIFY(drive.remarks.join(';').startsWith(
            "line 1 is left out: identifier '1' has not 3 or 8 hex digits;"
            "line 5: time stamp runs backwards by 0.000001 s from line 4;"
            "line 6: time stamp runs backwards by 91.500000 s from line 5;"
            "line 7: time stamp runs on by "));
        QVERIFY(parse("(1.0) can0 413#\nat 1 gera R\n", &drive, cut).startsWith("d:2: 'gera'"));
    }

    /// Frames at 0, 10, 11 and 30 s with `at` lines before, in and behind the gaps.
    void cuts_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<int>("gap");
        QTest::addColumn<QString>("frames");
        QTest::addColumn<QString>("statements");
        QTest::newRow("whole") << 0 << 99 << 99 << "0 10 11 30"
                               << "0 5 11 20 40";
        QTest::newRow("from") << 10 << 99 << 99 << "0 1 20"
                              << "0 1 10 30";
        QTest::newRow("behind a frame") << 11 << 99 << 99 << "0 19"
                                        << "0 0 9 29";
        QTest::newRow("to") << 0 << 11 << 99 << "0 10 11"
                            << "0 5 11";
        QTest::newRow("gaps") << 0 << 99 << 2 << "0 2 3 5"
                              << "0 2 3 5 15";
        QTest::newRow("gap as long as one") << 0 << 99 << 10 << "0 10 11 21"
                                            << "0 5 11 20 31";
        QTest::newRow("all") << 5 << 30 << 3 << "3 4 7"
                             << "0 0 4 7";
    }

    void cuts()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(int, gap);
        LogCut cut;
        cut.fromUs = int64_t{from} * 1'000'000;
        cut.toUs = int64_t{to} * 1'000'000;
        cut.longestGapUs = int64_t{gap} * 1'000'000;
        Drive drive;
        QCOMPARE(parse("at 0 pace 1 to 2\nat 5 bus up\nat 11 bus up\nat 20 bus up\nat 40 "
                       "end\n(7.0) can0 413#\n"
                       "(17.0) can0 413#\n(18.0) can0 413#\n(37.0) can0 413#\n",
                       &drive, cut),
                 QString());
        QStringList frames, statements;
        for (const BusFrame &frame : drive.frames)
            frames << QString::number(drive.timeOf(frame) / 1'000'000);
        for (const Statement &statement : drive.statements)
            statements << QString::number(statement.atUs / 1'000'000);
        QTEST(frames.join(' '), "frames");
        QTEST(statements.join(' '), "statements");
    }

    void refusesCuts()
    {
        LogCut cut;
        cut.fromUs = 2;
        Drive drive;
        QCOMPARE(parse("(1.0) can0 413#\n(1.000001) can0 413#\n", &drive, cut),
                 QString("d:2: no frame between --from and --to; the log lasts 0.000 s"));
        QVERIFY(parse("at 1 gear R\n", &drive, cut).contains("are for logs"));
        cut = {};
        QCOMPARE(parse("at 1 gear R\n", &drive, cut), QString());
        cut.isChannelChosen = true;
        QVERIFY(parse("at 1 gear R\n", &drive, cut).contains("--channel"));
        QVERIFY(parse("(1.0) can0 413#\n(50000.0) can0 413#\n(90000.0) can0 413#\n", &drive)
                    .contains("a day at most; --from"));
    }

    void takesWhatCandumpLeavesBehind()
    {
        Drive drive;
        QCOMPARE(parse("(1.0) can0 123#\nDROPCOUNT: dropped 3 CAN frames on 'can0' socket (total "
                       "drops 3)\n(61.0) can0 123#\n(121.1) can1 123#\n(121.1) can0 123#\n"
                       "(121.2) can0 123##1AA\n(121.3) can0 123#0011",
                       &drive),
                 QString());
        QCOMPARE(drive.remarks.join("; "),
                 QString("nothing for 60.1 s in front of line 5, from 60.000 on; line 7, the last, "
                         "is cut off and left out; 1 CAN FD and remote frames of the log are "
                         "skipped; 1 frames of other channels are left out; 1 times candump told "
                         "of frames that it had lost; no frame has an identifier that the "
                         "controller knows"));
        QCOMPARE(parse("\xef\xbb\xbf(1.0) can0 413#\n", &drive), QString());
        QVERIFY(drive.remarks.isEmpty());
    }

    void reads()
    {
        Drive drive;
        QString wrong = parse(
            "#\n\nat 0.25 renderer start\nat 0.250 expect no command \"a \\\"b\\\\\" for 9\n"
            "(100.5) can0 01004501#0000000000500000 R\n(100.500001) can1 413#\n"
            "(100.600000) can0 7FF#\n(100.6) can0 123#R8\n(100.6) can0 123##1AABB\n"
            "(100.7) can0 1FFFFFFF#0102030405060708_9\r\n  at 1 end\n(101) can0 20000088#00 T\n",
            &drive);
        QCOMPARE(wrong, QString("d:12: bad time stamp '(101)'"));
        QCOMPARE(drive.startUs, int64_t{100'500'000});
        QCOMPARE(drive.frames.size(), size_t{3});
        QCOMPARE(drive.frames[0].id, 0x1004501u | CAN_EFF_FLAG);
        QCOMPARE(QByteArray(reinterpret_cast<char *>(drive.frames[0].data), 8).toHex(),
                 QByteArray("0000000000500000"));
        QCOMPARE(drive.frames[1].id, 0x7FFu);
        QCOMPARE(int{drive.frames[1].length}, 0);
        QCOMPARE(drive.timeOf(drive.frames[2]), int64_t{200'000});
        QCOMPARE(drive.skipped, uint64_t{2});
        QVERIFY(!drive.rendererFromStart && drive.hasWatchdog);
        QCOMPARE(drive.statements[1].value, QString("a \"b\\"));
        QCOMPARE(drive.statements[1].limitUs, int64_t{9'000'000});
        const char *const good = "(1.0) can0 20000088#00 T\nat 1 expect bus up for 2";
        wrong = parse(good, &drive);
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
        QCOMPARE(drive.frames[0].id, 0x88u | CAN_ERR_FLAG);
        QCOMPARE(drive.endUs, int64_t{3'000'000});
        wrong = parse("at 0 board without watchdog\nat 0 board with service\n"
                      "at 0 pace 0.5 to 2\n(1.0) can0 123#",
                      &drive);
        QVERIFY(wrong.isEmpty() && !drive.hasWatchdog && drive.hasService);
        QCOMPARE(drive.slowest, 0.5);
        QCOMPARE(drive.fastest, 2.0);
    }
};

QTEST_GUILESS_MAIN(TestDriveFile)
#include "tst_drivefile.moc"
