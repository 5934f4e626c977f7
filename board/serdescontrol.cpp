// SPDX-License-Identifier: MIT

#include "board/serdescontrol.h"

#include "board/GPIOSet.h"
#include "common/runcommand.h"

#include <QCoreApplication>
#include <QDebug>
#include <QStringList>
#include <QTime>
#include <QTimer>

#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int kTickMs = 10;
constexpr int kDebounceReadings = 6; // differing readings before the one that is accepted
constexpr int kLongPressTicks = 299;
constexpr int kBacklightDelayTicks = 40;
constexpr int kDeserPwdnTicks = 20;
constexpr int kSerPwdnTicks = 30;
constexpr int kSerResetWaitTicks = 300;
constexpr int kSwitchScriptDelayTicks = 20;
constexpr unsigned int kAccPeriodTicks = 1000;

constexpr unsigned long kBacklightRequest = 0x102;

// The one debounce rule. Every differing reading counts, accepted or not, and only one equal to the
// accepted level clears the count: a line that flips back on the very next tick is accepted at
// once.
template <typename Counter> bool isChangeAccepted(bool differs, Counter &count)
{
    if (!differs) {
        count = 0;
        return false;
    }
    return count++ >= kDebounceReadings;
}

// A line that cannot be read counts as unchanged.
int readLock(unsigned int gpio, int accepted)
{
    bool level = false;
    return gpio_get_value(gpio, &level) == 0 ? static_cast<int>(level) : accepted;
}

} // namespace

SerdesControl::SerdesControl(QObject *parent) : QObject(parent), mPer10msTimer(new QTimer)
{
    qDebug() << "T840 Serdes Control init start(20250331)!";
    connect(mPer10msTimer, SIGNAL(timeout()), this, SLOT(onPer10ms()));
    mPer10msTimer->start(kTickMs);
}

SerdesControl::~SerdesControl()
{
    delete mPer10msTimer;
    qDebug() << "SerdesControl  finish!";
}

bool SerdesControl::getIsShowPVM() const
{
    return mIsShowPVM;
}

void SerdesControl::onPer10ms()
{
    watchSwitch();
    watchDeserLock();
    countPowerDowns();
    if (!watchSerLock())
        waitAfterSerReset();
    countSwitchScript();
    watchAcc();
    endTick();
}

void SerdesControl::watchSwitch()
{
    bool level = mSwitchLevel;
    getSwitchStatus(&level);
    if (isChangeAccepted(level != mSwitchLevel, mSwitchDebounce)) {
        mSwitchLevel = level;
        if (level)
            mSwitchHoldTicks = kLongPressTicks;
        else
            giveClickIfDue();
        return;
    }
    if (mSwitchLevel)
        countLongPress();
    else
        giveClickIfDue();
}

void SerdesControl::giveClickIfDue()
{
    // A long press has used its countdown up, so its release is no click.
    if (mSwitchHoldTicks == 0)
        return;
    Q_EMIT phySwitchTriggerSignal(kShortClick);
    mSwitchHoldTicks = 0;
}

void SerdesControl::countLongPress()
{
    if (mSwitchHoldTicks == 0 || --mSwitchHoldTicks != 0)
        return;
    if (!mSerPwdnActive)
        Reset_SerPwdn(true);
    if (!mDeserPwdnActive)
        Reset_DeserPwdn(true);
}

void SerdesControl::watchDeserLock()
{
    const int level = readLock(GPIO_DESER_LOCK, mDeserLock);
    if (!isChangeAccepted(level != mDeserLock, mDeserLockDebounce))
        return;
    mDeserLock = level;
    qDebug() << "DESER LOCK Status(HU exist): " << level;
}

// Also counts on the tick that started a power-down: the releases fall 19 and 29 ticks after it.
void SerdesControl::countPowerDowns()
{
    if (mDeserPwdnTicks != 0 && --mDeserPwdnTicks == 0)
        Reset_DeserPwdn(false);
    if (mSerPwdnTicks != 0 && --mSerPwdnTicks == 0) {
        Reset_SerPwdn(false);
        mSerResetPending = true;
        mSerResetWait = kSerResetWaitTicks;
    }
}

bool SerdesControl::watchSerLock()
{
    const int level = readLock(GPIO_SER_LOCK, mSerLock);
    if (!isChangeAccepted(level != mSerLock, mSerLockDebounce))
        return false;
    qDebug() << "SER LOCK Status(SCREEN exist): " << level;
    // The first reading after start, from -1, is no edge.
    const bool hasRisen = mSerLock == 0 && level != 0;
    mSerLock = level;
    if (!hasRisen)
        return false;
    mSwitchScriptDelay = kSwitchScriptDelayTicks;
    if (mSerResetPending) {
        mSerResetPending = false;
        mSerResetWait = 0;
    }
    return true;
}

// A lock that never dropped has no rising edge: the script then runs after a fixed wait.
void SerdesControl::waitAfterSerReset()
{
    if (!mSerResetPending || mSerLock == 0)
        return;
    if (mSerResetWait != 0 && --mSerResetWait != 0)
        return;
    mSwitchScriptDelay = kSwitchScriptDelayTicks;
    mSerResetPending = false;
    qDebug() << "SER RESET AND LOCK HIGH. ";
}

void SerdesControl::countSwitchScript()
{
    if (mSwitchScriptDelay == 0 || --mSwitchScriptDelay != 0)
        return;
    if (mIsShowPVM)
        handle_gmsl_switchto_PVM();
    else
        handle_gmsl_switchto_DA();
}

void SerdesControl::watchAcc()
{
    bool level = mAccLevel;
    getAccStatus(&level);
    if (isChangeAccepted(level != mAccLevel, mAccDebounce)) {
        Q_EMIT phySwitchTriggerSignal(kAccChanged);
        mAccLevel = level;
        qDebug() << "GPIO ACC: " << (level ? "true" : "false");
    }
    if (!mAccLevel) {
        mAccHighTicks = 0;
    } else if (++mAccHighTicks >= kAccPeriodTicks) {
        Q_EMIT phySwitchTriggerSignal(kAccHeldHigh);
        mAccHighTicks = 0;
    }
}

void SerdesControl::endTick()
{
    handle_gmsl_switch_openbacklight();
    // From the end of the tick: a tick that ran a script must not be followed by one at once.
    mPer10msTimer->start(kTickMs);
}

void SerdesControl::switchVideoSlot(int video)
{
    if (video != 0 && !mIsShowPVM) {
        handle_gmsl_switchto_PVM();
        mIsShowPVM = true;
    } else if (video == 0 && mIsShowPVM) {
        handle_gmsl_switchto_DA();
        mIsShowPVM = false;
    }
}

void SerdesControl::handle_gmsl_switchto_PVM()
{
    runSwitchScript("/etc/set_t840gmsl_0.sh 1");
}

void SerdesControl::handle_gmsl_switchto_DA()
{
    runSwitchScript("/etc/set_t840gmsl_0.sh 0");
}

void SerdesControl::runSwitchScript(const char *command)
{
    runCommand(command);
    mOpenBacklightTicks = kBacklightDelayTicks;
}

void SerdesControl::handle_gmsl_switch_openbacklight()
{
    if (mOpenBacklightTicks == 0)
        return;
    if (--mOpenBacklightTicks == 0) {
        runCommand("/etc/set_t840gmsl_1.sh");
        qDebug() << "open backlight.";
    }
}

void SerdesControl::Reset_DeserPwdn(bool reset)
{
    gpio_set_value(GPIO_DESER_PWDN, !reset);
    mDeserPwdnActive = reset;
    if (reset) {
        qDebug() << "RESET DESER PWDN: LOW.";
        mDeserPwdnTicks = kDeserPwdnTicks;
    } else {
        qDebug() << "RESET DESER PWDN: HIGH.";
    }
}

void SerdesControl::Reset_SerPwdn(bool reset)
{
    gpio_set_value(GPIO_SER_PWDN, !reset);
    mSerPwdnActive = reset;
    if (reset) {
        qDebug() << "RESET SER PWDN: LOW.";
        mSerPwdnTicks = kSerPwdnTicks;
    } else {
        qDebug() << "RESET SER PWDN: HIGH.";
    }
}

void SerdesControl::setAccKeepPowerOn(bool on)
{
    gpio_set_value(GPIO_ACC_KEEP_POWER, on);
}

int SerdesControl::getSwitchStatus(bool *level)
{
    gpio_get_value(GPIO_PHY_SWITCH, level);
    return 0;
}

int SerdesControl::getAccStatus(bool *level)
{
    gpio_get_value(GPIO_ACC_DET, level);
    return 0;
}

void SerdesControl::setLcdBacklight(unsigned int level)
{
    const int fd = open("/dev/disp", O_RDWR);
    if (fd == -1) {
        puts("open display device fail!");
        fflush(stdout);
        return;
    }
    // Words that the driver may read behind the level are 0.
    uint64_t arguments[4] = {0, level, 0, 0};
    ioctl(fd, kBacklightRequest, arguments);
    close(fd);
}

void SerdesControl::switchGMSLLink(bool pvm)
{
    gpio_set_value(GPIO_GMSL_LINK_SEL, pvm);
    if (pvm)
        qDebug() << "PVM Insert in GMSL Link";
    else
        qDebug() << "GMSL Link direct from HU";
}

void SerdesControl::switchVideoSource(bool serdes)
{
    gpio_set_value(GPIO_VIDEO_SRC_SEL, serdes);
    if (serdes)
        qDebug() << "use SERDES video";
    else
        qDebug() << "use HEADUNIT video";
    mIsShowPVM = serdes;
}

void SerdesControl::Delay_MSec(unsigned int ms)
{
    // A time of day: a deadline past midnight lies in the past and ends the wait at once.
    const QTime deadline = QTime::currentTime().addMSecs(static_cast<int>(ms));
    while (QTime::currentTime() < deadline)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
}

QString SerdesControl::exec_shell(const char *command)
{
    FILE *stream = popen(command, "r");
    if (stream == nullptr)
        return QStringLiteral("error");
    QString output;
    char piece[128];
    while (fgets(piece, sizeof piece, stream) != nullptr)
        output += QString::fromUtf8(piece);
    output.chop(1); // the newline of the last line
    pclose(stream);
    return output;
}

void SerdesControl::Read_iic_from_ser(unsigned char regHigh, unsigned char regLow,
                                      unsigned char *out, unsigned char length)
{
    const QString command = QStringLiteral("i2ctransfer -y -f 1 w2@0x20 0x%1 0x%2 r%3")
                                .arg(regHigh, 2, 16, QLatin1Char('0'))
                                .arg(regLow, 2, 16, QLatin1Char('0'))
                                .arg(length);
    const QStringList parts =
        exec_shell(command.toLatin1().constData()).split(QLatin1Char(' '), Qt::KeepEmptyParts);
    if (parts.size() != length) {
        qDebug() << "Read_iic_from_ser error";
        return;
    }
    for (int i = 0; i < length; ++i)
        out[i] = static_cast<unsigned char>(parts[i].toInt(nullptr, 16));
}

void SerdesControl::slot_mtimer_timeout()
{
    static unsigned char count = 0;
    static unsigned char value_710 = 0;
    static unsigned char value_770 = 0;
    static unsigned char value_711 = 0;
    static unsigned char value_771 = 0;

    switch (++count) {
    case 1:
        pollRegister(0x07, 0x10, value_710, "Read_iic_from_ser 0x710:");
        break;
    case 2:
        pollRegister(0x07, 0x70, value_770, "Read_iic_from_ser 0x770:");
        break;
    case 3:
        pollRegister(0x07, 0x11, value_711, "Read_iic_from_ser 0x711:");
        break;
    default:
        count = 0;
        pollRegister(0x07, 0x71, value_771, "Read_iic_from_ser 0x771:");
        break;
    }
}

void SerdesControl::pollRegister(unsigned char regHigh, unsigned char regLow, unsigned char &last,
                                 const char *text)
{
    unsigned char value = 0; // also what an unreadable register counts as
    Read_iic_from_ser(regHigh, regLow, &value, 1);
    if (value == last)
        return;
    last = value;
    qDebug() << text << QString::number(value, 16);
}
