// SPDX-License-Identifier: MIT

#include "board/serdescontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/stories.h"

#include <QtTest>

class TestSerdesControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void story_data() { stories::load(QFINDTESTDATA("stories/serdes.stories")); }
    void story() { play("^open .*value O_RDONLY|^close$"); }
    void monitor_data() { stories::load(QFINDTESTDATA("stories/monitor.stories")); }
    void monitor() { play("^open .*value O_RDONLY|^close$|Failed get GPIO"); }
    void registers_data() { stories::load(QFINDTESTDATA("stories/registers.stories")); }
    void registers();

private:
    void play(const QString &ignored);
};

static void tellEvents(const SerdesControl *serdes)
{
    QObject::connect(serdes, &SerdesControl::phySwitchTriggerSignal,
                     [](int event) { effects::add(QStringLiteral("event %1").arg(event)); });
}

static QString valueFile(const QString &line)
{
    return "/sys/class/gpio/gpio" + line + "/value";
}

void TestSerdesControl::play(const QString &ignored)
{
    effects::reset();
    for (const char *line : {"106", "116", "150", "229", "260", "268"})
        effects::setFile(valueFile(line), "0\n");
    for (const char *line : {"122", "269", "270"})
        effects::setFile(valueFile(line), "1\n");
    auto serdes = std::make_unique<SerdesControl>(nullptr);
    tellEvents(serdes.get());
    const auto run = [&serdes](const QStringList &words) {
        const QString &verb = words[0];
        const int value = words.value(1).toInt();
        const bool isOn = value == 1;
        if (verb == "new")
            serdes = std::make_unique<SerdesControl>(nullptr);
        else if (verb == "end")
            serdes.reset();
        else if (verb == "picture")
            serdes->switchVideoSlot(value);
        else if (verb == "shows-pvm")
            effects::add(serdes->getIsShowPVM() ? "yes" : "no");
        else if (verb == "backlight")
            for (int i = 0; i < value; ++i)
                serdes->handle_gmsl_switch_openbacklight();
        else if (verb == "tick")
            for (int i = 0; i < value; ++i)
                serdes->onPer10ms();
        else if (verb == "line")
            effects::setFile(valueFile(words[1]),
                             words[2] == "none" ? "" : words[2].toLatin1() + '\n');
        else if (verb == "deserializer")
            serdes->Reset_DeserPwdn(isOn);
        else if (verb == "serializer")
            serdes->Reset_SerPwdn(isOn);
        else if (verb == "keep-power")
            serdes->setAccKeepPowerOn(isOn);
        else if (verb == "link")
            serdes->switchGMSLLink(isOn);
        else if (verb == "source")
            serdes->switchVideoSource(isOn);
        else if (verb == "read") {
            bool level = isOn;
            const int result = words[2] == "switch" ? serdes->getSwitchStatus(&level)
                                                    : serdes->getAccStatus(&level);
            effects::add(QStringLiteral("%1 %2").arg(result).arg(level));
        } else if (verb == "delay") {
            QElapsedTimer clock;
            clock.start();
            QTimer::singleShot(0, [] { effects::add("event processed"); });
            serdes->Delay_MSec(words[1].toUInt());
            // The time of day is cut to milliseconds, so one may be missing.
            effects::add(clock.elapsed() >= value - 1 ? "waited" : "too short");
        } else if (verb == "brightness") {
            effects::onIoctl = [](unsigned long, void *argument) {
                const auto *block = static_cast<quint64 *>(argument);
                effects::add(QStringLiteral("words %1 %2 %3 %4")
                                 .arg(block[0])
                                 .arg(block[1])
                                 .arg(block[2])
                                 .arg(block[3]));
                return -1;
            };
            serdes->setLcdBacklight(words[1].toUInt());
        } else
            QFAIL("no such step");
    };
    stories::play(run, ignored);
}

void TestSerdesControl::registers()
{
    effects::reset();
    SerdesControl serdes(nullptr);
    stories::play([&serdes](const QStringList &words) {
        if (words[0] == "answer") {
            effects::popenOutput = words[1] == "none"
                                       ? QByteArray()
                                       : words.mid(1).join(' ').replace("\\n", "\n").toUtf8();
        } else if (words[0] == "read") {
            QByteArray bytes(3, static_cast<char>(0xEE));
            const auto number = [&words](int i) {
                return static_cast<unsigned char>(words[i].toInt(nullptr, 16));
            };
            serdes.Read_iic_from_ser(number(1), number(2),
                                     reinterpret_cast<unsigned char *>(bytes.data()), number(3));
            effects::add(bytes.toHex(' '));
        } else if (words[0] == "shell") {
            const QString output = serdes.exec_shell("x").replace('\n', '|');
            effects::add(output.isEmpty() ? "(empty)" : output);
        } else if (words[0] == "poll") {
            QVERIFY(QMetaObject::invokeMethod(&serdes, "slot_mtimer_timeout"));
        } else {
            QFAIL("no such step");
        }
    });
}

QTEST_GUILESS_MAIN(TestSerdesControl)
#include "tst_serdescontrol.moc"
