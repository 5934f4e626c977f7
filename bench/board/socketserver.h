#pragma once

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
    ~SocketServer() override;

    /// False with the reason in @p error.
    bool listen(const QString &path, QString *error);

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

    int mFd = -1;
    QMap<int, QSocketNotifier *> mClients;
};
