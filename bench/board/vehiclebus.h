#pragma once

#include "bench/board/busframe.h"
#include "bench/board/socketserver.h"

#include <QObject>

/**
 * The interface can0 and the one CAN device that may be open on it. Frames go out at once or are
 * lost: the interface down, no device, or the device's receive queue full.
 */
class VehicleBus : public QObject
{
    Q_OBJECT

public:
    explicit VehicleBus(QObject *parent = nullptr);

    /// False with the reason in @p error.
    bool build(QString *error);

    void send(const BusFrame &frame);

    bool isUp() const { return mIsUp; }
    void setUp(bool up) { mIsUp = up; }

    void disconnectDevice(); ///< what waits in its queue is lost

    quint64 sent() const { return mSent; }
    quint64 taken() const { return mTakenBefore + mTaken; }
    quint64 lost() const { return mLost; }
    quint64 waiting() const { return mSent - mLost - taken(); }

Q_SIGNALS:
    void connected();

private:
    void handleConnected(int client);
    void handleTaken(int client, const QByteArray &message);
    void handleDisconnected(int client);

    SocketServer mServer;
    int mDevice = -1;
    bool mIsUp = false;
    quint64 mSent = 0;
    quint64 mLost = 0;
    quint64 mTaken = 0;       ///< by the device that is connected
    quint64 mTakenBefore = 0; ///< by the devices before it
};
