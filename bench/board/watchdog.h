// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/fact.h"
#include "bench/board/filewatch.h"
#include "bench/board/places.h"

#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

/**
 * The hardware watchdog behind /dev/watchdog. The first opening starts it; any byte but 'V' feeds
 * it; closing stops it only when 'V' was the last byte before; unfed for 30 s it resets the board.
 */
class Watchdog : public QObject
{
    Q_OBJECT

public:
    explicit Watchdog(FileWatch &watch) : mFileWatch(watch)
    {
        mCountdown.setSingleShot(true);
        mCountdown.setTimerType(Qt::PreciseTimer);
        mCountdown.setInterval(30000);
        connect(&mCountdown, &QTimer::timeout, this, &Watchdog::handleTimeout);
    }

    /// Makes the device, which a board need not have. Returns what is wrong, or an empty text.
    QString build()
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

    /// Stopped and closed, as after power-on. Only for when no controller runs.
    void reset()
    {
        char rest[256];
        while (mFd >= 0 && read(mFd, rest, sizeof rest) > 0) {
        }
        mCountdown.stop();
        mIsOpen = false;
        mIsMagicClose = false;
    }

    /// Handles what has been written so far.
    void drain()
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

    quint64 feeds() const { return mFeeds; }

Q_SIGNALS:
    void happened(const Fact &fact);

private:
    void report(const QString &what) { Q_EMIT happened({Fact::Kind::Watchdog, {}, what}); }
    void handleOpened()
    {
        if (mIsOpen)
            return;
        mIsOpen = true;
        mIsMagicClose = false;
        mNotifier->setEnabled(true);
        mCountdown.start();
        report("opened");
    }

    void handleByte(char byte)
    {
        mIsMagicClose = byte == 'V';
        if (mIsMagicClose)
            return;
        ++mFeeds;
        mCountdown.start();
        report("fed");
    }

    void handleClosed()
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

    void handleTimeout()
    {
        // A feed may have come while the bench itself was held up.
        drain();
        if (!mCountdown.isActive())
            report("reset");
    }

    FileWatch &mFileWatch;
    Descriptor mFd;
    QSocketNotifier *mNotifier = nullptr;
    QTimer mCountdown;
    bool mIsOpen = false;
    bool mIsMagicClose = false; ///< the last byte was 'V'
    quint64 mFeeds = 0;
};
