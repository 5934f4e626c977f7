#include "board/serdescontrol.h"
#include "tests/seam/effects.h"

#include <QtTest>

class TestSerdesControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void lifeTouchesNothing();
    void switchesOnlyToAnotherPicture();
    void backlightCountdown();
    void lines_data();
    void lines();
    void lineReads();
    void lcdBacklight();
};

static const QString kToPVM = QStringLiteral("system /etc/set_t840gmsl_0.sh 1");
static const QString kToDA = QStringLiteral("system /etc/set_t840gmsl_0.sh 0");
static const QStringList kBacklight{"system /etc/set_t840gmsl_1.sh", "log open backlight."};

static QString valueFile(int gpio)
{
    return QStringLiteral("/sys/class/gpio/gpio%1/value").arg(gpio);
}

void TestSerdesControl::init()
{
    effects::reset();
    for (const int gpio : {106, 116, 150, 229, 260, 268})
        effects::setFile(valueFile(gpio), "0\n");
    effects::setFile(valueFile(269), "1\n");
}

void TestSerdesControl::lifeTouchesNothing()
{
    effects::recordTimers(true);
    {
        SerdesControl serdes(nullptr);
        QVERIFY(serdes.getIsShowPVM());
    }
    QCOMPARE(effects::take(), (QStringList{"log T840 Serdes Control init start(20250331)!",
                                           "timer 10", "log SerdesControl  finish!"}));
}

void TestSerdesControl::switchesOnlyToAnotherPicture()
{
    SerdesControl serdes(nullptr);
    effects::take();
    const struct
    {
        int request;
        QStringList done;
        bool isPVM;
    } rows[] = {{1, {}, true}, {0, {kToDA}, false}, {0, {}, false},      {5, {kToPVM}, true},
                {1, {}, true}, {100, {}, true},     {0, {kToDA}, false}, {-1, {kToPVM}, true}};
    for (const auto &row : rows) {
        serdes.switchVideoSlot(row.request);
        QCOMPARE(effects::take(), row.done);
        QCOMPARE(serdes.getIsShowPVM(), row.isPVM);
    }
}

void TestSerdesControl::backlightCountdown()
{
    SerdesControl serdes(nullptr);
    const auto quiet = [&serdes](int ticks) {
        effects::take();
        for (int i = 0; i < ticks; ++i)
            serdes.handle_gmsl_switch_openbacklight();
        return effects::take();
    };
    QCOMPARE(quiet(100), QStringList());
    serdes.switchVideoSlot(0);
    QCOMPARE(quiet(39), QStringList());
    QCOMPARE(quiet(1), kBacklight);
    QCOMPARE(quiet(100), QStringList());
    // A second switch starts the count again: one backlight script for both.
    serdes.switchVideoSlot(1);
    QCOMPARE(quiet(39), QStringList());
    serdes.switchVideoSlot(0);
    QCOMPARE(quiet(39), QStringList());
    QCOMPARE(quiet(1), kBacklight);
    QCOMPARE(quiet(100), QStringList());
}

void TestSerdesControl::lines_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("gpio");
    QTest::addColumn<QStringList>("texts"); // for true, for false
    QTest::newRow("deserializer") << "deser" << 229
                                  << QStringList{"0RESET DESER PWDN: LOW.",
                                                 "1RESET DESER PWDN: HIGH."};
    QTest::newRow("serializer") << "ser" << 260
                                << QStringList{"0RESET SER PWDN: LOW.", "1RESET SER PWDN: HIGH."};
    QTest::newRow("keep power") << "keep" << 150 << QStringList{"1", "0"};
    QTest::newRow("link") << "link" << 268
                          << QStringList{"1PVM Insert in GMSL Link", "0GMSL Link direct from HU"};
    QTest::newRow("source") << "source" << 106
                            << QStringList{"1use SERDES video", "0use HEADUNIT video"};
}

void TestSerdesControl::lines()
{
    QFETCH(QString, operation);
    QFETCH(int, gpio);
    QFETCH(QStringList, texts);
    SerdesControl serdes(nullptr);
    const QHash<QString, std::function<void(bool)>> operations{
        {"deser", [&](bool on) { serdes.Reset_DeserPwdn(on); }},
        {"ser", [&](bool on) { serdes.Reset_SerPwdn(on); }},
        {"keep", [&](bool on) { serdes.setAccKeepPowerOn(on); }},
        {"link", [&](bool on) { serdes.switchGMSLLink(on); }},
        {"source", [&](bool on) { serdes.switchVideoSource(on); }}};
    for (const bool on : {true, false}) {
        effects::take();
        operations[operation](on);
        const QString text = texts[on ? 0 : 1];
        QStringList expected{"open " + valueFile(gpio) + " O_WRONLY",
                             QStringLiteral("write \"%1\\0\"").arg(text[0]), "close"};
        if (text.size() > 1)
            expected << "log " + text.mid(1);
        QCOMPARE(effects::take(), expected);
        QCOMPARE(serdes.getIsShowPVM(), operation != "source" || on);
    }
}

void TestSerdesControl::lineReads()
{
    SerdesControl serdes(nullptr);
    bool level = false;
    QCOMPARE(serdes.getSwitchStatus(&level), 0);
    QVERIFY(level);
    QCOMPARE(serdes.getAccStatus(&level), 0);
    QVERIFY(!level);
    effects::setFile(valueFile(116), "");
    level = true;
    QCOMPARE(serdes.getAccStatus(&level), 0);
    QVERIFY(level);
}

void TestSerdesControl::lcdBacklight()
{
    SerdesControl serdes(nullptr);
    effects::take();
    serdes.setLcdBacklight(7);
    QCOMPARE(effects::take(), (QStringList{"open /dev/disp O_RDWR failed",
                                           "print \"open display device fail!\\n\""}));
    effects::setFile("/dev/disp", "");
    QList<quint64> words;
    effects::onIoctl = [&words](unsigned long, void *argument) {
        const auto *block = static_cast<quint64 *>(argument);
        words = {block[0], block[1]};
        return -1;
    };
    serdes.setLcdBacklight(4000000000U);
    QCOMPARE(effects::take(), (QStringList{"open /dev/disp O_RDWR", "ioctl 0x102", "close"}));
    QCOMPARE(words, (QList<quint64>{0, 4000000000U}));
}

QTEST_GUILESS_MAIN(TestSerdesControl)
#include "tst_serdescontrol.moc"
