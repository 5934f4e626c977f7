// SPDX-License-Identifier: MIT
//
// What a captured drive has for what a journal tells, and that the drive can be read.

#include "bench/drive/drivefile.h"
#include "bench/incident/capture.h"
#include "bench/language/candump.h"

#include <QTest>
#include <QTextStream>

#include <sys/mman.h>
#include <unistd.h>

namespace {

const QByteArray kStart = "boot  PvmMain  currentThreadId  0x1\n"
                          "boot  CAN 0  Open OK.\n"
                          "boot  ====  setIsAVMInited  isAVMInited  true\n"
                          "boot  ====  setIsTurnSwitchEnable  isTurnSwitchEnable  true\n";
const QByteArray kFirstD = "0.030  ==== CAN SIG GEAR  -1 ,change to: 4\n"
                           "0.030  ==== init to DA ====\n"
                           "0.030  ====  toSwitchVideo  isToPVM  0\n";

/// A journal as the manager writes it, of "SECONDS TEXT" lines; "systemd: " is the manager's, and
/// behind "boot" the board has another life.
QByteArray asJson(const QByteArray &lines)
{
    QByteArray json;
    int boot = 1;
    double bootAt = 0;
    for (const QByteArray &line : lines.split('\n')) {
        const double at = line.split(' ')[0].toDouble();
        const QByteArray text = line.mid(line.indexOf(' ') + 1);
        if (text == "boot") {
            ++boot;
            bootAt = at;
        }
        if (text.isEmpty() || text == "boot")
            continue;
        const bool isManagers = text.startsWith("systemd: ");
        json += "{\"__REALTIME_TIMESTAMP\":\"" + QByteArray::number(1.7e15 + at * 1e6, 'f', 0) +
                "\",\"__MONOTONIC_TIMESTAMP\":\"" +
                QByteArray::number((at - bootAt) * 1e6 + 1, 'f', 0) + "\",\"_BOOT_ID\":\"" +
                QByteArray::number(boot) + "\",\"UNIT\":\"pvm-controller.service\"," +
                "\"SYSLOG_IDENTIFIER\":\"" + (isManagers ? "systemd" : "pvm-controller") +
                "\",\"MESSAGE\":\"" + (isManagers ? text.mid(9) : text) + "\"}\n";
    }
    return json;
}

QString written(const QByteArray &journal, const std::vector<BusFrame> &frames,
                const CaptureOptions &options)
{
    Journal read;
    QString text = readJournalText(journal, &read);
    if (!text.isEmpty())
        return text;
    QTextStream out(&text);
    const QString fault = writeDrive(read, frames, options, out);
    return fault.isEmpty() ? text : fault;
}

QString faultOf(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const int file = memfd_create("drive", MFD_CLOEXEC);
    if (write(file, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size() ||
        lseek(file, 0, SEEK_SET) != 0)
        return "no file";
    Drive drive;
    QString fault = readDrive(file, "drive", {}, &drive);
    close(file);
    return fault;
}

} // namespace

class TestCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void drive_data();
    void drive();
    void frames();
    void moments_data();
    void moments();
    void noDrive_data();
    void noDrive();
};

void TestCapture::drive_data()
{
    QTest::addColumn<QByteArray>("journal");
    QTest::addColumn<double>("from");
    QTest::addColumn<QStringList>("has");
    QTest::addColumn<QStringList>("hasNot");
    const auto row = [](const char *name, const QByteArray &journal, double from,
                        const QStringList &has, const QStringList &hasNot = {}) {
        QTest::newRow(name) << journal << from << has << hasNot;
    };

    row("a gear, as long before its line as it takes",
        kStart + kFirstD +
            "5.030  ==== CAN SIG GEAR  4 ,change to: 2\n"
            "5.030  ==== enter RVC ====\n5.030  ====  toSwitchVideo  isToPVM  1\n",
        0,
        {"at 0.000 gear D\n", "at 5.000 gear R\n",
         "at 4.530 expect picture PVM within 1.000  # in the car: R since 5.030\n",
         "at 4.530 expect log \"toSwitchVideo  isToPVM  1\" within 1.000  #",
         "at 0.530 expect no log \"toSwitchVideo  isToPVM\" for 4.000\n", "at 5.530 end\n"},
        {"bus asleep", "renderer", "may lose"});
    row("a gear that the timer tells again is none",
        kStart + kFirstD + "5.030  ==== CAN SIG GEAR  4 ,change to: 4\n", 0, {},
        {"gear D\nat 5", "at 5.000 gear"});
    row("asked for what is there",
        kStart + kFirstD +
            "5.030  ==== CAN SIG GEAR  4 ,change to: 1\n"
            "5.030  ==== Enter P ====\n5.030  ====  toSwitchVideo  isToPVM  0\n",
        0, {"  0\" within 1.000  # there before in the car: first gear, D at 0.030\n"},
        {"expect picture DA within 1.000  # there"});
    row("a bus that sleeps at first",
        kStart + "3.004  ==== CAN SIG LIGHT_STATUS  \"[HARZARD]\" ,change to: \"[LEFT]\"\n"
                 "3.005  ==== CAN SIG KEY_STATUS  -1 ,change to: 0\n",
        0,
        {"at 0.000 bus asleep\n", "at 2.999 key OFF\nat 2.999 light LEFT\nat 2.999 bus awake\n"});
    row("a refusal, with the speed that asked",
        kStart + kFirstD +
            "5.004  ==== CAN SIG GEAR  4 ,change to: 2\n"
            "5.004  ====  toSwitchVideo  isToPVM  1\n8.003  ====  toSwitchVideo  isToPVM  0\n"
            "8.003  ====  toSwitchVideo  isCanOutFromPVM  false\n8.003  ====  toSwitchVideo  speed "
            " 16  gear 2\n"
            "8.003  ==== greater than LIMTT_SPEED ====  curSpeed  16  lastSpeed  12\n",
        0,
        {"at 7.903 speed 12\n", "at 8.003 speed 16\n",
         "at 7.503 expect log \"isCanOutFromPVM  false\" within 1.000"},
        {"at 7.503 expect picture"});
    row("a speed that was there before PVM was",
        kStart + kFirstD +
            "5.004  ====  toSwitchVideo  isToPVM  1\n"
            "9.004  ==== quit R NeedOutFromPVM ====  speed  20\n9.004  ====  toSwitchVideo  "
            "isToPVM  0\n",
        0, {"at 4.804 speed 20\n"});
    row("a click and a long press",
        kStart + kFirstD +
            "4.000  ==== SWITCH HARZARD shortly clicked\n10.000  RESET SER PWDN: LOW.\n",
        0,
        {"at 3.625 switch click 0.3\n", "at 6.930 switch press\n", "at 10.300 switch release  #"});
    row("lines of the board; what they are at first is no change",
        kStart + "boot  SER LOCK Status(SCREEN exist):  1\n" + kFirstD +
            "4.000  GPIO ACC:  true\n5.000  GPIO ACC:  false\n6.000  SER LOCK Status(SCREEN "
            "exist):  0\n7.000  DESER LOCK Status(HU exist):  0\n",
        0,
        {"at 3.925 acc on\n", "at 4.925 acc off\n", "at 5.925 serializer-lock off\n",
         "at 6.925 deserializer-lock off\n"},
        {"serializer-lock on"});
    row("lines that cannot be read",
        kStart + kFirstD +
            "4.000  Failed get GPIO-269 value\n4.010  Failed get GPIO-269 value\n4.200  Failed get "
            "GPIO-116 value\n6.000  GPIO ACC:  true\n",
        0,
        {"at 3.990 switch unreadable\nat 4.015 switch readable\nat 4.190 acc unreadable\nat 4.205 "
         "acc readable\n"});
    row("slow scripts, until they are quick",
        kStart + kFirstD +
            "2.440  open backlight.\n"
            "5.000  ====  toSwitchVideo  isToPVM  1\n5.415  open backlight.\n",
        0,
        {"at 0.000 scripts slow 1.000\n", "at 4.900 scripts normal\n",
         "at 0 board may lose frames\n", "expect picture DA within 1.530"});
    row("flags",
        kStart + kFirstD +
            "8.000  ====  setIsTurnSwitchEnable  isTurnSwitchEnable  false\n"
            "9.000  ====  setIsAVMInited  isAVMInited  false\n",
        0, {"at 7.880 renderer turn-switch off\n", "at 8.880 renderer initialised off\n"},
        {"renderer start"});
    row("a renderer that comes late, and one that never does",
        "boot  PvmMain  currentThreadId  0x1\nboot  CAN 0  Open OK.\n" + kFirstD +
            "9.600  ====  setIsAVMInited  isAVMInited  true\n",
        0, {"at 9.000 renderer start  # heard at 9.600\n", "at 9.000 renderer turn-switch off\n"});
    row("no renderer",
        "boot  PvmMain  currentThreadId  0x1\nboot  CAN 0  Open OK.\n" + kFirstD +
            "9.600  === avm stop === \n",
        0,
        {"at 10.100 renderer start  # none was heard: it is kept away until here\nat 10.100 end"},
        {"renderer kill"});
    row("a renderer that ends: ten exchanges of a second",
        kStart + kFirstD + "20.000  === avm stop === \n50.000  === feed wdt ===  1\n", 0,
        {"at 10.020 renderer kill  #",
         "at 30.000 renderer start  # when it was back is not told\n"});
    row("one of which is heard again",
        kStart + kFirstD +
            "20.000  === avm stop === \n25.000  ====  setIsAVMInited  isAVMInited  false\n25.200  "
            "====  setIsAVMInited  isAVMInited  true\n",
        0, {"at 24.400 renderer start  # heard at 25.000\n"}, {"renderer initialised"});
    row("one that ends too soon for that", kStart + kFirstD + "4.000  === avm stop === \n", 0,
        {"at 3.250 renderer kill", "at 3.350 angle 990 over 1"});
    row("a restart",
        asJson("0 PvmMain  currentThreadId\n0.1 CAN 0  Open OK.\n5 systemd: "
               "pvm-controller.service: Main process exited, code=killed\n"
               "6 PvmMain  currentThreadId\n7 ====  toSwitchVideo  isToPVM  0\n"),
        0,
        {"at 0 board with service\nat 0 board may lose frames\n",
         "at 4.900 run \"kill -KILL $(pidof pvm-controller)\"",
         "at 4.900 expect picture PVM within 1.5\n", "expect picture DA within"},
        {"bus asleep\nat 4"});
    row("a restart, and what has changed meanwhile",
        asJson("0 PvmMain  currentThreadId\n0.1 CAN 0  Open OK.\n"
               "0.15 ==== CAN SIG GEAR  -1 ,change to: 4\n"
               "6 PvmMain  currentThreadId\n6.1 ==== CAN SIG GEAR  -1 ,change to: 2\n"),
        0, {"at 4.850 run \"kill -KILL", "at 5.600 gear R\n"}, {"bus asleep"});
    row("a speed that must have fallen",
        kStart + kFirstD +
            "5.000  ==== greater than LIMTT_SPEED ====  curSpeed  20  lastSpeed  15\n"
            "9.000  ==== quit RVC ====\n9.500  === feed wdt ===  1\n",
        0, {"at 8.900 speed 0\n"});
    row("a reboot",
        asJson("0 PvmMain  currentThreadId\n0.1 CAN 0  Open OK.\n0.15 ==== CAN SIG GEAR  -1 "
               ",change to: 4\n3.1 GPIO ACC:  true\n"
               "20 boot\n20 PvmMain  currentThreadId\n25 ==== CAN SIG GEAR  -1 ,change to: 1\n"),
        0,
        {"at 2.925 acc on\n", "expect power off by reboot within 5\n", "bus asleep", "gear P\n",
         "bus awake\n"});
    row("a board that lost its power",
        asJson("0 PvmMain  currentThreadId\n0.1 CAN 0  Open OK.\n3.1 feed wdt\n9 boot\n9 PvmMain  "
               "currentThreadId\n"),
        0, {"# the board lost its power, why is not told: the drive ends there\n", "at 3.000 end"},
        {"power off"});
    row("the clock",
        kStart + kFirstD + "5.000  DATETIME: \"     371   [8]  E7 07 0B 10 0C 22 00 00\"\n", 0,
        {"at 4.999 frame 371#E7070B100C220000\n"});

    const QByteArray later = "60.000  ==== CAN SIG GEAR  4 ,change to: 1\n";
    row("a part in D with DA", kStart + kFirstD + later, 30,
        {"at 0.000 gear D\n", "at 0.000 expect picture DA within 0.700  # to begin with\n",
         "at 34.970 gear P\n"},
        {"switch click"});
    row("a part with PVM by hand",
        kStart + kFirstD +
            "20.000  ==== SWITCH HARZARD shortly clicked\n20.000  ====  toSwitchVideo  isToPVM  "
            "1\n" +
            later,
        30, {"at 1.500 switch click 0.3\n"});
    row("a part with PVM by the light",
        kStart + kFirstD +
            "19.000  ==== CAN SIG LIGHT_STATUS  \"[OFF]\" ,change to: \"[LEFT]\"\n19.000  ==== "
            "enter Trun ====\n19.000  ====  toSwitchVideo  isToPVM  1\n" +
            later,
        30, {"at 2.500 light LEFT\n", "at 1.800 expect picture PVM within"}, {"switch click"});
    row("a part in R",
        kStart + kFirstD +
            "20.000  ==== CAN SIG GEAR  4 ,change to: 2\n20.000  ====  toSwitchVideo  isToPVM  "
            "1\n60.000  ==== CAN SIG GEAR  2 ,change to: 4\n",
        30, {"at 0.000 gear D\n", "at 3.500 gear R\n"}, {"switch click"});
    row("a part of which nothing was told before",
        "0.000  GPIO ACC:  false\n30.000  ==== CAN SIG GEAR  3 ,change to: 1\n30.000  ====  "
        "toSwitchVideo  isToPVM  0\n30.500  open backlight.\n",
        0,
        {"at 0.000 gear N\n", "at 1.500 switch click 0.3\n", "# light at the start is not told\n"});

    row("a part that begins before the first gear",
        asJson(
            "0 PvmMain  currentThreadId\n0.1 CAN 0  Open OK.\n20 feed wdt\n40 ==== CAN SIG GEAR  "
            "-1 ,change to: 1\n40 ====  toSwitchVideo  isToPVM  0\n"),
        30, {"bus asleep\n", "at 14.995 gear P\n", "expect no log \"toSwitchVideo  isToPVM\" for"},
        {"at 0.000 gear", "switch click", "to begin with"});

    row("what no controller says",
        kStart + kFirstD +
            "4.000  ==== CAN SIG GEAR  4 ,change to: 7\n5.000  ==== RADAR \"ff000000\" ,change to: "
            "\"ff999999\"\n"
            "6.000  ==== greater than LIMTT_SPEED ====  curSpeed  99999999999  lastSpeed  "
            "15\n7.000  DATETIME: \"     371   [8]  E7 07 0B 10 0C 22 00 00 00 00\"\n8.000  ==== "
            "CAN SIG KEY_STATUS  2 ,change to: 9\n",
        0, {"frame 371#E7070B100C220000\n"}, {"speed 999", "radar 9", "gear undefined", "key"});
}

void TestCapture::drive()
{
    QFETCH(QByteArray, journal);
    QFETCH(double, from);
    QFETCH(QStringList, has);
    QFETCH(QStringList, hasNot);
    CaptureOptions options;
    options.fromUs = static_cast<int64_t>(from * 1e6);
    const QString text = written(journal, {}, options);
    QCOMPARE(faultOf(text), QString());
    for (const QString &part : has)
        QVERIFY2(text.contains(part), qPrintable("not there: " + part + "\n" + text));
    for (const QString &part : hasNot)
        QVERIFY2(!text.contains(part), qPrintable("there: " + part + "\n" + text));
}

/// Those of the log from the part's begin on, behind those that bring the car there.
void TestCapture::frames()
{
    std::vector<BusFrame> frames;
    for (int64_t us = 0; us < 60'000'000; us += 100'000)
        frames.push_back({us, 0x123, 1, {static_cast<uint8_t>(us / 1'000'000)}});
    const QByteArray journal = asJson("0 PvmMain  currentThreadId\n0.1 CAN 0  Open OK.\n"
                                      "0.2 ==== CAN SIG GEAR  -1 ,change to: 4\n"
                                      "0.2 ====  toSwitchVideo  isToPVM  0\n59 feed wdt\n");
    const auto framesOf = [&](double from) {
        CaptureOptions options;
        options.fromUs = static_cast<int64_t>(from * 1e6);
        const QString text = written(journal, frames, options);
        return faultOf(text).isEmpty() ? text : faultOf(text);
    };
    const QString whole = framesOf(0);
    QVERIFY(!whole.contains("gear"));
    QCOMPARE(whole.count("can0 123#"), 595); // 0.1 to 59.5 s
    QVERIFY(!whole.contains("7FF#"));        // the first is at drive time 0
    const QString part = framesOf(30);
    QCOMPARE(part.count("can0 123#"), 296);
    QVERIFY(part.contains("01004501#0010000000500000")); // D
    QVERIFY(part.indexOf("01004501#") < part.indexOf("can0 123#1E"));
}

void TestCapture::noDrive_data()
{
    QTest::addColumn<QByteArray>("journal");
    QTest::addColumn<QString>("fault");
    QTest::newRow("more than a day") << kStart + kFirstD + "86401.000  === feed wdt ===  1\n"
                                     << "a drive lasts a day at most";
    QTest::newRow("a time beyond all")
        << asJson("99999999999999 PvmMain  currentThreadId\n") << "an entry without its times";
    QTest::newRow("two forms") << kStart + asJson("1 PvmMain  currentThreadId\n")
                               << "a line of another form than those before it";
}

void TestCapture::noDrive()
{
    QFETCH(QByteArray, journal);
    QFETCH(QString, fault);
    const QString text = written(journal, {}, {});
    QVERIFY2(text.startsWith(fault), qPrintable(text));
}

/// 22:13:20 is the first line's; after 10 s the clock is set to 21:13:30 of the day after the next,
/// where it ends half a minute later.
void TestCapture::moments_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isSet");
    QTest::addColumn<double>("seconds"); // below 0: a fault
    const auto row = [](const char *text, bool isSet, double seconds) {
        QTest::addRow("%s, clock %s", text, isSet ? "set" : "left") << text << isSet << seconds;
    };
    row("2.5", true, 2.5);
    row("22:13:20", true, 0);
    row("22:13:30", true, 10);
    row("22:13:31", true, -1);
    row("21:13:29", true, -1);
    row("21:13:31", true, 11);
    row("21:14", true, 40);
    row("21:14:01", true, -1);
    row("noon", true, -1);
    row("22:14", false, 40);
    row("23:14", false, 3640);  // behind the last line
    row("00:00", false, 6400);  // over midnight
    row("22:13:18", false, -2); // in front of the first
}

void TestCapture::moments()
{
    QFETCH(QString, text);
    QFETCH(bool, isSet);
    QFETCH(double, seconds);
    constexpr int64_t kFirstUs = 1'700'000'000'000'000;
    Journal journal;
    journal.lines = {{0, kFirstUs, true, "first"}, {40'000'000, 0, true, "last"}};
    journal.stretches = {{0, kFirstUs}};
    if (isSet)
        journal.stretches.push_back(
            {10'000'000, kFirstUs + (2 * 86'400 - 3'600) * int64_t{1'000'000}});
    int64_t us = -1;
    const QString fault = readMoment(text, journal, &us);
    QCOMPARE(fault.isEmpty(), seconds != -1);
    if (fault.isEmpty())
        QCOMPARE(us, static_cast<int64_t>(seconds * 1e6));
}

QTEST_GUILESS_MAIN(TestCapture)
#include "tst_capture.moc"
