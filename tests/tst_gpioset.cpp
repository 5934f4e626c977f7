// SPDX-License-Identifier: MIT

#include "board/GPIOSet.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QtTest>

class TestGpioSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void story_data() { stories::load(QFINDTESTDATA("stories/gpio.stories")); }
    void story();
};

void TestGpioSet::story()
{
    effects::reset();
    char text[21];
    const auto call = [&text](const QStringList &words) {
        const QString &verb = words[0];
        const unsigned int number = words.value(1).toUInt();
        const QByteArray word = words.value(2).toLatin1();
        if (verb == "export")
            return gpio_export(number);
        if (verb == "unexport")
            return gpio_unexport(number);
        if (verb == "dir")
            return gpio_set_dir(number, word.constData());
        if (verb == "edge")
            return gpio_set_edge(number, word.constData());
        if (verb == "set")
            return gpio_set_value(number, word == "1");
        if (verb == "get") {
            bool level = word == "1";
            const int result = gpio_get_value(number, &level);
            effects::add(level ? "high" : "low");
            return result;
        }
        if (verb == "fd-open")
            return gpio_fd_close(gpio_fd_open(number, word.toUInt()));
        if (verb == "pwm")
            return pwm_set_value(number, word == "1");
        if (verb == "duty")
            return pwm_set_value_duty_cycle(number, word.toUInt());
        if (verb == "period")
            return pwm_set_value_period(number, word.toUInt());
        if (verb == "gsensor-on")
            return gsensor_set_onoff(number == 1);
        memset(text, '.', sizeof text);
        const int result = verb == "adc" ? adc_get_value(text) : gsensor_get_value(text);
        effects::add(QByteArray(text, sizeof text).replace('\0', '0').replace('\n', '$'));
        return result;
    };
    stories::play([&call](const QStringList &words) {
        effects::add(QStringLiteral("= %1").arg(call(words)));
    });
}

QTEST_GUILESS_MAIN(TestGpioSet)
#include "tst_gpioset.moc"
