// SPDX-License-Identifier: MIT

#include "board/watchdogcontrol.h"

#include <QDebug>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kFeedPeriodMs = 1000;
constexpr int kFeedsPerLogLine = 180;

long writeByte(int fd, char byte)
{
    return static_cast<long>(write(fd, &byte, 1));
}

} // namespace

WatchDogControl *WatchDogControl::instance = nullptr;

WatchDogControl::WatchDogControl(QObject *parent) : QObject(parent)
{
    connect(&mWDTTimer, SIGNAL(timeout()), this, SLOT(on_WDTTimerOut()));
}

WatchDogControl *WatchDogControl::getInstance()
{
    if (instance == nullptr)
        instance = new WatchDogControl(nullptr);
    return instance;
}

void WatchDogControl::setWatchDogOnOff(bool isOn)
{
    if (isOn)
        openAndFeed();
    else
        disarmAndClose();
}

void WatchDogControl::openAndFeed()
{
    if (mWdtFd == -1)
        mWdtFd = open("/dev/watchdog", O_WRONLY);
    if (mWdtFd == -1) {
        qDebug() << "ERR: open(/dev/watchdog) failed.";
        mWDTTimer.stop();
        return;
    }
    // A script that outlives this process must not keep the device open: the next controller could
    // not arm it.
    fcntl(mWdtFd, F_SETFD, FD_CLOEXEC);
    mIsIntWdgOn = true;
    mWDTTimer.start(kFeedPeriodMs);
    mFeedCount = 0;
    qDebug() << "setWatchDogOnOff"
             << "true";
}

void WatchDogControl::disarmAndClose()
{
    mWDTTimer.stop();
    if (mWdtFd == -1)
        return;
    // The magic close: the driver disarms only when 'V' was the last byte before it.
    const long ret = writeByte(mWdtFd, 'V');
    close(mWdtFd);
    mIsIntWdgOn = false;
    mWdtFd = -1;
    qDebug() << "setWatchDogOnOff"
             << "ret" << ret << " isOn "
             << "false";
}

bool WatchDogControl::getIsIntWdgOn() const
{
    return mIsIntWdgOn;
}

void WatchDogControl::setWdgFeedOnOff(bool isOn)
{
    mIsWdgFeedOn = isOn;
}

void WatchDogControl::on_WDTTimerOut()
{
    if (!mIsIntWdgOn || !mIsWdgFeedOn || !mIsAvmRunning || mWdtFd == -1)
        return;
    const long ret = writeByte(mWdtFd, 'A');
    if (mFeedCount % kFeedsPerLogLine == 0) {
        qDebug() << "=== feed wdt === " << ret;
        mFeedCount = 1;
    } else {
        ++mFeedCount;
    }
}

void WatchDogControl::on_avmstopslot(bool stop)
{
    mIsAvmRunning = !stop;
    if (stop)
        qDebug() << "=== avm stop === ";
}
