#include "board/GPIOSet.h"
#include "tests/seam/effects.h"

#include <QtTest>

#include <fcntl.h>

struct Call
{
    std::function<int()> run;
    QString path;
    QString written;
    QString failure;
    QString success = QString(); ///< empty: nothing is printed
};

class TestGpioSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { effects::reset(); }
    void everyCall();
    void levels_data();
    void levels();
    void gsensorText();
    void adcText();
};

static const QString kGpio = QStringLiteral("/sys/class/gpio/gpio57/");

// clang-format off
static QList<Call> calls()
{
    const QString gpio = "/sys/class/gpio/";
    const QString pwm = "/sys/class/pwm/pwmchip0/pwm3/";
    return {
        {[] { return gpio_export(57); }, gpio + "export", "57", "Failed export GPIO-57", "Sucessfully export GPIO-57"},
        {[] { return gpio_unexport(57); }, gpio + "unexport", "57", "Failed unexport GPIO-57", "Sucessfully unexport GPIO-57"},
        {[] { return gpio_set_dir(57, "out"); }, kGpio + "direction", "out\\0", "Failed set GPIO-57 direction", "Sucessfully set GPIO-57 direction"},
        {[] { return gpio_set_value(57, true); }, kGpio + "value", "1\\0", "Failed set GPIO-57 value"},
        {[] { return gpio_set_value(57, false); }, kGpio + "value", "0\\0", "Failed set GPIO-57 value"},
        {[] { return gpio_set_edge(57, "both"); }, kGpio + "edge", "both\\0", "Failed set GPIO-57 edge"},
        {[] { return pwm_set_value(3, true); }, pwm + "enable", "1\\0", "Failed set PWM-3 value"},
        {[] { return pwm_set_value_duty_cycle(3, 5000); }, pwm + "duty_cycle", "5000", "Failed set PWM-3 duty cycle value"},
        {[] { return pwm_set_value_period(3, 4294967295U); }, pwm + "period", "-1", "Failed set PWM-3 period -1 value"},
        {[] { return gsensor_set_onoff(false); }, "/sys/class/input/input2/driver/enable", "0\\0", "Failed set GSENSOR ENABLE"},
    };
}
// clang-format on

static QStringList printed(const QString &text)
{
    return text.isEmpty() ? QStringList() : QStringList{"print \"\\n" + text + "\\n\""};
}

void TestGpioSet::everyCall()
{
    for (const Call &call : calls()) {
        effects::reset();
        const QString open = "open " + call.path + " O_WRONLY";
        QCOMPARE(call.run(), -1);
        QCOMPARE(effects::take(), QStringList{open + " failed"} + printed(call.failure));
        effects::setFile(call.path, "x");
        // The result of a write is not looked at: the success line comes all the same.
        for (const bool works : {true, false}) {
            effects::onWrite = [works](const QByteArray &) { return works; };
            QCOMPARE(call.run(), 0);
            QCOMPARE(effects::take(),
                     QStringList({open, "write \"" + call.written + "\"", "close"}) +
                         printed(call.success));
        }
    }
    QCOMPARE(gpio_fd_open(57, O_RDWR), -1);
    QCOMPARE(effects::take(), (QStringList{"open " + kGpio + "value O_RDWR|O_NONBLOCK failed",
                                           "perror gpio/fd_open"}));
    effects::setFile(kGpio + "value", "1\n");
    const int fd = gpio_fd_open(57, O_RDONLY);
    QVERIFY(fd >= 0);
    QCOMPARE(gpio_fd_close(fd), 0);
    QCOMPARE(gpio_fd_close(fd), -1);
}

void TestGpioSet::levels_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("level");
    QTest::newRow("low") << QByteArray("0\n") << 0 << false;
    QTest::newRow("high") << QByteArray("1\n") << 0 << true;
    QTest::newRow("any other byte is high") << QByteArray(" ") << 0 << true;
    QTest::newRow("no byte") << QByteArray("") << -1 << true;
    QTest::newRow("no line") << QByteArray() << -1 << true;
}

void TestGpioSet::levels()
{
    QFETCH(QByteArray, contents);
    QFETCH(int, result);
    QFETCH(bool, level);
    if (!contents.isNull())
        effects::setFile("/sys/class/gpio/gpio269/value", contents);
    for (const bool before : {true, false}) {
        bool value = before;
        QCOMPARE(gpio_get_value(269, &value), result);
        QCOMPARE(value, result == 0 ? level : before);
        QCOMPARE(effects::take().filter("print"),
                 result == 0 ? QStringList()
                             : QStringList{"print \"\\nFailed get GPIO-269 value\\n\""});
    }
}

void TestGpioSet::gsensorText()
{
    char text[21] = "....................";
    QCOMPARE(gsensor_get_value(text), -1);
    QCOMPARE(QByteArray(text, 20), QByteArray(20, '.'));
    effects::setFile("/sys/class/input/input2/driver/value", "1 2 3");
    effects::take();
    QCOMPARE(gsensor_get_value(text), 0);
    QCOMPARE(QByteArray(text, 20), QByteArray("1 2 3............ 0\0", 20));
    QVERIFY(effects::take().contains("print \"\\nFailed get GPIO-0 value\\n\""));
    effects::setFile("/sys/class/gpio/gpio0/value", "1\n");
    effects::setFile("/sys/class/input/input2/driver/value", "12345678901234567890");
    QCOMPARE(gsensor_get_value(text), 0);
    QCOMPARE(QByteArray(text, 21), QByteArray("12345678901234567 1\0\0", 21));
}

void TestGpioSet::adcText()
{
    char text[6] = ".....";
    QCOMPARE(adc_get_value(text), -1);
    QCOMPARE(text[0], '.');
    for (const auto &row :
         {std::make_pair(QByteArray("12345"), "1234"), std::make_pair(QByteArray("7\n"), "7\n")}) {
        effects::setFile("/sys/class/gpadc/value", row.first);
        QCOMPARE(adc_get_value(text), 0);
        QCOMPARE(text, row.second);
    }
}

QTEST_GUILESS_MAIN(TestGpioSet)
#include "tst_gpioset.moc"
