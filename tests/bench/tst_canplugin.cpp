#include "bench/board/busframe.h"

#include <QCanBusDevice>
#include <QCanBusFactory>
#include <QDir>
#include <QPluginLoader>
#include <QtTest>

#include <linux/can.h>
#include <linux/can/error.h>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using Filter = QCanBusDevice::Filter;
using Filters = QList<Filter>;
using Frame = QCanBusFrame;

/// The CAN plugin against a bus made here. Needs a /run of its own.
class TestCanPlugin : public QObject
{
    Q_OBJECT

    QPluginLoader mLoader{QStringLiteral(CAN_PLUGIN)};
    std::unique_ptr<QCanBusDevice> mDevice;
    int mBus = -1;
    quint64 mTaken = 0;

    void openBus()
    {
        const sockaddr_un address{AF_UNIX, "/run/pvm-bench/can/can0"};
        unlink(address.sun_path);
        const int server = socket(AF_UNIX, SOCK_SEQPACKET, 0);
        QCOMPARE(bind(server, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        QCOMPARE(listen(server, 1), 0);
        mBus = mDevice->connectDevice() ? accept(server, nullptr, nullptr) : -1;
        QCOMPARE(mDevice->state(), QCanBusDevice::ConnectedState);
        close(server);
    }

    void closeBus()
    {
        if (mBus >= 0)
            close(mBus);
        mBus = -1;
    }

    void send(uint32_t id, qint64 stampUs = 0)
    {
        const BusFrame frame{stampUs, id, 3, {1, 2, 3}};
        QCOMPARE(::send(mBus, &frame, sizeof frame, MSG_NOSIGNAL), ssize_t(sizeof frame));
    }

    quint64 taken()
    {
        while (recv(mBus, &mTaken, sizeof mTaken, MSG_DONTWAIT) > 0) {
        }
        return mTaken;
    }

    void checkFilters(bool isOpen)
    {
        QFETCH(Filters, raw);
        QFETCH(int, classes);
        if (isOpen)
            openBus();
        mDevice->setConfigurationParameter(QCanBusDevice::RawFilterKey, QVariant::fromValue(raw));
        mDevice->setConfigurationParameter(QCanBusDevice::ErrorFilterKey,
                                           QVariant::fromValue(Frame::FrameErrors(classes)));
        if (!isOpen)
            openBus();
        const QByteArray names = "sExrRbc";
        qint64 stamp = 0;
        for (uint32_t id : {0x123U, 0x123U | CAN_EFF_FLAG, 0x124U, 0x123U | CAN_RTR_FLAG,
                            0x123U | CAN_RTR_FLAG | CAN_EFF_FLAG, CAN_ERR_FLAG | CAN_ERR_BUSOFF,
                            CAN_ERR_FLAG | CAN_ERR_CRTL})
            send(id, stamp++);
        QTRY_COMPARE(taken(), quint64(names.size())); // the filtered ones too
        QString passed;
        while (mDevice->framesAvailable() > 0)
            passed += QLatin1Char(names[int(mDevice->readFrame().timeStamp().microSeconds())]);
        QTEST(passed, "passing");
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(QDir().mkpath(QStringLiteral("/run/pvm-bench/can"))); }

    void init()
    {
        const auto *factory = qobject_cast<QCanBusFactoryV2 *>(mLoader.instance());
        QVERIFY(factory != nullptr);
        mDevice.reset(factory->createDevice(QStringLiteral("can0"), nullptr));
        mTaken = 0;
    }

    void cleanup() { closeBus(); }

    void refusesAnInterfaceThatIsNotThere()
    {
        unlink("/run/pvm-bench/can/can0");
        QVERIFY(!mDevice->connectDevice());
        QCOMPARE(mDevice->state(), QCanBusDevice::UnconnectedState);
        QCOMPARE(mDevice->error(), QCanBusDevice::ConnectionError);
        QCOMPARE(mDevice->errorString(), QStringLiteral("No such device"));
    }

    void filters_data()
    {
        constexpr auto base = Filter::MatchBaseFormat, both = Filter::MatchBaseAndExtendedFormat;
        constexpr auto extended = Filter::MatchExtendedFormat;
        constexpr auto data = Frame::DataFrame;
        QTest::addColumn<Filters>("raw");
        QTest::addColumn<int>("classes");
        QTest::addColumn<QString>("passing");
        const auto row = [](const char *name, const Filters &raw, int classes,
                            const char *passing) {
            QTest::newRow(name) << raw << classes << passing;
        };
        row("empty list", {}, 0, "sExrR");
        row("data", {{0, 0, data, both}}, Frame::AnyError, "sExbc");
        row("data, base", {{0, 0, data, base}}, 0, "sx");
        row("data, extended", {{0, 0, data, extended}}, 0, "E");
        row("remote", {{0, 0, Frame::RemoteRequestFrame, both}}, 0, "rR");
        row("any type", {{0x123, 0x7FF, Frame::InvalidFrame, both}}, 0, "sErR");
        row("base has 11 bits", {{0x800123, 0x1FFFFFFF, data, base}}, 0, "s");
        row("either", {{0x124, 0x7FF, data, both}, {0x123, 0x7FF, data, extended}}, 0, "Ex");
        row("error class", {{0, 0, data, base}}, CAN_ERR_BUSOFF, "sxb");
        row("error filter", {{0, CAN_ERR_CRTL, Frame::ErrorFrame, both}}, 0, "c");
        row("wrong type: no change", {{0, 0, Frame::UnknownFrame, base}}, 0, "sExrR");
    }

    void filters()
    {
        checkFilters(true); // an open device takes new filters,
        cleanup();
        init();
        checkFilters(false); // a closed one keeps them until it opens
    }

    void keepsStampTypeAndPayload()
    {
        openBus(); // without any key set: everything passes, error frames too
        send(0x1004501 | CAN_EFF_FLAG, 1699999999123456);
        send(0x7FF | CAN_RTR_FLAG);
        send(CAN_ERR_FLAG | CAN_ERR_BUSOFF | CAN_ERR_CRTL);
        QTRY_COMPARE(mDevice->framesAvailable(), 3);
        const Frame data = mDevice->readFrame(), remote = mDevice->readFrame();
        const Frame error = mDevice->readFrame();
        QCOMPARE(data.toString(), QStringLiteral("01004501   [3]  01 02 03"));
        QCOMPARE(data.timeStamp().seconds(), 1699999999);
        QCOMPARE(data.timeStamp().microSeconds(), 123456);
        QCOMPARE(remote.frameType(), Frame::RemoteRequestFrame);
        QVERIFY(!remote.hasExtendedFrameFormat());
        QCOMPARE(int(error.error()), CAN_ERR_BUSOFF | CAN_ERR_CRTL);
        QVERIFY(!mDevice->interpretErrorFrame(error).isEmpty());
    }

    void staysConnectedAndListenOnly()
    {
        openBus();
        QVERIFY(!mDevice->writeFrame(Frame(0x1, "x")));
        QCOMPARE(mDevice->error(), QCanBusDevice::WriteError);
        send(0x1);
        QTRY_COMPARE(taken(), 1U);
        closeBus();
        QCoreApplication::processEvents();
        QCOMPARE(mDevice->state(), QCanBusDevice::ConnectedState);
        QCOMPARE(mDevice->framesAvailable(), 1);
        mDevice->disconnectDevice();
        QCOMPARE(mDevice->state(), QCanBusDevice::UnconnectedState);
    }
};

QTEST_GUILESS_MAIN(TestCanPlugin)
#include "tst_canplugin.moc"
