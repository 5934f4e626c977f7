// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QByteArray>
#include <QMap>
#include <QObject>

class QSocketNotifier;

/**
 * A Unix socket that keeps messages whole. Clients are told apart by their descriptors, which are
 * valid until disconnected() returns.
 */
class SocketServer : public QObject
{
    Q_OBJECT

public:
    explicit SocketServer(QObject *parent = nullptr);

    /// Returns what is wrong, or an empty text.
    QString listen(const char *path);

    /// Never blocks. False when the client's queue is full or the client gone.
    static bool send(int client, const void *data, size_t size);

    void drop(int client); ///< without disconnected()
    void dropAll();

Q_SIGNALS:
    void connected(int client);
    void received(int client, const QByteArray &message);
    void disconnected(int client);

private:
    void accept();
    void read(int client);

    Descriptor mFd;
    QMap<int, QSocketNotifier *> mClients;
};
