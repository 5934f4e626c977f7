// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>
#include <QSharedMemory>

#include <atomic>

class QSystemSemaphore;
class QThread;
class QTimer;

/**
 * One end of the shared-memory link between the controller and the renderer.
 *
 * The creating side is the controller: it makes the segment, writes the DeviceData record at its
 * start and reads the four flag bytes at its end. Peer mode is the renderer's end: it reads the
 * record and writes the flags. docs/renderer-link.md has the layout.
 *
 * The constructor moves the object to a worker thread of its own, "ShareMemThread", where every
 * exchange runs: once a second on the creating side, every 100 ms in peer mode, and at once when
 * the record changed. An exchange holds the system semaphore "PvmSemaphore" and within it the
 * segment's own lock; a peer must take them in the same order. Failures are logged and retried at
 * the next exchange.
 *
 * The getters and setters may be called from any thread.
 */
class SharedMemoryControl : public QObject
{
    Q_OBJECT

public:
    /// @p isCreator true for the controller's end, false for the renderer's, on whose main thread
    /// it has to be made, since it makes the DeviceDatasManager if nobody has. @p parent must be
    /// null, since the object changes its thread.
    explicit SharedMemoryControl(bool isCreator, QObject *parent = nullptr);

    /// Ends the worker thread and detaches. Leaves the semaphore to the peer.
    ~SharedMemoryControl() override;

    // The flag mirrors. On the creating side the next exchange overwrites them from the segment;
    // in peer mode the next exchange writes them into it.
    bool getIsAVMInited() const;
    void setIsAVMInited(bool isAVMInited);
    bool getIsTurnSwitchEnable() const;
    void setIsTurnSwitchEnable(bool isTurnSwitchEnable);
    bool getIsSlogEnable() const; ///< hex dumps of the link are wanted
    void setIsSlogEnable(bool isSlogEnable);

    // For the renderer's end; as of the last exchange, 100 ms ago at most. The record looks valid
    // for ever once it has come, whatever has become of the controller.

    bool isLinkAttached() const; ///< there is a segment that holds the record
    /// Another process has the segment attached, too: a controller that ended has it no more. False
    /// on the controller's own end, which does not ask.
    bool isControllerThere() const;

    /// The heartbeat: last byte seen (creating side) or to be written (peer).
    int getAVMRunCount() const;
    void setAVMRunCount(int runCount);

    /// The renderer's heartbeat: 1 to 254 and round again. Call it with each drawn frame, at least
    /// every 200 ms: the controller calls the renderer stopped after ten exchanges without a
    /// change, and while the record changes all the time, as under a turning wheel, ten take half a
    /// second.
    void updatemAVMRunCount();

    /// Logs @p len bytes as hexadecimal while getIsSlogEnable() is true.
    void logCharArray(const char *data, int len) const;

Q_SIGNALS:
    // All are emitted on the worker thread, by the creating side only.
    void avmInitOkSignal();           ///< the renderer has become initialised
    void turnSwitchSignal();          ///< the turn-switch flag changed, either way
    void avmStopSignal(bool stopped); ///< the heartbeat stopped (true) or came back (false)

public Q_SLOTS:
    void runSlot();
    void on_runTimerOut();
    void on_DeviceDataChanged();

private:
    struct FlagChanges
    {
        bool avmInited = false;  ///< avmInitOkSignal() is due
        bool turnSwitch = false; ///< turnSwitchSignal() is due
    };

    bool attachSegment(int &failures);
    void lookForController();
    FlagChanges exchangeAsCreator(bool &firstIn);
    void exchangeAsPeer();
    void readHeartbeat(int runCount);
    void countStall();
    void announce(const FlagChanges &changes);
    void handleReceivedRecord();

    QSharedMemory mSharedMemory;
    QSystemSemaphore *mSemaphore = nullptr; ///< lives until the process ends
    bool mIsCreator;
    bool mIsShareMemInitOk = false;
    QThread *mShareMemThread = nullptr;
    QTimer *mRunTimer = nullptr;       ///< child, lives on the worker thread
    char *mDataBuffer = nullptr;       ///< owned: the record just sent or received
    bool mIsDeviceDataChanged = false; ///< true only during an exchange for a changed record
    // Written on the worker, read on the main thread.
    std::atomic<bool> mIsSlogEnable{false};
    std::atomic<bool> mIsAVMInited{false};
    std::atomic<bool> mIsTurnSwitchEnable; ///< at first true in peer mode only
    std::atomic<int> mAVMRunCount{1};
    std::atomic<bool> mIsLinkAttached{false};
    std::atomic<bool> mIsControllerThere{false}; ///< in peer mode only
    int mAVMStallCount = 0; ///< exchanges in a row without a new run count; held at 11 once stopped
    bool mIsAVMStopped = false; ///< avmStopSignal(true) has been emitted and not yet revoked
};
