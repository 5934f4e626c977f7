// SPDX-License-Identifier: MIT

#include "bench/board/watchdog.h"

#include "bench/board/places.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Watchdog::Watchdog(FileWatch &watch) : mFileWatch(watch)
{
    mCountdown.setSingleShot(true);
    mCountdown.setTimerType(Qt::PreciseTimer);
    mCountdown.setInterval(30000);
    connect(&mCountdown, &QTimer::timeout, this, &Watchdog::handleTimeout);
}

QString Watchdog::build()
{
    // A FIFO that the bench reads: the controller's open for writing finds a reader at once.
    if (mkfifo(places::kWatchdog, 0600) == 0)
        mFd.reset(open(places::kWatchdog, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const auto handler = [this](FileWatch::Event event) {
        if (event == FileWatch::Event::Opened)
            handleOpened();
    };
    if (mFd < 0 || !mFileWatch.add(places::kWatchdog, handler))
        return QStringLiteral("cannot make %1: %2").arg(places::kWatchdog, strerror(errno));
    mNotifier = new QSocketNotifier(mFd, QSocketNotifier::Read, this);
    connect(mNotifier, &QSocketNotifier::activated, this, &Watchdog::drain);
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

void Watchdog::drain()
{
    mFileWatch.drain(); // an opening comes before its bytes
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

void Watchdog::report(const QString &what)
{
    Q_EMIT happened({Fact::Kind::Watchdog, {}, what});
}

void Watchdog::handleOpened()
{
    if (mIsOpen)
        return;
    mIsOpen = true;
    mIsMagicClose = false;
    mNotifier->setEnabled(true);
    mCountdown.start();
    report("opened");
}

void Watchdog::handleByte(char byte)
{
    mIsMagicClose = byte == 'V';
    if (mIsMagicClose)
        return;
    ++mFeeds;
    mCountdown.start();
    report("fed");
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
    report(mIsMagicClose ? "disarmed" : "closed");
}

void Watchdog::handleTimeout()
{
    // A feed may have come while the bench itself was held up.
    drain();
    if (!mCountdown.isActive())
        report("reset");
}
