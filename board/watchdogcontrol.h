// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>
#include <QTimer>

/**
 * Feeds the board's hardware watchdog, "/dev/watchdog", once a second while the renderer is alive.
 *
 * The timeout is the driver's default; no ioctl is issued. When the renderer has stopped, feeding
 * stops too and the hardware resets the board, unless the renderer comes back before the timeout.
 * Main thread only.
 */
class WatchDogControl : public QObject
{
    Q_OBJECT

public:
    explicit WatchDogControl(QObject *parent = nullptr);

    /// The one object, created by the first call and never destroyed.
    static WatchDogControl *getInstance();

    /// True opens the device, unless it is open, and starts feeding; a failed open is logged and
    /// not retried. False disarms the watchdog where the driver allows it, and closes it; the
    /// controller never does that.
    void setWatchDogOnOff(bool isOn);

    /// Whether the device is open and the feed timer runs; feeding may be held back all the same.
    /// Nothing calls it today.
    bool getIsIntWdgOn() const;

    /// Allows or holds back the feeds; the timer keeps running. Nothing calls it today.
    void setWdgFeedOnOff(bool isOn);

public Q_SLOTS:
    void on_WDTTimerOut();
    void on_avmstopslot(bool stop); ///< true: the renderer has stopped, false: it runs again

private:
    void openAndFeed();
    void disarmAndClose();

    static WatchDogControl *instance;

    QTimer mWDTTimer;
    int mWdtFd = -1; ///< -1 while closed
    bool mIsIntWdgOn = false;
    int mFeedCount = 0; ///< feeds since the last feed line in the log
    bool mIsWdgFeedOn = true;
    bool mIsAvmRunning = true; ///< the renderer has not been reported stopped
};
