// SPDX-License-Identifier: MIT

#include "board/simutouch.h"

#include <QDebug>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

static_assert(sizeof(uinput_user_dev) == 1116, "the kernel takes the record whole");
static_assert(sizeof(input_event) == 24, "64-bit time stamps");

namespace {

struct Capability
{
    unsigned long request;
    unsigned long argument;
    const char *failure; // the "%s" is part of the text; the kernel's words come as a second item
};

// EV_REL is announced without a relative axis.
const Capability kCapabilities[] = {
    {UI_SET_EVBIT, EV_KEY, "***** IOCTL ERR: UI_SET_EVBIT, EV_KEY, err: %s"},
    {UI_SET_KEYBIT, BTN_TOUCH, "***** IOCTL ERR: UI_SET_KEYBIT, BTN_TOUCH, err: %s"},
    {UI_SET_EVBIT, EV_REL, "***** IOCTL ERR: UI_SET_EVBIT, EV_REL, err: %s"},
    {UI_SET_EVBIT, EV_ABS, "***** IOCTL ERR: UI_SET_EVBIT, EV_ABS, err: %s"},
    {UI_SET_ABSBIT, ABS_MT_POSITION_X,
     "***** IOCTL ERR: UI_SET_ABSBIT, ABS_MT_POSITION_X, err: %s"},
    {UI_SET_ABSBIT, ABS_MT_POSITION_Y,
     "***** IOCTL ERR: UI_SET_ABSBIT, ABS_MT_POSITION_Y, err: %s"},
    {UI_SET_ABSBIT, ABS_MT_TRACKING_ID,
     "***** IOCTL ERR: UI_SET_ABSBIT, ABS_MT_TRACKING_ID, err: %s"},
    {UI_SET_PROPBIT, INPUT_PROP_DIRECT,
     "***** IOCTL ERR: UI_SET_PROPBIT, INPUT_PROP_DIRECT, err: %s"},
};

constexpr char kName[] = "SimuTouchScreen";
constexpr int kAbsMaxX = 1920;
constexpr int kAbsMaxY = 720;
constexpr int kAbsMaxTrackingId = 65535;

// The kernel's words for the last failure; logging itself may change them.
void logFailure(const char *text)
{
    const int error = errno;
    qDebug() << text << strerror(error);
}

} // namespace

simutouch::simutouch(QObject *parent) : QObject(parent)
{
    mUinputFd = open("/dev/uinput", O_WRONLY | O_NONBLOCK);
    if (mUinputFd < 0) {
        qDebug() << "ERROR: Open uinput device fail.";
        return;
    }
    logVersion();
    setCapabilities();
    writeDescription();
    createDevice();
}

simutouch::~simutouch()
{
    if (mUinputFd < 0)
        return;
    ioctl(mUinputFd, UI_DEV_DESTROY);
    close(mUinputFd);
}

void simutouch::logVersion()
{
    unsigned int version = 0;
    if (ioctl(mUinputFd, UI_GET_VERSION, &version) == 0)
        qDebug() << "UInput Version is:" << version;
    else
        qDebug() << "UInput Version get FAIL.";
}

void simutouch::setCapabilities()
{
    for (const Capability &capability : kCapabilities) {
        if (ioctl(mUinputFd, capability.request, capability.argument) != 0)
            logFailure(capability.failure);
    }
}

void simutouch::writeDescription()
{
    memset(&mUinputDev, 0, sizeof mUinputDev);
    strncpy(mUinputDev.name, kName, UINPUT_MAX_NAME_SIZE);
    mUinputDev.id.bustype = BUS_USB;
    mUinputDev.id.version = 1;
    mUinputDev.absmax[ABS_MT_POSITION_X] = kAbsMaxX;
    mUinputDev.absmax[ABS_MT_POSITION_Y] = kAbsMaxY;
    mUinputDev.absmax[ABS_MT_TRACKING_ID] = kAbsMaxTrackingId;
    if (write(mUinputFd, &mUinputDev, sizeof mUinputDev) == -1)
        logFailure("***** IOCTL ERR: uinp charateristc write ERR, err: %s");
}

void simutouch::createDevice()
{
    if (ioctl(mUinputFd, UI_DEV_CREATE) != -1)
        qDebug() << "Create simutouch device OK, fd=" << mUinputFd;
    else
        logFailure("***** ERR: Simutouch ioctl FAIL, err: %s");
}

void simutouch::touchemit(int type, int code, int value)
{
    input_event event;
    memset(&event, 0, sizeof event);
    event.type = static_cast<__u16>(type);
    event.code = static_cast<__u16>(code);
    event.value = value;
    if (write(mUinputFd, &event, sizeof event) < 0)
        qDebug() << "Write SimuTouch Data Fail.";
}
