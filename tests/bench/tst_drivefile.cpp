#include "bench/drive/drivefile.h"

#include <QtTest>

#include <linux/can.h>

class TestDriveFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refuses_data()
    {
        QTest::addColumn<QByteArray>("text"); // behind one good frame, so in line 2
        QTest::addColumn<QString>("fault");   // behind "drive:2: "
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
            {"at 1", "a word is missing after the time; allowed there: renderer, bus, switch, acc, "
                     "lock, line, script, board, end, expect"},
            {"at 1 jump", "'jump' is not allowed after the time; allowed there: renderer, bus"},
            {"at 1 bus", "a word is missing after 'bus'; allowed there: up|down"},
            {"at 1 end 2", "'2' is not allowed after 'end'; allowed there: nothing more"},
            {"at 1 expect picture", "a word is missing after 'picture'; allowed there: PVM|DA"},
            {"at 1 expect picture DA within x", "'x' is not allowed after 'within'"},
            {"at 1 expect command \"a", "text without its closing quote"},
            {"at 1 expect command \"a\"b", "no blank behind the closing quote"},
            {"at 1 expect command a", "'a' is not allowed after 'command'; allowed there: \"TEXT"},
            {"at 1 expect gpio x 1", "'x' is not allowed after 'gpio'; allowed there: NUMBER"},
            {"at 1 switch click", "a word is missing after 'click'; allowed there: SECONDS"},
            {"at 1 switch on", "'on' is not allowed after 'switch'; allowed there: press|release"},
            {"at 1 lock acc on", "'acc' is not allowed after 'lock'; allowed there: deserializer"},
            {"at 0 expect power off \"x\"", "a word is missing after 'x'; allowed there: within"},
            {"at 0 board without watchdog", "a board is without watchdog from 0 on, before any"},
            {"at 2 end\nat 1 end", ""},
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
        const QString wrong = parseDrive("(1.0) can0 413#00\r\n" + text, "drive", "can0", &drive);
        const QString expected =
            fault.isEmpty() ? "drive:3: time runs backwards" : "drive:2: " + fault;
        QVERIFY2(wrong.startsWith(expected), qPrintable(wrong));
        QVERIFY(!wrong.contains('\n'));
    }

    void missesTheChannel()
    {
        const char *const rows[][2] = {
            {"", "d:1: no frame of channel can0 (seen: none)"},
            {"(1.0) can1 413#\n", "d:1: no frame of channel can0 (seen: can1)"},
            {"(1.0) can0 413#R\n", "d:1: channel can0 has only CAN FD and remote frames"},
        };
        Drive drive;
        for (const auto &row : rows)
            QCOMPARE(parseDrive(row[0], "d", "can0", &drive), QString(row[1]));
        QByteArray contents;
        QVERIFY(readDriveFile("/nowhere/x", &contents).startsWith("/nowhere/x: "));
        QCOMPARE(readDriveFile("/", &contents), QString("/: is a directory"));
    }

    void reads()
    {
        Drive drive;
        QString wrong = parseDrive(
            "#\n\nat 0.25 renderer start\nat 0.250 expect no command \"a \\\"b\\\\\" for 9\n"
            "(100.5) can0 01004501#0000000000500000 R\n(100.500001) can1 413#\n"
            "(100.600000) can0 7FF#\n(100.6) can0 123#R8\n(100.6) can0 123##1AABB\n"
            "(100.7) can0 1FFFFFFF#0102030405060708_9\r\n  at 1 end\n(101) can0 20000088#00 T",
            "d", "can0", &drive);
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
        QCOMPARE(drive.elsewhere, uint64_t{1});
        QVERIFY(!drive.rendererFromStart && drive.hasWatchdog);
        QCOMPARE(drive.statements[1].words, QStringList({"expect", "no", "command", "a \"b\\"}));
        QCOMPARE(drive.statements[1].spanUs, int64_t{9'000'000});
        const char *const good = "(1.0) can0 20000088#00 T\nat 1 expect bus up for 2";
        wrong = parseDrive(good, "d", "can0", &drive);
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
        QCOMPARE(drive.frames[0].id, 0x88u | CAN_ERR_FLAG);
        QCOMPARE(drive.endUs, int64_t{3'000'000});
        wrong = parseDrive("at 0 board without watchdog\n(1.0) can0 123#", "d", "can0", &drive);
        QVERIFY(wrong.isEmpty() && !drive.hasWatchdog);
        wrong = parseDrive("at 0.1 board without watchdog\n(1.0) can0 123#", "d", "can0", &drive);
        QVERIFY2(wrong.startsWith("d:1: a board is without"), qPrintable(wrong));
    }
};

QTEST_GUILESS_MAIN(TestDriveFile)
#include "tst_drivefile.moc"
