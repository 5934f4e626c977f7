// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

class CanTest;
class SerdesControl;
class SharedMemoryControl;
struct DeviceData;

/**
 * The controller: turns vehicle signals, the renderer's flags and the board's events into the
 * choice of picture, and keeps the system clock in step with the vehicle.
 *
 * Its constructor builds all other objects and holds the whole wiring. Connections to and from the
 * link are queued, since the link lives on its worker thread; all else runs directly on the main
 * thread. The rules are tabled in docs/picture-decision.md.
 */
class PvmMain : public QObject
{
    Q_OBJECT

public:
    explicit PvmMain(QObject *parent = nullptr);

    /// Nothing is left to do after construction: the event loop brings everything else.
    void run();

    /// The one way to change the picture. 0 asks for DA and is refused while the gear is R or an
    /// allowed turn light is on; 1 to 10 asks for PVM; above 10 asks for PVM once the
    /// renderer is initialised. A request for the picture on screen is passed on as any other.
    void toSwitchVideo(int isToPVM);

    bool isCanPVMSwitch() const;     ///< the switch may change the picture, DA may replace PVM
    bool isNeedOutFromPVM() const;   ///< too fast to keep PVM
    bool isTurnLightsOn() const;     ///< left or right, as the decoder has it now
    bool isTurnSwitchEnable() const; ///< the renderer allows PVM on a turn light

    /// Sets the system clock with `date -s` unless it agrees with the vehicle's date and time. Does
    /// nothing before both have been received.
    void handleTimeChanged();

    /// Logs the system's date and time.
    void testTimeOut();

    /// Level 1 to 3 of a radar distance of 0 to 11, 0 for any other value. Nothing calls it today.
    int newCalcRadarDistance(int value) const;

Q_SIGNALS:
    void switchTriggerSignal();          ///< never emitted today
    void switchVideoSignal(int isToPVM); ///< 0 asks for DA, a positive value for PVM

public Q_SLOTS:
    /// One vehicle signal has changed; @p id is a CanSignalId. Any other value is harmless.
    void canTestDataChangedSlot(unsigned char id);
    void on_autoRunTimerOut(); ///< does nothing, and nothing is connected to it today
    void avmInitOkSlot();
    void turnSwitchSlot();
    void on_delayQuitRvcTimerOut();

    /// @p index is a BoardEvent. A change of ACC is not acted on.
    void onPhySwitchTriggerSlot(int index);

private:
    // Vehicle signals. The record holds the values as accepted before this event.
    bool handleSignal(unsigned char id, const DeviceData &record);
    void handleSpeed();
    void handleKeyStatus(const DeviceData &record);
    void handleLightStatus(const DeviceData &record);
    void enterTurn(const char *logLine);
    void quitTurn();
    void handleAngle();
    bool handleGear(const DeviceData &record); ///< false: put off until the quit-RVC delay is over
    void quitRvc(int gear);
    void handleRadar();
    void handleSwitchClick(const DeviceData &record);

    SharedMemoryControl *mSharedMemoryControl = nullptr; ///< lives until the process ends
    CanTest *mCanTest = nullptr;                         ///< child
    SerdesControl *mSerdesControl = nullptr;             ///< lives until the process ends
    QTimer delayQuitRvcTimer;                            ///< 100 ms from leaving R to acting on it
    bool mDelayQuitRvcDone = false;                      ///< that delay has run out
    bool mWaitForAvmInited = false; ///< a request for PVM waits for the renderer
    bool mSpeedQuitEnabled = true;  ///< a speed above the limit takes PVM away
    QString mTurnLightNames[4];     ///< by light status
    int mCurSpeed = 0;
    int mLastSpeed = 0;
    bool mShowPVMBeforeSwitchTurnLight = false; ///< PVM was on screen before the turn light
};
