// SPDX-License-Identifier: MIT

#include "app/pvmmain.h"

#include "board/serdescontrol.h"
#include "board/watchdogcontrol.h"
#include "can/cantest.h"
#include "common/runcommand.h"
#include "devicedata/devicedatashare.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"

#include <QDateTime>
#include <QDebug>
#include <QThread>

namespace {

enum PictureRequest { kToDA = 0, kToPVM = 1, kToPVMWhenInited = 100 };

constexpr int kQuitRvcDelayMs = 100;
constexpr int kLargestRequestAtOnce = 10; // above it the request waits for the renderer

constexpr int kSpeedLimit = 15;     // rising above it takes PVM away
constexpr int kStaySpeedLimit = 16; // up to it PVM may stay after a turn or reverse

// Steering words count from 0 to one side and down from 65535 to the other.
constexpr int kAngleLimit = 4230;
constexpr int kAngleMiddle = 32768;
constexpr int kAngleLimitOtherSide = 61311;
constexpr int kAngleWordEnd = 65535;
constexpr int kAngleWordsPer100Steps = 4864;
constexpr int kAngleStep = 33;
constexpr int kLargestAngle = 2838; // what either limit scales to

// Whole steps only: less than one is cut off.
int scaledAngle(int words)
{
    return words * 100 / kAngleWordsPer100Steps * kAngleStep;
}

bool isTurnLight(int lightStatus)
{
    return lightStatus == DeviceData::kLightLeft || lightStatus == DeviceData::kLightRight;
}

void logChange(const char *title, int &old, int value)
{
    qDebug() << title << old << ",change to:" << value;
    old = value;
}

} // namespace

PvmMain::PvmMain(QObject *parent)
    : QObject(parent),
      mTurnLightNames{QStringLiteral("[OFF]"), QStringLiteral("[LEFT]"), QStringLiteral("[RIGHT]"),
                      QStringLiteral("[HARZARD]")}
{
    qDebug() << "PvmMain"
             << " currentThreadId " << QThread::currentThreadId();
    DeviceDatasManager::self();
    mSerdesControl = new SerdesControl(nullptr);
    mSerdesControl->setAccKeepPowerOn(true);
    WatchDogControl::getInstance()->setWatchDogOnOff(true);

    mSharedMemoryControl = new SharedMemoryControl(true, nullptr);
    connect(DeviceDatasManager::self().data(), SIGNAL(deviceDataChangedSignal()),
            mSharedMemoryControl, SLOT(on_DeviceDataChanged()));
    connect(mSharedMemoryControl, SIGNAL(avmStopSignal(bool)), WatchDogControl::getInstance(),
            SLOT(on_avmstopslot(bool)));

    mCanTest = new CanTest(this);
    connect(mSerdesControl, SIGNAL(phySwitchTriggerSignal(int)), this,
            SLOT(onPhySwitchTriggerSlot(int)));
    connect(this, SIGNAL(switchVideoSignal(int)), mSerdesControl, SLOT(switchVideoSlot(int)));
    connect(mCanTest, SIGNAL(canTestDataChangedSignal(unsigned char)), this,
            SLOT(canTestDataChangedSlot(unsigned char)));
    connect(&delayQuitRvcTimer, SIGNAL(timeout()), this, SLOT(on_delayQuitRvcTimerOut()));
    connect(mSharedMemoryControl, SIGNAL(avmInitOkSignal()), this, SLOT(avmInitOkSlot()));
    connect(mSharedMemoryControl, SIGNAL(turnSwitchSignal()), this, SLOT(turnSwitchSlot()));
}

void PvmMain::run()
{}

void PvmMain::on_autoRunTimerOut()
{}

int PvmMain::newCalcRadarDistance(int value) const
{
    if (value < 0 || value > 11)
        return 0;
    if (value <= 2)
        return 1;
    return value <= 6 ? 2 : 3;
}

void PvmMain::canTestDataChangedSlot(unsigned char id)
{
    const DeviceData record = DeviceDatasManager::self()->deviceData();
    if (mCanTest != nullptr && !handleSignal(id, record))
        return;
    DeviceDatasManager::self()->handleSendDataChanged();
}

bool PvmMain::handleSignal(unsigned char id, const DeviceData &record)
{
    // What was logged last for the signals that nothing but the log looks at.
    static int s_old_network_status = -1;
    static int s_old_night_mode = -1;
    static int s_old_driving_direction = -1;
    static int s_old_lights = -1;
    static int s_old_hand_break = -1;
    static int s_old_door_status = -1;

    switch (id) {
    case CAN_SIG_NETWORK:
        logChange("==== CAN SIG NETWORK ", s_old_network_status, mCanTest->mNetworkStatus);
        break;
    case CAN_SIG_NIGHT:
        logChange("==== CAN SIG NIGHT ", s_old_night_mode, mCanTest->mNightMode);
        break;
    case CAN_SIG_DRIVING_DIRECTION:
        logChange("==== CAN SIG DRIVING_DIRECTION ", s_old_driving_direction,
                  mCanTest->mDrivingDirection);
        break;
    case CAN_SIG_SPEED:
        handleSpeed();
        break;
    case CAN_SIG_KEY_STATUS:
        handleKeyStatus(record);
        break;
    case CAN_SIG_LIGHT_STATUS:
        handleLightStatus(record);
        break;
    case CAN_SIG_ANGLE:
        handleAngle();
        break;
    case CAN_SIG_LIGHTS:
        logChange("==== CAN SIG LIGHTS ", s_old_lights, mCanTest->mLights);
        break;
    case CAN_SIG_GEAR:
        return handleGear(record);
    case CAN_SIG_HAND_BREAK:
        logChange("==== CAN SIG HAND_BREAK ", s_old_hand_break, mCanTest->mHandBreak);
        break;
    case CAN_SIG_DOOR:
        logChange("==== CAN SIG DOOR ", s_old_door_status, mCanTest->mDoorStatus);
        break;
    case CAN_SIG_RADAR:
        handleRadar();
        break;
    case CAN_SIG_HARZARD_SWITCH:
        handleSwitchClick(record);
        break;
    case CAN_SIG_DATETIME:
        handleTimeChanged();
        break;
    default:
        // 4 and 8 have no meaning and are not worth a line.
        if (id > CAN_SIG_DATETIME)
            qDebug() << "==== CAN SIG" << static_cast<int>(id) << ",change, ignore.";
        break;
    }
    return true;
}

void PvmMain::handleSpeed()
{
    mCurSpeed = mCanTest->mSpeed;
    const bool hasRisenAboveLimit = mLastSpeed <= kSpeedLimit && mCurSpeed > kSpeedLimit;
    if (hasRisenAboveLimit && mSerdesControl->getIsShowPVM() && mSpeedQuitEnabled) {
        toSwitchVideo(kToDA);
        qDebug() << "==== greater than LIMTT_SPEED ===="
                 << " curSpeed " << mCurSpeed << " lastSpeed " << mLastSpeed;
    }
    mLastSpeed = mCurSpeed;
    DeviceDatasManager::self()->setSpeed(mCurSpeed);
}

void PvmMain::handleKeyStatus(const DeviceData &record)
{
    static int s_old_key_status = -1;

    const int key = mCanTest->mKeyStatus;
    logChange("==== CAN SIG KEY_STATUS ", s_old_key_status, key);
    if (record.keyStatus == DeviceData::kIgnitionOn && key != DeviceData::kIgnitionOn)
        qDebug() << "==== IGN off ====";
    else if (record.keyStatus != DeviceData::kIgnitionOn && key == DeviceData::kIgnitionOn)
        qDebug() << "==== IGN On ====";
    DeviceDatasManager::self()->setKeyStaus(static_cast<char>(key));
}

void PvmMain::handleLightStatus(const DeviceData &record)
{
    static int s_old_light_status = -1;

    const int light = mCanTest->mLightStatus;
    qDebug() << "==== CAN SIG LIGHT_STATUS " << mTurnLightNames[s_old_light_status & 3]
             << ",change to:" << mTurnLightNames[light & 3];
    s_old_light_status = light;
    DeviceDatasManager::self()->setLightStatus(static_cast<char>(light));
    DeviceDatasManager::self()->handleSendDataChanged();
    // From left to right, or back, is neither an enter nor a quit.
    if (!isTurnLight(record.lightStatus))
        enterTurn("==== enter Trun ====");
    else
        quitTurn();
}

void PvmMain::enterTurn(const char *logLine)
{
    if (!isTurnLightsOn() || !isTurnSwitchEnable())
        return;
    mShowPVMBeforeSwitchTurnLight = mSerdesControl->getIsShowPVM();
    qDebug() << logLine;
    toSwitchVideo(kToPVM);
}

void PvmMain::quitTurn()
{
    if (isTurnLightsOn() || !isTurnSwitchEnable())
        return;
    qDebug() << "==== quit Trun ====";
    if (!mShowPVMBeforeSwitchTurnLight) {
        qDebug() << "==== quit Trun mShowPVMBeforeSwitchTurnLight ===="
                 << "false";
        toSwitchVideo(kToDA);
    } else if (isNeedOutFromPVM()) {
        qDebug() << "==== quit Trun NeedOutFromPVM ===="
                 << " speed " << mCurSpeed;
        toSwitchVideo(kToDA);
    }
}

void PvmMain::handleAngle()
{
    const int raw = mCanTest->mAngle;
    int angle = 0;
    // The clamped word is written back, so that the next frame with the same word out of range is
    // reported again.
    if (raw <= kAngleLimit) {
        angle = scaledAngle(raw);
    } else if (raw <= kAngleMiddle) {
        angle = kLargestAngle;
        mCanTest->mAngle = kAngleLimit;
    } else if (raw < kAngleLimitOtherSide) {
        angle = -kLargestAngle;
        mCanTest->mAngle = kAngleLimitOtherSide;
    } else {
        angle = -scaledAngle(kAngleWordEnd - raw);
    }
    DeviceDatasManager::self()->setAngle(angle);
}

bool PvmMain::handleGear(const DeviceData &record)
{
    static int s_old_gear_status = -1;

    const int gear = mCanTest->mGearStatus;
    const char recordGear = record.gear;
    logChange("==== CAN SIG GEAR ", s_old_gear_status, gear);
    if (recordGear == DeviceData::kGearR && gear == DeviceData::kGearR) {
        // Back in R within the delay: what is on screen stays.
    } else if (recordGear == DeviceData::kGearR && !mDelayQuitRvcDone) {
        if (!delayQuitRvcTimer.isActive()) {
            delayQuitRvcTimer.start(kQuitRvcDelayMs);
            qDebug() << "==== start delayQuitRvcTimer ====";
            // The record keeps R, so that the timer's repeat of this event finds it.
            return false;
        }
    } else if (recordGear == DeviceData::kGearR) {
        quitRvc(gear);
    } else if (gear == DeviceData::kGearR) {
        qDebug() << "==== enter RVC ====";
        toSwitchVideo(kToPVM);
    } else if (recordGear == DeviceData::kGearP) {
        // Out of P the picture stays.
    } else if (gear == DeviceData::kGearP) {
        qDebug() << "==== Enter P ====";
        toSwitchVideo(kToDA);
    } else if (recordGear == DeviceData::kNoGear &&
               (gear == DeviceData::kGearN || gear == DeviceData::kGearD)) {
        qDebug() << "==== init to DA ====";
        toSwitchVideo(kToDA);
    }
    DeviceDatasManager::self()->setGear(static_cast<char>(gear));
    return true;
}

void PvmMain::quitRvc(int gear)
{
    qDebug() << "==== quit RVC ====";
    mDelayQuitRvcDone = false;
    if (gear == DeviceData::kGearP) {
        qDebug() << "==== quit R Enter P ====";
        toSwitchVideo(kToDA);
    } else if (isNeedOutFromPVM()) {
        qDebug() << "==== quit R NeedOutFromPVM ===="
                 << " speed " << mCurSpeed;
        toSwitchVideo(kToDA);
    }
    if (gear == DeviceData::kGearD)
        mSpeedQuitEnabled = true;
}

void PvmMain::handleRadar()
{
    static int s_old_radar_status = -1;

    const quint64 radar = mCanTest->mRadarStatus;
    qDebug() << "==== RADAR" << QString::number(static_cast<quint32>(s_old_radar_status), 16)
             << ",change to:" << QString::number(radar, 16);
    s_old_radar_status = static_cast<int>(static_cast<quint32>(radar));
    DeviceDatasManager::self()->setRadar(s_old_radar_status);
}

void PvmMain::handleSwitchClick(const DeviceData &record)
{
    qDebug() << "==== SWITCH HARZARD shortly clicked";
    if (!isCanPVMSwitch() || mSerdesControl == nullptr)
        return;
    if (!mSerdesControl->getIsShowPVM()) {
        // Opened by hand while moving, PVM is meant: the speed does not take it away.
        if (record.gear == DeviceData::kGearD)
            mSpeedQuitEnabled = record.speed == 0;
        toSwitchVideo(kToPVM);
    } else {
        toSwitchVideo(kToDA);
        mSpeedQuitEnabled = true;
    }
}

void PvmMain::toSwitchVideo(int isToPVM)
{
    qDebug() << "==== " << __func__ << " isToPVM " << isToPVM;
    // Only leaving PVM can be refused.
    if (isToPVM <= kToDA && !isCanPVMSwitch()) {
        qDebug() << "==== " << __func__ << " isCanOutFromPVM "
                 << "false";
        qDebug() << "==== " << __func__ << " speed " << mCurSpeed << " gear"
                 << mCanTest->mGearStatus;
        return;
    }
    if (isToPVM > kLargestRequestAtOnce && !mSharedMemoryControl->getIsAVMInited()) {
        qDebug() << "==== " << __func__ << " Wait for AVM inited ";
        mWaitForAvmInited = true;
        return;
    }
    mWaitForAvmInited = false;
    Q_EMIT switchVideoSignal(isToPVM);
}

bool PvmMain::isCanPVMSwitch() const
{
    if (mCanTest == nullptr)
        return true;
    if (isTurnSwitchEnable() && isTurnLightsOn())
        return false;
    return mCanTest->mGearStatus != DeviceData::kGearR;
}

bool PvmMain::isNeedOutFromPVM() const
{
    return mCurSpeed > kStaySpeedLimit && mSpeedQuitEnabled;
}

bool PvmMain::isTurnLightsOn() const
{
    return isTurnLight(mCanTest->mLightStatus);
}

bool PvmMain::isTurnSwitchEnable() const
{
    return mSharedMemoryControl != nullptr && mSharedMemoryControl->getIsTurnSwitchEnable();
}

void PvmMain::avmInitOkSlot()
{
    qDebug() << "==== " << __func__;
    if (mWaitForAvmInited)
        toSwitchVideo(kToPVMWhenInited);
}

void PvmMain::turnSwitchSlot()
{
    qDebug() << "==== " << __func__;
    enterTurn("==== enter Turn update ====");
}

void PvmMain::on_delayQuitRvcTimerOut()
{
    qDebug() << __func__;
    delayQuitRvcTimer.stop();
    mDelayQuitRvcDone = true;
    canTestDataChangedSlot(CAN_SIG_GEAR);
}

void PvmMain::onPhySwitchTriggerSlot(int index)
{
    if (index == kShortClick) {
        canTestDataChangedSlot(CAN_SIG_HARZARD_SWITCH);
    } else if (index == kAccHeldHigh) {
        // Without keep-power the board may go at once: the file systems come first.
        runCommand("sync");
        mSerdesControl->setAccKeepPowerOn(false);
        runCommand("reboot");
    }
}

void PvmMain::handleTimeChanged()
{
    const QDateTime now = QDateTime::currentDateTime();
    const qint64 date = mCanTest->mCanDate;
    const qint64 time = mCanTest->mCanTime;
    if (date == -1 || time == -1)
        return;
    const int systemDate = now.date().year() * 10000 + now.date().month() * 100 + now.date().day();
    const int systemTime = now.time().hour() * 100 + now.time().minute();
    // The difference is one of HHMM numbers: across a full hour a minute counts as 41, and the
    // clock is set although the two are close.
    if (date == systemDate && qAbs(time - systemTime) <= 1) {
        qDebug() << "====   device DateTime  change to:" << date << " " << time;
        qDebug() << "====   DateTime right return "
                 << now.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        return;
    }
    testTimeOut();
    const QString command = QStringLiteral("date -s %1%2%3.00")
                                .arg(date)
                                .arg(time / 100, 2, 10, QLatin1Char('0'))
                                .arg(time % 100, 2, 10, QLatin1Char('0'));
    qDebug() << "#### System DateTime change to:" << date << " " << time << ",cmd:" << command;
    runCommand(command.toLatin1().constData());
}

void PvmMain::testTimeOut()
{
    const QDateTime now = QDateTime::currentDateTime();
    qDebug() << "====" << __func__ << " year " << now.date().year() << " month "
             << now.date().month() << " day " << now.date().day() << " hour " << now.time().hour()
             << " minute " << now.time().minute();
}
