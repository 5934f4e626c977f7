// SPDX-License-Identifier: MIT

#include "board/GPIOSet.h"
#include "board/serdescontrol.h"
#include "board/simutouch.h"
#include "board/watchdogcontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QProcess>
#include <QtTest>

#include <cerrno>

using stories::Args;

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
    void serdes() { playSerdes("^open .*value O_RDONLY|^close$|LOCK Status"); }
    void monitor_data() { stories::load("monitor"); }
    void monitor() { playSerdes("^open .*value O_RDONLY|^close$|Failed get GPIO"); }
    void registers_data() { stories::load("registers"); }
    void registers();

private:
    static void playSerdes(const QString &ignored);
};

// Adds the result of a call to its effects.
template <typename Call> static std::function<void(Args)> resultOf(Call call)
{
    return [call](Args w) { effects::add(QStringLiteral("= %1").arg(call(w))); };
}

// A buffer of characters, all points before the call.
template <typename Call> static std::function<void(Args)> textOf(Call call)
{
    return [call](Args) {
        QByteArray text(21, '.');
        const int result = call(text.data());
        effects::add(text.replace('\0', '0').replace('\n', '$'));
        effects::add(QStringLiteral("= %1").arg(result));
    };
}

void TestBoard::gpio()
{
    const auto line = [](Args w) { return w[0].toUInt(); };
    const auto level = [](Args w) { return w[1] == "1"; };
    stories::play(
        {{"export", resultOf([=](Args w) { return gpio_export(line(w)); })},
         {"unexport", resultOf([=](Args w) { return gpio_unexport(line(w)); })},
         {"dir", resultOf([=](Args w) { return gpio_set_dir(line(w), qPrintable(w[1])); })},
         {"edge", resultOf([=](Args w) { return gpio_set_edge(line(w), qPrintable(w[1])); })},
         {"set", resultOf([=](Args w) { return gpio_set_value(line(w), level(w)); })},
         {"get", resultOf([=](Args w) {
              bool isHigh = level(w);
              const int result = gpio_get_value(line(w), &isHigh);
              effects::add(isHigh ? "high" : "low");
              return result;
          })},
         {"fd-open",
          resultOf([=](Args w) { return gpio_fd_close(gpio_fd_open(line(w), w[1].toUInt())); })},
         {"pwm", resultOf([=](Args w) { return pwm_set_value(line(w), level(w)); })},
         {"duty",
          resultOf([=](Args w) { return pwm_set_value_duty_cycle(line(w), w[1].toUInt()); })},
         {"period", resultOf([=](Args w) { return pwm_set_value_period(line(w), w[1].toUInt()); })},
         {"gsensor-on", resultOf([](Args w) { return gsensor_set_onoff(w.isOn()); })},
         {"gsensor", textOf(gsensor_get_value)},
         {"adc", textOf(adc_get_value)}});
}

void TestBoard::watchdog()
{
    QCOMPARE(WatchDogControl::getInstance(), WatchDogControl::getInstance());
    WatchDogControl watchdog(nullptr);
    stories::play({{"switch", [&](Args w) { watchdog.setWatchDogOnOff(w[0] == "on"); }},
                   {"allow", [&](Args w) { watchdog.setWdgFeedOnOff(w[0] == "on"); }},
                   {"renderer", [&](Args w) { watchdog.on_avmstopslot(w[0] == "stopped"); }},
                   {"is-on", [&](Args) { effects::add(watchdog.getIsIntWdgOn() ? "yes" : "no"); }},
                   {"child-has-it",
                    [](Args) {
                        const QString path =
                            QStringLiteral("/proc/self/fd/%1").arg(effects::lastOpened);
                        effects::add(QProcess::execute("test", {"-e", path}) == 0 ? "yes" : "no");
                    }},
                   {"feed", [&](Args) { watchdog.on_WDTTimerOut(); }},
                   {"feeds", [&](Args w) {
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
    stories::play(
        {{"answer", [&](Args w) { answer = w.number(); }},
         {"create",
          [&](Args) {
              touch = std::make_unique<::simutouch>(nullptr);
              const QString opened = QStringLiteral("fd= %1").arg(effects::lastOpened);
              for (QString line : effects::take())
                  effects::add(line.replace(opened, "fd= (opened)"));
          }},
         {"touch",
          [&](Args w) { touch->touchemit(w.number(0, 16), w.number(1, 16), w.number(2, 16)); }},
         {"destroy", [&](Args) { touch.reset(); }}});
}

void TestBoard::registers()
{
    playSerdes("^close$");
    QCOMPARE(effects::openPipes, 0);
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
            effects::add(block[word]);
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

static void readRegisters(SerdesControl &serdes, Args w)
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
    const auto make = [&](Args) {
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
    const auto read = [&](int (SerdesControl::*get)(bool *), bool level) {
        effects::add((serdes.get()->*get)(&level));
        effects::add(level);
    };
    make(stories::Words({}));
    stories::play(
        {{"new", make},
         {"end", [&](Args) { serdes.reset(); }},
         {"picture", [&](Args w) { serdes->switchVideoSlot(w.number()); }},
         {"shows-pvm", [&](Args) { effects::add(serdes->getIsShowPVM() ? "yes" : "no"); }},
         {"tick", [&](Args w) { tick(w.number()); }},
         {"line", [&](Args w) { setLine(w[0], w[1]); }},
         {"settled", [&](Args) { tick(8); }},
         {"deserializer", [&](Args w) { serdes->Reset_DeserPwdn(w.isOn()); }},
         {"serializer", [&](Args w) { serdes->Reset_SerPwdn(w.isOn()); }},
         {"keep-power", [&](Args w) { serdes->setAccKeepPowerOn(w.isOn()); }},
         {"link", [&](Args w) { serdes->switchGMSLLink(w.isOn()); }},
         {"source", [&](Args w) { serdes->switchVideoSource(w.isOn()); }},
         {"read-switch", [&](Args w) { read(&SerdesControl::getSwitchStatus, w.isOn()); }},
         {"read-acc", [&](Args w) { read(&SerdesControl::getAccStatus, w.isOn()); }},
         {"delay", [&](Args w) { delay(*serdes, w.number()); }},
         {"brightness", [&](Args w) { brightness(*serdes, w[0].toUInt()); }},
         {"answer",
          [](Args w) {
              effects::popenOutput = w[0] == "none" ? QByteArray() : w.text(0).toUtf8();
          }},
         {"read", [&](Args w) { readRegisters(*serdes, w); }},
         {"shell",
          [&](Args) {
              const QString output = serdes->exec_shell("x").replace('\n', '|');
              effects::add(output.isEmpty() ? "(empty)" : output);
          }},
         {"poll", [&](Args) { QMetaObject::invokeMethod(serdes.get(), "slot_mtimer_timeout"); }}},
        ignored);
}

QTEST_GUILESS_MAIN(TestBoard)
#include "tst_board.moc"
