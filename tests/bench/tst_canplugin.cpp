// SPDX-License-Identifier: MIT

#include "bench/board/busframe.h"

#include <QCanBusDevice>
#include <QCanBusFactory>
#include <QDir>
#include <QPluginLoader>
#include <QtTest>

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/sockios.h>
#include <memory>
#include <sys/ioctl.h>
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

    /// How many of the frames sent so far still wait for the device.
    bool isAllTaken() const
    {
        int bytes = -1;
        return ioctl(mBus, SIOCOUTQ, &bytes) == 0 && bytes == 0;
    }

    /// The letters of those of a standard and an extended data frame, a remote and an error frame
    /// that the device lets pass.
    QString passing()
    {
        const QByteArray names = "sExb";
        qint64 stamp = 0;
        for (uint32_t id :
             {0x123U, 0x123U | CAN_EFF_FLAG, 0x123U | CAN_RTR_FLAG, CAN_ERR_FLAG | CAN_ERR_BUSOFF})
            send(id, stamp++);
        if (!QTest::qWaitFor([this] { return isAllTaken(); }))
            return QStringLiteral("not taken");
        QString passed;
        while (mDevice->framesAvailable() > 0)
            passed += QLatin1Char(names[int(mDevice->readFrame().timeStamp().microSeconds())]);
        return passed;
    }

    void setFilters(const Filters &raw, Frame::FrameErrors classes)
    {
        mDevice->setConfigurationParameter(QCanBusDevice::RawFilterKey, QVariant::fromValue(raw));
        mDevice->setConfigurationParameter(QCanBusDevice::ErrorFilterKey,
                                           QVariant::fromValue(classes));
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(QDir().mkpath(QStringLiteral("/run/pvm-bench/can"))); }

    void init()
    {
        const auto *factory = qobject_cast<CAN_FACTORY *>(mLoader.instance());
        QVERIFY(factory != nullptr);
        mDevice.reset(factory->createDevice(QStringLiteral("can0"), nullptr));
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

    void filtersAsTheControllerAsks()
    {
        const Filters dataFrames{{0, 0, Frame::DataFrame, Filter::MatchBaseAndExtendedFormat}};
        for (bool isSetBefore : {true, false}) { // a closed device keeps them until it opens
            init();
            if (isSetBefore)
                setFilters(dataFrames, Frame::AnyError);
            openBus();
            if (!isSetBefore)
                setFilters(dataFrames, Frame::AnyError);
            QCOMPARE(passing(), QStringLiteral("sEb"));
            setFilters({}, Frame::NoError);
            QCOMPARE(passing(), QStringLiteral("sEx"));
            closeBus();
        }
    }

    void refusesFiltersThatItDoesNotKnow()
    {
        openBus();
        constexpr auto both = Filter::MatchBaseAndExtendedFormat;
        const Filters unknown[] = {
            {{0, 0, Frame::DataFrame, Filter::MatchBaseFormat}},
            {{0x123, 0x7FF, Frame::DataFrame, both}},
            {{0, 0, Frame::RemoteRequestFrame, both}},
            {{0, 0, Frame::DataFrame, both}, {1, 1, Frame::DataFrame, both}}};
        for (const Filters &raw : unknown) {
            setFilters(raw, Frame::NoError);
            QCOMPARE(mDevice->error(), QCanBusDevice::ConfigurationError);
            mDevice->disconnectDevice();
            closeBus();
            init();
            openBus();
        }
        setFilters({}, Frame::BusOffError);
        QCOMPARE(mDevice->error(), QCanBusDevice::ConfigurationError);
        QCOMPARE(passing(), QStringLiteral("sExb")); // no change
    }

    void keepsStampTypeAndPayload()
    {
        openBus(); // without any key set: everything passes, error frames too
        send(0x1004501 | CAN_EFF_FLAG, 1699999999123456);
        send(0x7FF | CAN_RTR_FLAG);
        send(CAN_ERR_FLAG | CAN_ERR_BUSOFF | CAN_ERR_CRTL);
        QVERIFY(QTest::qWaitFor([this] { return mDevice->framesAvailable() == 3; }));
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
        QVERIFY(QTest::qWaitFor([this] { return isAllTaken(); }));
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
