#include "bench/board/vehiclebus.h"

#include <cstring>

VehicleBus::VehicleBus(QObject *parent) : QObject(parent)
{
    connect(&mServer, &SocketServer::connected, this, &VehicleBus::handleConnected);
    connect(&mServer, &SocketServer::received, this, &VehicleBus::handleTaken);
    connect(&mServer, &SocketServer::disconnected, this, &VehicleBus::handleDisconnected);
}

bool VehicleBus::build(QString *error)
{
    return mServer.listen(QStringLiteral("/run/pvm-bench/can/can0"), error);
}

void VehicleBus::send(const BusFrame &frame)
{
    ++mSent;
    if (!mIsUp || mDevice < 0 || !SocketServer::send(mDevice, &frame, sizeof frame))
        ++mLost;
}

void VehicleBus::disconnectDevice()
{
    if (mDevice >= 0)
        handleDisconnected(mDevice);
    mServer.dropAll();
}

void VehicleBus::handleConnected(int client)
{
    // One receive queue is enough: a second device would only blur what the first has taken.
    if (mDevice >= 0) {
        mServer.drop(client);
        return;
    }
    mDevice = client;
    Q_EMIT connected();
}

void VehicleBus::handleTaken(int client, const QByteArray &message)
{
    quint64 total = 0;
    if (client != mDevice || message.size() != static_cast<int>(sizeof total))
        return;
    memcpy(&total, message.constData(), sizeof total);
    mTaken = total;
}

void VehicleBus::handleDisconnected(int client)
{
    if (client != mDevice)
        return;
    mDevice = -1;
    mLost += waiting();
    mTakenBefore += mTaken;
    mTaken = 0;
}
