// SPDX-License-Identifier: MIT

#include "devicedata/devicedatashare.h"
#include "tests/seam/effects.h"

#include <QtTest>

class TestDeviceDataShare : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { effects::reset(); }
    void changeDetectionByByte();
    void bitFields_data();
    void bitFields();
};

// Every byte of the record is flipped by itself: fields count, padding does not.
void TestDeviceDataShare::changeDetectionByByte()
{
    const QList<int> padding{3, 10, 11, 21, 22, 23};
    for (int i = 0; i < getDeviceDataLen(); ++i) {
        DeviceData a;
        memset(&a, 0x5A, sizeof a);
        DeviceData b;
        memcpy(&b, &a, sizeof b);
        QVERIFY(!isDeviceDataChanged(&a, &b));
        reinterpret_cast<char *>(&b)[i] ^= 0x40;
        QVERIFY2(isDeviceDataChanged(&a, &b) == !padding.contains(i),
                 qPrintable(QString::number(i)));
    }
    QCOMPARE(getDeviceDataLen(), 28);
}

void TestDeviceDataShare::bitFields_data()
{
    QTest::addColumn<int>("data");
    QTest::addColumn<int>("startBit");
    QTest::addColumn<int>("bitCount");
    QTest::addColumn<int>("value"); // INT_MIN: getBits
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("logged");
    const QString invalid = "log Invalid startBit or bitCount values.";
    const QString tooLarge = "log Value is too large for the specified bitCount.";
    QTest::newRow("get") << 0x12345678 << 4 << 8 << INT_MIN << 0x67 << "";
    QTest::newRow("get all") << -77 << 0 << 32 << INT_MIN << -77 << "";
    QTest::newRow("get top, no sign") << INT_MIN << 28 << 4 << INT_MIN << 8 << "";
    QTest::newRow("get bit 31") << -1 << 31 << 1 << INT_MIN << 1 << "";
    const int badFields[][2] = {{28, 5}, {32, 1}, {0, 0},  {0, -1},
                                {-1, 4}, {0, 33}, {31, 2}, {1, INT_MAX}};
    for (const auto &field : badFields) {
        QTest::addRow("get %d %d", field[0], field[1])
            << 5 << field[0] << field[1] << INT_MIN << -1 << invalid;
        QTest::addRow("set %d %d", field[0], field[1])
            << 5 << field[0] << field[1] << 0 << -1 << invalid;
    }
    QTest::newRow("set") << 0 << 16 << 4 << 3 << 0x30000 << "";
    QTest::newRow("set clears") << 0xFFFF << 4 << 4 << 1 << 0xFF1F << "";
    QTest::newRow("set largest") << 0 << 0 << 4 << 15 << 15 << "";
    QTest::newRow("set too large") << 0 << 0 << 4 << 16 << -1 << tooLarge;
    QTest::newRow("set all") << 5 << 0 << 32 << INT_MAX << INT_MAX << "";
    QTest::newRow("set negative is cut") << 0 << 4 << 4 << -2 << 0xE0 << "";
}

void TestDeviceDataShare::bitFields()
{
    QFETCH(int, data);
    QFETCH(int, startBit);
    QFETCH(int, bitCount);
    QFETCH(int, value);
    QFETCH(int, result);
    QFETCH(QString, logged);
    QCOMPARE(value == INT_MIN ? getBits(data, startBit, bitCount)
                              : setBits(data, startBit, bitCount, value),
             result);
    QCOMPARE(effects::take().join(','), logged);
}

QTEST_GUILESS_MAIN(TestDeviceDataShare)
#include "tst_devicedatashare.moc"
