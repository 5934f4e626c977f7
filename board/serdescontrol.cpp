#include "board/serdescontrol.h"

#include "board/GPIOSet.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTime>
#include <QTimer>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int kTickMs = 10;
constexpr int kBacklightDelayTicks = 40;
constexpr int kDeserPwdnTicks = 20;
constexpr int kSerPwdnTicks = 30;

constexpr unsigned long kBacklightRequest = 0x102;

void runScript(const char *command)
{
    const int status = system(command);
    Q_UNUSED(status)
}

} // namespace

SerdesControl::SerdesControl(QObject *parent)
    : QObject(parent),
      mPer10msTimer(new QTimer),
      mIsShowPVM(false),
      mOpenBacklightTicks(0),
      mDeserPwdnActive(false),
      mDeserPwdnTicks(0),
      mSerPwdnActive(false),
      mSerPwdnTicks(0)
{
    qDebug() << "T840 Serdes Control init start(20250331)!";
    mIsShowPVM = true;
    connect(mPer10msTimer.get(), SIGNAL(timeout()), this, SLOT(onPer10ms()));
    mPer10msTimer->start(kTickMs);
}

SerdesControl::~SerdesControl()
{
    qDebug() << "SerdesControl  finish!";
}

bool SerdesControl::getIsShowPVM() const
{
    return mIsShowPVM;
}

void SerdesControl::onPer10ms()
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
    runScript(command);
    mOpenBacklightTicks = kBacklightDelayTicks;
}

void SerdesControl::handle_gmsl_switch_openbacklight()
{
    if (mOpenBacklightTicks == 0)
        return;
    if (--mOpenBacklightTicks == 0) {
        runScript("/etc/set_t840gmsl_1.sh");
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
