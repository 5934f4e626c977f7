// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QMap>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

/**
 * A Unix socket that keeps messages whole. Clients are told apart by their descriptors, which are
 * valid until disconnected() returns.
 */
class SocketServer : public QObject
{
    Q_OBJECT

public:
    /// Returns what is wrong, or an empty text.
    QString listen(const char *path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path, sizeof address.sun_path - 1);
        mFd.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (bind(mFd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            ::listen(mFd, SOMAXCONN) != 0)
            return QStringLiteral("cannot listen on %1: %2").arg(path, strerror(errno));
        auto *notifier = new QSocketNotifier(mFd, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, &SocketServer::accept);
        return {};
    }

    bool hasClient() const { return !mClients.isEmpty(); }

    /// Never blocks. False when the client's queue is full or the client gone.
    static bool send(int client, const void *data, size_t size)
    {
        return ::send(client, data, size, MSG_DONTWAIT | MSG_NOSIGNAL) ==
               static_cast<ssize_t>(size);
    }

    /// Without disconnected().
    void drop(int client)
    {
        QSocketNotifier *notifier = mClients.take(client);
        if (notifier == nullptr)
            return;
        // Perhaps inside this notifier's own signal.
        notifier->setEnabled(false);
        notifier->deleteLater();
        close(client);
    }

    void dropAll()
    {
        for (int client : mClients.keys())
            drop(client);
    }

Q_SIGNALS:
    void connected(int client);
    void received(int client, const QByteArray &message);
    void disconnected(int client);

private:
    static constexpr size_t kLargestMessage = 65536;

    void accept()
    {
        int client = -1;
        while ((client = accept4(mFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
            auto *notifier = new QSocketNotifier(client, QSocketNotifier::Read, this);
            connect(notifier, &QSocketNotifier::activated, this, [this, client] { read(client); });
            mClients.insert(client, notifier);
            Q_EMIT connected(client);
        }
    }

    void read(int client)
    {
        QByteArray buffer(kLargestMessage, Qt::Uninitialized);
        // A slot may drop the client between two messages.
        while (mClients.contains(client)) {
            const ssize_t size = recv(client, buffer.data(), kLargestMessage, 0);
            if (size < 0 && (errno == EAGAIN || errno == EINTR))
                return;
            if (size <= 0) {
                Q_EMIT disconnected(client);
                drop(client);
                return;
            }
            Q_EMIT received(client, buffer.left(static_cast<int>(size)));
        }
    }

    Descriptor mFd;
    QMap<int, QSocketNotifier *> mClients;
};
