// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"
#include "bench/board/fact.h"
#include "bench/board/filewatch.h"

#include <QSocketNotifier>
#include <QTimer>

/**
 * The hardware watchdog behind /dev/watchdog. The first opening starts it; any byte but 'V' feeds
 * it; closing stops it only when 'V' was the last byte before; unfed for 30 s it resets the board.
 */
class Watchdog : public QObject
{
    Q_OBJECT

public:
    explicit Watchdog(FileWatch &watch);

    /// Makes the device, which a board need not have. Returns what is wrong, or an empty text.
    QString build();

    /// Stopped and closed, as after power-on. Only for when no controller runs.
    void reset();

    /// Handles what has been written so far.
    void drain();

    quint64 feeds() const { return mFeeds; } ///< since it was built

Q_SIGNALS:
    void happened(const Fact &fact); ///< each of Fact::Kind::Watchdog

private:
    void report(const QString &what);
    void handleOpened();
    void handleByte(char byte);
    void handleClosed();
    void handleTimeout();

    FileWatch &mFileWatch;
    Descriptor mFd;
    QSocketNotifier *mNotifier = nullptr;
    QTimer mCountdown;
    bool mIsOpen = false;
    bool mIsMagicClose = false; ///< the last byte was 'V'
    quint64 mFeeds = 0;
};
