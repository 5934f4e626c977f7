// SPDX-License-Identifier: MIT
//
// Writes a drive of random but legal events with faults among them, and after each what the model
// of the decision says must have come of it. Usage: pvm-random-drive SEED SECONDS

#include "bench/decision/decisionmodel.h"

#include <QMap>
#include <QTextStream>
#include <QVector>

#include <functional>
#include <random>

namespace {

const QString kToPVM = "/etc/set_t840gmsl_0.sh 1";
const QString kToDA = "/etc/set_t840gmsl_0.sh 0";
const QString kBacklight = "/etc/set_t840gmsl_1.sh";

class RandomDrive
{
public:
    RandomDrive(quint32 seed, double seconds) : mRandom(seed), mEnd(seconds)
    {
        mOut << "# " << seconds << " s at random, seed " << seed << '\n';
    }

    void write()
    {
        say("pace 1 to 1");
        begin();
        while (mTime < mEnd)
            one(mBelow(5) < 3 ? carEvents() : faults())();
        say("end");
    }

private:
    using Event = std::function<void()>;

    template <class Int> Int mBelow(Int end)
    {
        return static_cast<Int>(mRandom() % static_cast<unsigned>(end));
    }
    template <class T> const T &one(const QVector<T> &list) { return list[mBelow(list.size())]; }

    void say(const QString &words)
    {
        mOut << "at " << QString::number(mTime, 'f', 3) << ' ' << words << '\n';
    }
    void wait(double least, double most) { mTime += least + (most - least) * mBelow(1000) / 1000; }

    // What the controller is to do.

    void take(const QString &what, int value)
    {
        mModel.take(what, value);
        if (mModel.waiting)
            mModel.take("fire", 100);
        for (const QString &asked : mModel.asked)
            if (mIsPVMRouted != (asked == "picture 1"))
                route(!mIsPVMRouted);
        mModel.asked.clear();
    }

    void route(bool isPVM)
    {
        mIsPVMRouted = isPVM;
        mCommands << (isPVM ? kToPVM : kToDA);
        if (!mAreScriptsFailing)
            mPicture = isPVM ? "PVM" : "DA";
    }

    void settle(double extra = 0)
    {
        wait(1.2 + extra, 2.2 + extra);
        if (!mCommands.isEmpty())
            mCommands << kBacklight;
        for (const QString &command : {kToPVM, kToDA, kBacklight})
            if (!mCommands.contains(command))
                say("expect no command \"" + command + '"');
        for (const QString &command : mCommands)
            say("expect command \"" + command + "\" within 5");
        mCommands.clear();
        say("expect no command");
        say("expect picture " + mPicture + " within 5");
        for (auto field = mRecord.cbegin(); field != mRecord.cend(); ++field)
            say("expect record " + field.key() + ' ' + field.value() + " within 5");
        say("expect watchdog fed within 3");
    }

    void begin()
    {
        mRecord = {{"gear", "P"}, {"light", "OFF"}, {"speed", "0"},
                   {"key", "ON"}, {"angle", "0"},   {"radar", "ff000000"}};
        take("allow", 1);
        take("light", 0);
        take("speed", 0);
        take("gear", 1);
        settle(1);
        busDown();
        say("expect frames lost");
    }

    // The car.

    void record(const QString &field, const QString &value)
    {
        say(field + ' ' + value);
        mRecord[field] = value;
    }

    void gear()
    {
        const int gear = mBelow(4);
        record("gear", QStringList{"P", "R", "N", "D"}[gear]);
        take("gear", gear + 1);
    }
    void light()
    {
        const int light = mBelow(3);
        record("light", QStringList{"OFF", "LEFT", "RIGHT"}[light]);
        take("light", light);
    }
    void speed()
    {
        const int speed = one(QVector<int>{0, 0, 1, 14, 15, 16, 17, 18, 60, 255});
        record("speed", QString::number(speed));
        take("speed", speed);
    }
    void click()
    {
        say("switch click 0." + QString::number(2 + mBelow(6)));
        take("board", 1);
    }
    void others()
    {
        record("key", one(QVector<QString>{"OFF", "1", "ON"}));
        record("angle", QString::number(33 * (mBelow(173) - 86))); // the renderer gets steps of 33
        QString radar;
        for (int sensor = 0; sensor < 6; ++sensor)
            radar += QString::number(mBelow(4));
        record("radar", radar);
        mRecord["radar"] = "ff" + radar;
    }
    void allow()
    {
        const bool isAllowed = mBelow(2) == 1;
        say(QString("renderer turn-switch ") + (isAllowed ? "on" : "off"));
        take("allow", isAllowed);
    }

    void carEvent()
    {
        one<Event>({[this] { gear(); }, [this] { light(); }, [this] { speed(); }})();
    }

    QVector<Event> carEvents()
    {
        return {
            [this] { gear(), settle(); },     [this] { gear(), settle(); },
            [this] { light(), settle(); },    [this] { speed(), settle(); },
            [this] { click(), settle(1); },   [this] { others(), settle(); },
            [this] { allow(), settle(1.5); },
        };
    }

    // Faults, and what the car does meanwhile. Each heals.

    /// @p from, later @p to; a car's event in between.
    void during(const QString &from, const QString &to, double extra = 0)
    {
        say(from);
        wait(0.1, 1);
        carEvent();
        wait(0.5, 1);
        say(to);
        settle(extra);
    }
    /// @p from, later @p to, and nothing comes of it.
    void between(const QString &from, const QString &to, double least, double most,
                 double extra = 0)
    {
        say(from);
        wait(least, most);
        say(to);
        settle(extra);
    }

    /// Others talk, for a while only: in virtual time it is the frames that take time.
    void busLoad()
    {
        say("bus load " + QString::number(10 + 10 * mBelow(7)));
        carEvent();
        settle();
        say("bus load 0");
    }

    void busDown() { during("bus down", "bus up"); }

    void screenUnplugged()
    {
        say("serializer-lock off");
        wait(0.5, 2);
        say("serializer-lock on");
        route(mIsPVMRouted);
        settle();
    }

    void longPress()
    {
        say("switch press");
        wait(3.5, 6);
        say("switch release");
        route(mIsPVMRouted);
        settle(5); // 3 s of pressing, 0.3 s power-down, 3 s of waiting, 0.2 s
    }

    void failingScripts()
    {
        say("scripts failing");
        mAreScriptsFailing = true;
        carEvent();
        settle();
        say("scripts normal");
        mAreScriptsFailing = false;
    }

    void slowScripts()
    {
        say("scripts slow 0." + QString::number(1 + mBelow(3)));
        carEvent();
        settle(1);
        say("scripts normal");
    }

    // A light that is on when the new renderer allows it again would be a turn of its own.
    void rendererDies()
    {
        record("light", "OFF");
        take("light", 0);
        settle();
        say("renderer kill");
        wait(1, 8);
        carEventWithoutLight();
        wait(1, 2);
        say("renderer start");
        take("allow", 1);
        settle(5);
    }
    void carEventWithoutLight() { mBelow(2) ? gear() : speed(); }

    QVector<Event> faults()
    {
        const QString line =
            one(QVector<QString>{"switch", "acc", "deserializer-lock", "serializer-lock"});
        const QString stop = "run \"kill -%1 $(pidof %2)\"";
        return {
            [this] { busDown(); },
            [this] { screenUnplugged(); },
            [this] { longPress(); },
            [this] { failingScripts(); },
            [this] { slowScripts(); },
            [this] { rendererDies(); },
            [this] { during("bus asleep", "bus awake"); },
            [this, line] { during(line + " unreadable", line + " readable"); },
            [this] { between("acc on", "acc off", 1, 8); },
            [this] { busLoad(); },
            [this] { between("deserializer-lock off", "deserializer-lock on", 0.5, 3); },
            [this] { between("renderer slog on", "renderer slog off", 1, 2); },
            [this] { between("renderer heartbeat off", "renderer heartbeat on", 1, 12, 4); },
            [this] { say("switch bounce 0.3"), settle(); },
            [this] { say("frame 20000080#0000000000000000 every 0.003 for 1"), settle(); },
            [this] { say("frame 7FF#FFFFFFFFFFFFFFFF every 0.002 for 1"), settle(); },
            [this, stop] {
                between(stop.arg("STOP", "pvm-bench-renderer"),
                        stop.arg("CONT", "pvm-bench-renderer"), 1, 8, 4);
            },
            [this, stop] {
                between(stop.arg("STOP", "pvm-controller"), stop.arg("CONT", "pvm-controller"), 0.1,
                        0.5);
            },
        };
    }

    QTextStream mOut{stdout};
    std::mt19937 mRandom;
    const double mEnd;
    double mTime = 0;
    DecisionModel mModel;
    bool mIsPVMRouted = true; ///< as the controller takes it
    QString mPicture = "PVM"; ///< as it is
    bool mAreScriptsFailing = false;
    QStringList mCommands; ///< since the last settling
    QMap<QString, QString> mRecord;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        return EXIT_FAILURE;
    RandomDrive(QByteArray(argv[1]).toUInt(), QByteArray(argv[2]).toDouble()).write();
    return EXIT_SUCCESS;
}
