// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/descriptor.h"

#include <QObject>
#include <QTimer>

class FileWatch;
class QSocketNotifier;

/**
 * The hardware watchdog behind /dev/watchdog. The first opening starts it; any byte but 'V' feeds
 * it; closing stops it only when 'V' was the last byte before; unfed for 30 s it resets the board.
 */
class Watchdog : public QObject
{
    Q_OBJECT

public:
    explicit Watchdog(FileWatch *watch, QObject *parent = nullptr);

    /// Makes the device, which a board need not have. Returns what is wrong, or an empty text.
    QString build();

    /// Stopped and closed, as after power-on. Only for when no controller runs.
    void reset();

    void drain(); ///< handles what has been written so far

    quint64 feeds() const { return mFeeds; }

Q_SIGNALS:
    void happened(const QString &what); ///< the values of Fact::Kind::Watchdog

private:
    void handleOpened();
    void handleByte(char byte);
    void handleClosed();
    void handleTimeout();

    FileWatch *mFileWatch;
    int mWatch = -1;
    Descriptor mFd;
    QSocketNotifier *mNotifier = nullptr;
    QTimer mCountdown;
    bool mIsOpen = false;
    bool mIsMagicClose = false; ///< the last byte was 'V'
    quint64 mFeeds = 0;
};
