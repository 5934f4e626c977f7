// SPDX-License-Identifier: MIT

#include "bench/board/socketserver.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr size_t kLargestMessage = 65536;

} // namespace

QString SocketServer::listen(const char *path)
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

bool SocketServer::send(int client, const void *data, size_t size)
{
    return ::send(client, data, size, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

void SocketServer::drop(int client)
{
    QSocketNotifier *notifier = mClients.take(client);
    if (notifier == nullptr)
        return;
    // Perhaps inside this notifier's own signal.
    notifier->setEnabled(false);
    notifier->deleteLater();
    close(client);
}

void SocketServer::dropAll()
{
    for (int client : mClients.keys())
        drop(client);
}

void SocketServer::accept()
{
    int client = -1;
    while ((client = accept4(mFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        auto *notifier = new QSocketNotifier(client, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, client] { read(client); });
        mClients.insert(client, notifier);
        Q_EMIT connected(client);
    }
}

void SocketServer::read(int client)
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
