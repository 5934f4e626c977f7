// SPDX-License-Identifier: MIT

#include "bench/car/vehicle.h"
#include "bench/language/candump.h"
#include "bench/language/words.h"

#include <QtTest>

#include <linux/can.h>

/// The frames of a vehicle that these `TIME WORDS; ...` make, until @p end seconds.
static std::vector<BusFrame> framesOf(const QString &story, const char *end = "1")
{
    std::vector<Statement> statements;
    for (const QString &line : (story + "; " + end + " end").split("; ", Qt::SkipEmptyParts)) {
        Statement statement;
        const QString fault = parseWords(line.section(' ', 1), &statement);
        if (!fault.isEmpty())
            qFatal("%s", qPrintable(fault));
        statement.atUs = qRound64(line.section(' ', 0, 0).toDouble() * 1e6);
        statements.push_back(statement);
    }
    return vehicle::frames(statements);
}

/// The data of the last frame of an identifier, as candump writes it.
static QByteArray lastData(const std::vector<BusFrame> &frames, const QByteArray &name)
{
    QByteArray last;
    for (const BusFrame &frame : frames) {
        const QByteArray line = candumpLine(frame, "can0");
        if (line.contains(' ' + name + '#'))
            last = line.trimmed().split('#')[1];
    }
    return last;
}

class TestVehicle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sends_data()
    {
        QTest::addColumn<QString>("story");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("data");
        const char *const rows[][3] = {
            {"", "01004501", "0010000000000000"}, // P, key on, everything off
            {"", "01004001", "2000000000000000"},
            {"", "413", "0000000000000000"},
            {"", "3E0", "0000000054000000"},
            {"", "0681AA02", "0000000000000000"},
            {"", "04812501", "0000000000000000"},
            {"", "3E5", "0000000000000000"},
            {"", "3E6", "0000000000000000"},
            {"", "371", ""},
            {"0 gear R", "01004501", "0010000000700000"},
            {"0 gear N; 0.5 gear D", "01004001", "2000000005000000"},
            {"0 gear undefined", "01004501", "0010000000300000"},
            {"0 light LEFT", "413", "0000000000000051"},
            {"0 light RIGHT", "413", "0000000000000045"},
            {"0 key 1", "3E0", "0000000004000000"},
            {"0 key OFF", "3E0", "0000000000000000"},
            {"0 speed 255", "0681AA02", "FF00000000000000"},
            {"0.5 speed 200 over 1", "0681AA02", "6000000000000000"}, // 0.483 s later
            {"0 speed 100; 0.5 speed 0 over 0.3", "0681AA02", "0000000000000000"},
            {"0 angle 33", "04812501",
             "0000003100000000"}, // the renderer's next step is 82 further
            {"0 angle 2838", "04812501", "0000005810000000"},
            {"0 angle -33", "04812501", "000000CEFF000000"},
            {"0 radar 000123", "3E5", "0000001018080000"}, // the bus counts 1 near, 3 far
            {"0 radar 123000", "3E6", "0000020301000000"},
            {"0 clock 2023-11-16 20:34", "371", "E7070B100C220000"}, // 8 hours behind
            {"0 clock 2024-01-01 07:59", "371", "E7070C1F173B0000"},
            {"0 frame 413#01", "413", "0000000000000000"}, // the regular ones go on
            {"0.99 frame 20000004#0102", "20000004", "0102"},
        };
        for (const auto &row : rows)
            QTest::addRow("%s: %s", row[0], row[1])
                << QString(row[0]) << QByteArray(row[1]) << QByteArray(row[2]);
    }

    void sends()
    {
        QFETCH(QString, story);
        QFETCH(QByteArray, name);
        QTEST(lastData(framesOf(story), name), "data");
    }

    void keepsCycleTimesAndOrder()
    {
        const std::vector<BusFrame> frames = framesOf("0 clock 2023-11-16 20:34", "10");
        QMap<uint32_t, int> counts;
        int64_t last = vehicle::kStartUs;
        for (const BusFrame &frame : frames) {
            ++counts[frame.id & CAN_EFF_MASK];
            QVERIFY(frame.stampUs - last >= 200); // a frame of 8 bytes takes as long
            last = frame.stampUs;
            QVERIFY(vehicle::isKnown(frame.id));
        }
        const QMap<uint32_t, int> expected{{0x1004501, 1000}, {0x1004001, 500}, {0x4812501, 1000},
                                           {0x681AA02, 500},  {0x413, 200},     {0x3E0, 100},
                                           {0x3E5, 200},      {0x3E6, 200},     {0x371, 10}};
        QCOMPARE(counts, expected);
        QVERIFY(!vehicle::isKnown(0x413 | CAN_ERR_FLAG));
    }

    void clockGoesOn()
    {
        QCOMPARE(lastData(framesOf("0 clock 2023-11-16 23:59", "62"), "371"),
                 QByteArray("E7070B1010000000")); // midnight comes at 16:00 of the bus
    }

    void loadsTheBus_data()
    {
        QTest::addColumn<int>("percent");
        for (int percent : {0, 10, 40, 70, 100})
            QTest::addRow("%d", percent) << percent;
    }

    void loadsTheBus()
    {
        QFETCH(int, percent);
        const std::vector<BusFrame> frames = framesOf(QString("0 bus load %1").arg(percent), "2");
        int64_t us = 0;
        for (const BusFrame &frame : frames)
            us += ((frame.id & CAN_EFF_FLAG ? 67 : 47) + 64) * 108 / 50;
        const double load = static_cast<double>(us) / 20'000;
        const double wanted = qMax(percent, 11); // what the controller looks at, alone
        QVERIFY2(qAbs(load - wanted) < 3, qPrintable(QString::number(load)));
    }

    void isReadAsItWasWritten()
    {
        const char *const rows[][2] = {
            {"01004501#0000000000700000", "gear R"},
            {"01004001#0000000006", "gear N"},
            {"01004501#0000000000500000", "gear D"},
            {"01004501#00", "gear P"},
            {"01004501#0000000000100000", "gear undefined"},
            {"413#0000000000000049", "light RIGHT"},
            {"413#0000000000000061", "light LEFT"},
            {"413#0000000000000012", "light OFF"},
            {"3E0#0000000004", "key 1"},
            {"0681AA02#FF", "speed 255"},
            {"04812501#0000008610", "angle 2838"}, // 4230
            {"04812501#000000FFFF", "angle 0"},
            {"04812501#0000000080", "angle 2838"},
            {"04812501#0000000180", "angle -2838"},
            {"3E5#0000000810180000", "radar 0 1, radar 1 3, radar 2 2"},
            {"3E6#000001020700", "radar 3 0, radar 4 3, radar 5 2"},
            {"2681AA02#FF", ""}, // an error frame
            {"123#00", ""},
        };
        for (const auto &[frame, wanted] : rows) {
            FrameLine line;
            QCOMPARE(readFrame(frame, &line), QString());
            QStringList read;
            for (const vehicle::Reading &reading : vehicle::readings(line.frame))
                read << reading.subject + ' ' + reading.value;
            QCOMPARE(read.join(", "), QString(wanted));
        }
    }

    void sleepsAndRepeats()
    {
        const std::vector<BusFrame> frames =
            framesOf("0.2 bus asleep; 0.5 bus awake; 0.5 frame 7FF#AA every 0.1 for 0.3");
        int extra = 0;
        for (const BusFrame &frame : frames) {
            const int64_t us = frame.stampUs - vehicle::kStartUs;
            QVERIFY(us < 201'000 || us > 500'000);
            extra += frame.id == 0x7FF ? 1 : 0;
        }
        QCOMPARE(extra, 3); // at 0.5, 0.6 and 0.7
    }

    /// Whenever it is looked at, and wherever words come, it sends what the same words make at
    /// once.
    void livesAsItWasForeseen()
    {
        const QString story = "0 gear R; 0.2 bus load 60; 0.3 speed 40 over 0.5; 0.4 bus asleep; "
                              "0.6 bus awake; 0.6 frame 7FF#AA every 0.01 for 0.1; 0.9 light LEFT";
        const std::vector<BusFrame> foreseen = framesOf(story);
        vehicle::Live car;
        std::vector<BusFrame> sent;
        const auto goOn = [&](int64_t us) {
            const std::vector<BusFrame> more = car.until(us);
            sent.insert(sent.end(), more.begin(), more.end());
        };
        int64_t us = 0;
        for (const QString &line : (story + "; 1 end").split("; ")) {
            const int64_t atUs = qRound64(line.section(' ', 0, 0).toDouble() * 1e6);
            for (; us < atUs; us += 7'001)
                goOn(us);
            goOn(atUs);
            Statement statement;
            QCOMPARE(parseWords(line.section(' ', 1), &statement), QString());
            statement.atUs = atUs;
            car.take(statement);
        }
        QCOMPARE(sent.size(), foreseen.size());
        for (size_t i = 0; i < sent.size(); ++i)
            QCOMPARE(candumpLine(sent[i], "can0"), candumpLine(foreseen[i], "can0"));
    }

    void tellsWhenItSendsNext()
    {
        vehicle::Live car;
        QCOMPARE(car.nextUs(), int64_t{0});
        QVERIFY(car.until(0).empty());
        QCOMPARE(car.until(1).size(), size_t{1});
        QCOMPARE(car.nextUs(), int64_t{1000});
        QVERIFY(car.until(1000).empty());
        QCOMPARE(car.until(1001).size(), size_t{1});
        Statement asleep;
        QCOMPARE(parseWords("bus asleep", &asleep), QString());
        asleep.atUs = 2000;
        car.take(asleep);
        QCOMPARE(car.nextUs(), std::numeric_limits<int64_t>::max());
    }
};

QTEST_GUILESS_MAIN(TestVehicle)
#include "tst_vehicle.moc"
