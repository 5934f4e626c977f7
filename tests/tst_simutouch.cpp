// SPDX-License-Identifier: MIT

#include "board/simutouch.h"
#include "tests/seam/effects.h"

#include <QtTest>

#include <cerrno>
#include <cstring>

class TestSimuTouch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { effects::reset(); }
    void missingDevice();
    void setUp_data();
    void setUp();
};

struct Request
{
    unsigned long request;
    long argument; ///< -1: none, or a pointer
    QString failure;
};

static const QString kInvalid = " " + QString::fromLocal8Bit(strerror(EINVAL));

// In the order of the set-up; "write" stands between the capabilities and the creation.
static const QList<Request> kRequests{
    {UI_GET_VERSION, -1, "UInput Version get FAIL."},
    {UI_SET_EVBIT, 1, "***** IOCTL ERR: UI_SET_EVBIT, EV_KEY, err: %s" + kInvalid},
    {UI_SET_KEYBIT, 330, "***** IOCTL ERR: UI_SET_KEYBIT, BTN_TOUCH, err: %s" + kInvalid},
    {UI_SET_EVBIT, 2, "***** IOCTL ERR: UI_SET_EVBIT, EV_REL, err: %s" + kInvalid},
    {UI_SET_EVBIT, 3, "***** IOCTL ERR: UI_SET_EVBIT, EV_ABS, err: %s" + kInvalid},
    {UI_SET_ABSBIT, 0x35, "***** IOCTL ERR: UI_SET_ABSBIT, ABS_MT_POSITION_X, err: %s" + kInvalid},
    {UI_SET_ABSBIT, 0x36, "***** IOCTL ERR: UI_SET_ABSBIT, ABS_MT_POSITION_Y, err: %s" + kInvalid},
    {UI_SET_ABSBIT, 0x39, "***** IOCTL ERR: UI_SET_ABSBIT, ABS_MT_TRACKING_ID, err: %s" + kInvalid},
    {UI_SET_PROPBIT, 1, "***** IOCTL ERR: UI_SET_PROPBIT, INPUT_PROP_DIRECT, err: %s" + kInvalid},
    {UI_DEV_CREATE, -1, "***** ERR: Simutouch ioctl FAIL, err: %s" + kInvalid},
};

// The description as the kernel's documentation lays it out: name, identity, then four arrays of
// 64 axes, the first of them the maxima.
static QByteArray description()
{
    QByteArray bytes(1116, 0);
    const auto put = [&bytes](int offset, const QByteArray &value) {
        bytes.replace(offset, value.size(), value);
    };
    put(0, "SimuTouchScreen");
    put(80, QByteArray::fromHex("0300000000000100"));
    put(92 + 4 * 0x35, QByteArray::fromHex("80070000"));
    put(92 + 4 * 0x36, QByteArray::fromHex("d0020000"));
    put(92 + 4 * 0x39, QByteArray::fromHex("ffff0000"));
    return bytes;
}

void TestSimuTouch::missingDevice()
{
    {
        simutouch touch(nullptr);
        QCOMPARE(effects::take(), (QStringList{"open /dev/uinput O_WRONLY|O_NONBLOCK failed",
                                               "log ERROR: Open uinput device fail."}));
        touch.touchemit(3, 0x35, 100);
        QCOMPARE(effects::take(), QStringList{"log Write SimuTouch Data Fail."});
    }
    QCOMPARE(effects::take(), QStringList());
}

void TestSimuTouch::setUp_data()
{
    QTest::addColumn<int>("failing"); // index in kRequests, -1 the write, -2 nothing, -3 everything
    for (int failing = -3; failing < kRequests.size(); ++failing)
        QTest::addRow("%d", failing) << failing;
}

void TestSimuTouch::setUp()
{
    QFETCH(int, failing);
    effects::setFile("/dev/uinput", "");
    int next = 0;
    QList<QByteArray> written;
    const auto fails = [failing](int step) { return failing == step || failing == -3; };
    effects::onIoctl = [&](unsigned long request, void *argument) {
        const Request expected = kRequests.value(next, {UI_DEV_DESTROY, -1, {}});
        if (request != expected.request ||
            (expected.argument >= 0 && reinterpret_cast<intptr_t>(argument) != expected.argument))
            effects::add(QStringLiteral("log not request %1").arg(next));
        if (request == UI_GET_VERSION)
            *static_cast<unsigned int *>(argument) = 5;
        // Anything but 0 is a failure, save for the creation, where only -1 is.
        const bool isCreation = request == UI_DEV_CREATE;
        return fails(next++) ? (isCreation ? -1 : 1) : (isCreation ? 7 : 0);
    };
    effects::onWrite = [&](const QByteArray &bytes) {
        written << bytes;
        return !fails(-1);
    };
    auto touch = std::make_unique<simutouch>(nullptr);

    QStringList expected;
    for (int step = 0; step < kRequests.size(); ++step) {
        if (step == kRequests.size() - 1 && fails(-1))
            expected << "log ***** IOCTL ERR: uinp charateristc write ERR, err: %s " +
                            QString::fromLocal8Bit(strerror(EIO));
        if (fails(step))
            expected << "log " + kRequests[step].failure;
        else if (step == 0)
            expected << "log UInput Version is: 5";
        else if (step == kRequests.size() - 1)
            expected << "log Create simutouch device OK, fd= *";
    }
    QStringList lines = effects::take();
    QCOMPARE(lines.filter("ioctl 0x").size(), kRequests.size());
    QCOMPARE(lines.filter(QRegularExpression("^log "))
                 .replaceInStrings(QRegularExpression("fd= \\d+"), "fd= *"),
             expected);
    QCOMPARE(written, QList<QByteArray>{description()});

    touch->touchemit(0x10003, 0x35, 0x12345678);
    QCOMPARE(written.last().toHex(), QByteArray(32, '0') + "0300350078563412");
    QCOMPARE(effects::take().filter("log "),
             fails(-1) ? QStringList{"log Write SimuTouch Data Fail."} : QStringList());
    touch.reset();
    QCOMPARE(effects::take(),
             (QStringList{QStringLiteral("ioctl 0x%1").arg(UI_DEV_DESTROY, 0, 16), "close"}));
}

QTEST_GUILESS_MAIN(TestSimuTouch)
#include "tst_simutouch.moc"
