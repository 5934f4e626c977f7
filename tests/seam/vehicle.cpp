// SPDX-License-Identifier: MIT

#include "tests/seam/vehicle.h"

#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakelink.h"

#include <QtTest>

Vehicle::Vehicle()
{
    DeviceDatasManager::self()->setSpeed(0);
    DeviceDatasManager::self()->setKeyStaus(0);
    DeviceDatasManager::self()->setLightStatus(0);
    DeviceDatasManager::self()->setGear(0);
    DeviceDatasManager::self()->setAngle(0);
    DeviceDatasManager::self()->setRadar(0xFFFFFF);
    controller = std::make_unique<PvmMain>(nullptr);
    can = controller->findChild<CanTest *>();
    QObject::connect(controller.get(), &PvmMain::switchVideoSignal,
                     [](int request) { effects::add(QStringLiteral("picture %1").arg(request)); });
}

Vehicle::~Vehicle()
{
    controller.reset();
    delete gFakeLink;
}

void Vehicle::run(const QStringList &words)
{
    const QString &verb = words.first();
    const int value = words.value(1).toInt();
    const QHash<QString, QPair<int, int *>> signalOf{
        {"network", {CAN_SIG_NETWORK, &can->mNetworkStatus}},
        {"night", {CAN_SIG_NIGHT, &can->mNightMode}},
        {"direction", {CAN_SIG_DRIVING_DIRECTION, &can->mDrivingDirection}},
        {"speed", {CAN_SIG_SPEED, &can->mSpeed}},
        {"key", {CAN_SIG_KEY_STATUS, &can->mKeyStatus}},
        {"light", {CAN_SIG_LIGHT_STATUS, &can->mLightStatus}},
        {"angle", {CAN_SIG_ANGLE, &can->mAngle}},
        {"lights", {CAN_SIG_LIGHTS, &can->mLights}},
        {"gear", {CAN_SIG_GEAR, &can->mGearStatus}},
        {"brake", {CAN_SIG_HAND_BREAK, &can->mHandBreak}},
        {"door", {CAN_SIG_DOOR, &can->mDoorStatus}}};
    if (signalOf.contains(verb)) {
        *signalOf[verb].second = value;
        Q_EMIT can->canTestDataChangedSignal(static_cast<unsigned char>(signalOf[verb].first));
    } else if (verb == "radar") {
        can->mRadarStatus = words[1].toULongLong(nullptr, 16);
        Q_EMIT can->canTestDataChangedSignal(CAN_SIG_RADAR);
    } else if (verb == "clock") {
        can->mCanDate = words[1].toLongLong();
        can->mCanTime = words[2].toLongLong();
        Q_EMIT can->canTestDataChangedSignal(CAN_SIG_DATETIME);
    } else if (verb == "signal") {
        Q_EMIT can->canTestDataChangedSignal(static_cast<unsigned char>(value));
    } else if (verb == "allow") {
        gFakeLink->setIsTurnSwitchEnable(value == 1);
        Q_EMIT gFakeLink->turnSwitchSignal();
    } else if (verb == "init") {
        gFakeLink->setIsAVMInited(value == 1);
        Q_EMIT gFakeLink->avmInitOkSignal();
    } else if (verb == "ask") {
        controller->toSwitchVideo(value);
    } else if (verb == "delay") {
        controller->on_delayQuitRvcTimerOut();
    } else if (verb == "announce") {
        DeviceDatasManager::self()->on_delayTimerOut();
    } else if (verb == "board") {
        controller->onPhySwitchTriggerSlot(value);
    } else if (verb == "record") {
        const DeviceData record = DeviceDatasManager::self()->deviceData();
        effects::add(QStringLiteral("gear %1 light %2 key %3 speed %4 angle %5 radar %6")
                         .arg(static_cast<int>(record.gear))
                         .arg(static_cast<int>(record.lightStatus))
                         .arg(static_cast<int>(record.keyStatus))
                         .arg(record.speed)
                         .arg(record.angle)
                         .arg(static_cast<quint32>(record.radar), 0, 16));
    } else if (verb == "distance") {
        effects::add(QString::number(controller->newCalcRadarDistance(value)));
    } else if (verb == "kept-angle") {
        effects::add(QString::number(can->mAngle));
    } else {
        QFAIL(qPrintable("no such step: " + verb));
    }
}
