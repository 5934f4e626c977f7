// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QSocketNotifier>

/**
 * A Unix socket that keeps messages whole. Clients are told apart by their descriptors, which are
 * valid until disconnected() returns.
 */
class SocketServer : public QObject
{
    Q_OBJECT

public:
    /// Makes the socket at that path. Returns what is wrong, or an empty text.
    QString listen(const char *path);

    bool hasClient() const { return !mClients.isEmpty(); }

    /// Never blocks. False when the client's queue is full or the client gone.
    static bool send(int client, const void *data, size_t size);

    /// Closes the connection, without disconnected(). Nothing for who is no client.
    void drop(int client);
    void dropAll();

Q_SIGNALS:
    void connected(int client);
    void received(int client, const QByteArray &message); ///< of 64 KiB at most, longer ones cut
    void disconnected(int client);

private:
    void accept();
    void read(int client);

    Descriptor mFd;
    QMap<int, QSocketNotifier *> mClients;
};
