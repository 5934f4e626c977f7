// SPDX-License-Identifier: MIT

#include "bench/board/watchdog.h"

#include "bench/board/filewatch.h"
#include "bench/board/places.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr int kTimeoutMs = 30000;

} // namespace

Watchdog::Watchdog(FileWatch *watch, QObject *parent) : QObject(parent), mFileWatch(watch)
{
    mCountdown.setSingleShot(true);
    mCountdown.setTimerType(Qt::PreciseTimer);
    mCountdown.setInterval(kTimeoutMs);
    connect(&mCountdown, &QTimer::timeout, this, &Watchdog::handleTimeout);
    connect(watch, &FileWatch::opened, this, [this](int openedWatch) {
        if (openedWatch == mWatch)
            handleOpened();
    });
}

QString Watchdog::build()
{
    // A FIFO that the bench reads: the controller's open for writing finds a reader at once.
    if (mkfifo(places::kWatchdog, 0600) == 0)
        mFd.reset(open(places::kWatchdog, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (mFd >= 0)
        mWatch = mFileWatch->add(QString::fromLatin1(places::kWatchdog));
    if (mWatch < 0)
        return QStringLiteral("cannot make %1: %2")
            .arg(QLatin1String(places::kWatchdog), QString::fromLocal8Bit(strerror(errno)));
    mNotifier = new QSocketNotifier(mFd, QSocketNotifier::Read, this);
    connect(mNotifier, &QSocketNotifier::activated, this, [this] { drain(); });
    return {};
}

void Watchdog::reset()
{
    char rest[256];
    while (mFd >= 0 && read(mFd, rest, sizeof rest) > 0) {
    }
    mCountdown.stop();
    mIsOpen = false;
    mIsMagicClose = false;
}

void Watchdog::handleOpened()
{
    if (mIsOpen)
        return;
    mIsOpen = true;
    mIsMagicClose = false;
    mNotifier->setEnabled(true);
    mCountdown.start();
    Q_EMIT happened(QStringLiteral("opened"));
}

void Watchdog::drain()
{
    mFileWatch->drain(); // an opening comes before its bytes
    if (mFd < 0)
        return;
    char bytes[256];
    ssize_t size = 0;
    while ((size = read(mFd, bytes, sizeof bytes)) > 0) {
        handleOpened(); // unless it came just now, with its bytes
        for (ssize_t i = 0; i < size; ++i)
            handleByte(bytes[i]);
    }
    if (size == 0)
        handleClosed();
}

void Watchdog::handleByte(char byte)
{
    mIsMagicClose = byte == 'V';
    if (mIsMagicClose)
        return;
    ++mFeeds;
    mCountdown.start();
    Q_EMIT happened(QStringLiteral("fed"));
}

void Watchdog::handleClosed()
{
    // Without a writer the FIFO is readable for ever, and each read gives its end.
    mNotifier->setEnabled(false);
    if (!mIsOpen)
        return;
    mIsOpen = false;
    if (mIsMagicClose)
        mCountdown.stop();
    Q_EMIT happened(mIsMagicClose ? QStringLiteral("disarmed") : QStringLiteral("closed"));
}

void Watchdog::handleTimeout()
{
    // A feed may have come while the bench itself was held up.
    drain();
    if (!mCountdown.isActive())
        Q_EMIT happened(QStringLiteral("reset"));
}
