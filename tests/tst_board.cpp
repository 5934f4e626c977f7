// SPDX-License-Identifier: MIT

#include "board/GPIOSet.h"
#include "board/serdescontrol.h"
#include "board/simutouch.h"
#include "board/watchdogcontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QtTest>

#include <cerrno>

using stories::Words;

class TestBoard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { effects::reset(); }
    void gpio_data() { stories::load("gpio"); }
    void gpio();
    void watchdog_data() { stories::load("watchdog"); }
    void watchdog();
    void simutouch_data() { stories::load("simutouch"); }
    void simutouch();
    void serdes_data() { stories::load("serdes"); }
    void serdes() { playSerdes("^open .*value O_RDONLY|^close$"); }
    void monitor_data() { stories::load("monitor"); }
    void monitor() { playSerdes("^open .*value O_RDONLY|^close$|Failed get GPIO"); }
    void registers_data() { stories::load("registers"); }
    void registers() { playSerdes("^close$"); }

private:
    static void playSerdes(const QString &ignored);
};

// Adds the result of a call to its effects.
template <typename Call> static std::function<void(const Words &)> resultOf(Call call)
{
    return [call](const Words &w) { effects::add(QStringLiteral("= %1").arg(call(w))); };
}

// A buffer of characters, all points before the call.
template <typename Call> static std::function<void(const Words &)> textOf(Call call)
{
    return [call](const Words &) {
        QByteArray text(21, '.');
        const int result = call(text.data());
        effects::add(text.replace('\0', '0').replace('\n', '$'));
        effects::add(QStringLiteral("= %1").arg(result));
    };
}

void TestBoard::gpio()
{
    const auto line = [](const Words &w) { return w[0].toUInt(); };
    const auto level = [](const Words &w) { return w[1] == "1"; };
    stories::play(
        {{"export", resultOf([=](const Words &w) { return gpio_export(line(w)); })},
         {"unexport", resultOf([=](const Words &w) { return gpio_unexport(line(w)); })},
         {"dir", resultOf([=](const Words &w) { return gpio_set_dir(line(w), qPrintable(w[1])); })},
         {"edge",
          resultOf([=](const Words &w) { return gpio_set_edge(line(w), qPrintable(w[1])); })},
         {"set", resultOf([=](const Words &w) { return gpio_set_value(line(w), level(w)); })},
         {"get", resultOf([=](const Words &w) {
              bool isHigh = level(w);
              const int result = gpio_get_value(line(w), &isHigh);
              effects::add(isHigh ? "high" : "low");
              return result;
          })},
         {"fd-open", resultOf([=](const Words &w) {
              return gpio_fd_close(gpio_fd_open(line(w), w[1].toUInt()));
          })},
         {"pwm", resultOf([=](const Words &w) { return pwm_set_value(line(w), level(w)); })},
         {"duty", resultOf([=](const Words &w) {
              return pwm_set_value_duty_cycle(line(w), w[1].toUInt());
          })},
         {"period",
          resultOf([=](const Words &w) { return pwm_set_value_period(line(w), w[1].toUInt()); })},
         {"gsensor-on", resultOf([](const Words &w) { return gsensor_set_onoff(w.isOn()); })},
         {"gsensor", textOf(gsensor_get_value)},
         {"adc", textOf(adc_get_value)}});
}

void TestBoard::watchdog()
{
    QCOMPARE(WatchDogControl::getInstance(), WatchDogControl::getInstance());
    WatchDogControl watchdog(nullptr);
    stories::play(
        {{"switch", [&](const Words &w) { watchdog.setWatchDogOnOff(w[0] == "on"); }},
         {"allow", [&](const Words &w) { watchdog.setWdgFeedOnOff(w[0] == "on"); }},
         {"renderer", [&](const Words &w) { watchdog.on_avmstopslot(w[0] == "stopped"); }},
         {"is-on", [&](const Words &) { effects::add(watchdog.getIsIntWdgOn() ? "yes" : "no"); }},
         {"feed", [&](const Words &) { watchdog.on_WDTTimerOut(); }},
         {"feeds", [&](const Words &w) {
              for (int i = 0; i < w.number(); ++i)
                  effects::fire(1000);
              const QStringList lines = effects::take();
              effects::add(QStringLiteral("%1 bytes").arg(lines.filter("write").size()));
              for (const QString &line : lines.filter("log"))
                  effects::add(line);
          }}});
    watchdog.setWatchDogOnOff(false);
}

void TestBoard::simutouch()
{
    std::unique_ptr<::simutouch> touch;
    int answer = 0;
    effects::onIoctl = [&answer](unsigned long request, void *argument) {
        if (request == UI_GET_VERSION)
            *static_cast<unsigned int *>(argument) = 5;
        return answer;
    };
    stories::play({{"answer", [&](const Words &w) { answer = w.number(); }},
                   {"create",
                    [&](const Words &) {
                        touch = std::make_unique<::simutouch>(nullptr);
                        const QString opened = QStringLiteral("fd= %1").arg(effects::lastOpened);
                        for (QString line : effects::take())
                            effects::add(line.replace(opened, "fd= (opened)"));
                    }},
                   {"touch",
                    [&](const Words &w) {
                        touch->touchemit(w.number(0, 16), w.number(1, 16), w.number(2, 16));
                    }},
                   {"destroy", [&](const Words &) { touch.reset(); }}});
}

static QString valueFile(const QString &line)
{
    return "/sys/class/gpio/gpio" + line + "/value";
}

static void brightness(SerdesControl &serdes, unsigned int level)
{
    effects::onIoctl = [](unsigned long, void *argument) {
        const auto *block = static_cast<quint64 *>(argument);
        for (int word = 0; word < 4; ++word)
            effects::add(QString::number(block[word]));
        return -1;
    };
    serdes.setLcdBacklight(level);
}

static void delay(SerdesControl &serdes, int ms)
{
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(0, [] { effects::add("event processed"); });
    serdes.Delay_MSec(static_cast<unsigned int>(ms));
    // The time of day is cut to milliseconds, so one may be missing.
    effects::add(clock.elapsed() >= ms - 1 ? "waited" : "too short");
}

static void readRegisters(SerdesControl &serdes, const Words &w)
{
    QByteArray bytes(qMax(3, w.number(2)), static_cast<char>(0xEE));
    serdes.Read_iic_from_ser(
        static_cast<unsigned char>(w.number(0, 16)), static_cast<unsigned char>(w.number(1, 16)),
        reinterpret_cast<unsigned char *>(bytes.data()), static_cast<unsigned char>(w.number(2)));
    effects::add(bytes.toHex(' '));
}

void TestBoard::playSerdes(const QString &ignored)
{
    for (const char *line : {"106", "116", "150", "229", "260", "268"})
        effects::setFile(valueFile(line), "0\n");
    for (const char *line : {"122", "269", "270"})
        effects::setFile(valueFile(line), "1\n");
    std::unique_ptr<SerdesControl> serdes;
    const auto make = [&](const Words &) {
        serdes = std::make_unique<SerdesControl>(nullptr);
        connect(serdes.get(), &SerdesControl::phySwitchTriggerSignal,
                [](int event) { effects::add(QStringLiteral("event %1").arg(event)); });
    };
    const auto tick = [](int count) {
        for (int i = 0; i < count; ++i)
            effects::fire(10);
    };
    const auto setLine = [](const QString &line, const QString &level) {
        effects::setFile(valueFile(line), level == "none" ? "" : level.toLatin1() + '\n');
    };
    const auto read = [](int (SerdesControl::*get)(bool *), SerdesControl &from, bool level) {
        const int result = (from.*get)(&level);
        effects::add(QStringLiteral("%1 %2").arg(result).arg(level));
    };
    make(Words({}));
    stories::play(
        {{"new", make},
         {"end", [&](const Words &) { serdes.reset(); }},
         {"picture", [&](const Words &w) { serdes->switchVideoSlot(w.number()); }},
         {"shows-pvm", [&](const Words &) { effects::add(serdes->getIsShowPVM() ? "yes" : "no"); }},
         {"backlight",
          [&](const Words &w) {
              for (int i = 0; i < w.number(); ++i)
                  serdes->handle_gmsl_switch_openbacklight();
          }},
         {"tick", [&](const Words &w) { tick(w.number()); }},
         {"line", [&](const Words &w) { setLine(w[0], w[1]); }},
         {"settled", [&](const Words &) { tick(8); }},
         {"pressed", // let go and pressed; the press is accepted on the last of these ticks
          [&](const Words &) {
              setLine("269", "0");
              tick(8);
              setLine("269", "1");
              tick(7);
          }},
         {"deserializer", [&](const Words &w) { serdes->Reset_DeserPwdn(w.isOn()); }},
         {"serializer", [&](const Words &w) { serdes->Reset_SerPwdn(w.isOn()); }},
         {"keep-power", [&](const Words &w) { serdes->setAccKeepPowerOn(w.isOn()); }},
         {"link", [&](const Words &w) { serdes->switchGMSLLink(w.isOn()); }},
         {"source", [&](const Words &w) { serdes->switchVideoSource(w.isOn()); }},
         {"read-switch",
          [&](const Words &w) { read(&SerdesControl::getSwitchStatus, *serdes, w.isOn()); }},
         {"read-acc",
          [&](const Words &w) { read(&SerdesControl::getAccStatus, *serdes, w.isOn()); }},
         {"delay", [&](const Words &w) { delay(*serdes, w.number()); }},
         {"brightness", [&](const Words &w) { brightness(*serdes, w[0].toUInt()); }},
         {"answer",
          [](const Words &w) {
              effects::popenOutput = w[0] == "none" ? QByteArray() : w.text(0).toUtf8();
          }},
         {"read", [&](const Words &w) { readRegisters(*serdes, w); }},
         {"shell",
          [&](const Words &) {
              const QString output = serdes->exec_shell("x").replace('\n', '|');
              effects::add(output.isEmpty() ? "(empty)" : output);
          }},
         {"poll",
          [&](const Words &) { QMetaObject::invokeMethod(serdes.get(), "slot_mtimer_timeout"); }}},
        ignored);
}

QTEST_GUILESS_MAIN(TestBoard)
#include "tst_board.moc"
