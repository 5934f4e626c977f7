// SPDX-License-Identifier: MIT

#include "tests/seam/vehicle.h"

#include "can/caninterface.h"
#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakelink.h"

using stories::Args;

namespace {

void tellRecord()
{
    const DeviceData record = DeviceDatasManager::self()->deviceData();
    effects::add(QStringLiteral("gear %1 light %2 key %3 speed %4 angle %5 radar %6")
                     .arg(static_cast<int>(record.gear))
                     .arg(static_cast<int>(record.lightStatus))
                     .arg(static_cast<int>(record.keyStatus))
                     .arg(record.speed)
                     .arg(record.angle)
                     .arg(static_cast<quint32>(record.radar), 0, 16));
}

} // namespace

// The name is the linker's.
static SerdesControl *gBoard = nullptr;
extern "C" void __real__ZN13SerdesControlC1EP7QObject(SerdesControl *, QObject *);
extern "C" void __wrap__ZN13SerdesControlC1EP7QObject(SerdesControl *board, QObject *parent)
{
    gBoard = board;
    __real__ZN13SerdesControlC1EP7QObject(board, parent);
}

Vehicle::Vehicle()
{
    controller = std::make_unique<PvmMain>(nullptr);
    board = gBoard;
    // The record is the process's own: as fresh, and announced.
    const auto manager = DeviceDatasManager::self();
    manager->blockSignals(true);
    manager->setSpeed(0);
    manager->setKeyStaus(0);
    manager->setLightStatus(0);
    manager->setGear(0);
    manager->setAngle(0);
    manager->setRadar(0xFFFFFF);
    manager->handleSendDataChanged();
    manager->on_delayTimerOut();
    manager->blockSignals(false);
    can = controller->findChild<CanTest *>();
    can->mCanInterface->setParent(can);
    QObject::connect(controller.get(), &PvmMain::switchVideoSignal,
                     [](int request) { effects::add(QStringLiteral("picture %1").arg(request)); });
}

Vehicle::~Vehicle()
{
    controller.reset();
    delete gFakeLink;
    delete board;
}

stories::Verbs Vehicle::verbs()
{
    const auto emitSignal = [this](int id) {
        Q_EMIT can->canTestDataChangedSignal(static_cast<unsigned char>(id));
    };
    // A value that the decoder has taken, told to the controller.
    const auto taken = [=](CanSignalId id, int CanTest::*member) {
        return [=](Args w) {
            can->*member = w.number();
            emitSignal(id);
        };
    };
    return {{"network", taken(CAN_SIG_NETWORK, &CanTest::mNetworkStatus)},
            {"night", taken(CAN_SIG_NIGHT, &CanTest::mNightMode)},
            {"direction", taken(CAN_SIG_DRIVING_DIRECTION, &CanTest::mDrivingDirection)},
            {"speed", taken(CAN_SIG_SPEED, &CanTest::mSpeed)},
            {"key", taken(CAN_SIG_KEY_STATUS, &CanTest::mKeyStatus)},
            {"light", taken(CAN_SIG_LIGHT_STATUS, &CanTest::mLightStatus)},
            {"angle", taken(CAN_SIG_ANGLE, &CanTest::mAngle)},
            {"lights", taken(CAN_SIG_LIGHTS, &CanTest::mLights)},
            {"gear", taken(CAN_SIG_GEAR, &CanTest::mGearStatus)},
            {"brake", taken(CAN_SIG_HAND_BREAK, &CanTest::mHandBreak)},
            {"door", taken(CAN_SIG_DOOR, &CanTest::mDoorStatus)},
            {"radar",
             [=](Args w) {
                 can->mRadarStatus = w[0].toULongLong(nullptr, 16);
                 emitSignal(CAN_SIG_RADAR);
             }},
            {"clock",
             [=](Args w) {
                 can->mCanDate = w[0].toLongLong();
                 can->mCanTime = w[1].toLongLong();
                 emitSignal(CAN_SIG_DATETIME);
             }},
            {"signal", [=](Args w) { emitSignal(w.number()); }},
            {"flag", [](Args w) { gFakeLink->setIsTurnSwitchEnable(w.isOn()); }},
            {"allow",
             [](Args w) {
                 gFakeLink->setIsTurnSwitchEnable(w.isOn());
                 Q_EMIT gFakeLink->turnSwitchSignal();
             }},
            {"init",
             [](Args w) {
                 gFakeLink->setIsAVMInited(w.isOn());
                 Q_EMIT gFakeLink->avmInitOkSignal();
             }},
            {"renderer", [](Args w) { Q_EMIT gFakeLink->avmStopSignal(w[0] == "stopped"); }},
            {"ask", [=](Args w) { controller->toSwitchVideo(w.number()); }},
            {"board", [=](Args w) { controller->onPhySwitchTriggerSlot(w.number()); }},
            {"tick",
             [](Args w) {
                 for (int i = 0; i < w.number(); ++i)
                     effects::fire(10);
             }},
            {"record", [](Args) { tellRecord(); }},
            {"distance",
             [=](Args w) {
                 for (const QString &word : w)
                     effects::add(QString::number(controller->newCalcRadarDistance(word.toInt())));
             }},
            {"turned", [=](Args w) {
                 can->mAngle = w.number();
                 emitSignal(CAN_SIG_ANGLE);
                 effects::add(QStringLiteral("%1, kept %2")
                                  .arg(DeviceDatasManager::self()->deviceData().angle)
                                  .arg(can->mAngle));
             }}};
}
