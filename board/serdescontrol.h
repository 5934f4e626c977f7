// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>

class QTimer;

/// What SerdesControl::phySwitchTriggerSignal() reports.
enum BoardEvent {
    kShortClick = 1,  ///< of the physical switch
    kAccChanged = 2,  ///< the accepted level of ACC
    kAccHeldHigh = 3, ///< for 1000 ticks; again every 1000 ticks while it stays high
};

/**
 * The board side of the picture: the scripts that route the GMSL link, the power-down lines of the
 * two SerDes chips, the ACC keep-power line and the 10 ms board monitor.
 *
 * The monitor debounces the switch, ACC and the two lock lines: a change is accepted on the 7th
 * reading in a row that differs. Right after it a single reading back is accepted at once, so that
 * a press which bounces for one tick then is a click. docs/board.md tables what follows.
 *
 * Scripts run synchronously on the calling (main) thread and their exit status is not looked at.
 * Line failures are reported by the functions of GPIOSet.h.
 */
class SerdesControl : public QObject
{
    Q_OBJECT

public:
    explicit SerdesControl(QObject *parent = nullptr);
    ~SerdesControl() override; ///< touches no board line

    /// The video path is routed for PVM. True from construction on, before any script ran: the
    /// first request for DA then runs the DA script.
    bool getIsShowPVM() const;

    void handle_gmsl_switchto_PVM(); ///< runs the script and arms the backlight countdown
    void handle_gmsl_switchto_DA();
    void handle_gmsl_switch_openbacklight(); ///< one tick of the backlight countdown

    /// True pulls the chip's power-down line low; the monitor releases it on its 20th
    /// (deserializer) or 30th (serializer) count. A tick that pulls the line counts itself, so in
    /// the running system the release comes 19 or 29 ticks later. False releases the line at once
    /// and leaves that countdown running.
    void Reset_DeserPwdn(bool reset);
    void Reset_SerPwdn(bool reset);

    /// True keeps the board powered.
    void setAccKeepPowerOn(bool on);

    /// Read a line into @p level, which keeps its value when the line cannot be read. Both return
    /// 0 in any case.
    int getSwitchStatus(bool *level);
    int getAccStatus(bool *level);

    // Nothing calls these today, nor the slot slot_mtimer_timeout().
    void setLcdBacklight(unsigned int level); ///< in the display driver's own steps
    void switchGMSLLink(bool pvm);
    void switchVideoSource(bool serdes);
    void Delay_MSec(unsigned int ms); ///< processes events while it waits

    /// What @p command wrote to standard output, less its last character; "error" when no shell
    /// could be started for it. Blocks until the command ends.
    QString exec_shell(const char *command);

    /// Reads @p length bytes of the serializer from register (@p regHigh, @p regLow) on into
    /// @p out, with i2ctransfer. When another number of values comes back, logs it and leaves
    /// @p out alone. A value that is no number reads as 0; so does the one byte of a read that
    /// failed, since no output counts as one empty value.
    void Read_iic_from_ser(unsigned char regHigh, unsigned char regLow, unsigned char *out,
                           unsigned char length);

Q_SIGNALS:
    void phySwitchTriggerSignal(int index); ///< a BoardEvent

public Q_SLOTS:
    void onPer10ms();                ///< one tick of the board monitor
    void slot_mtimer_timeout();      ///< reads one of four serializer registers, logs a change
    void switchVideoSlot(int video); ///< 0 asks for DA, any other value for PVM

private:
    // The stages of one tick, in their order.
    void watchSwitch();
    void watchDeserLock();
    void countPowerDowns();
    bool watchSerLock(); ///< true when the lock has come back on this tick
    void waitAfterSerReset();
    void countSwitchScript();
    void watchAcc();
    void endTick();

    void giveClickIfDue();
    void countLongPress();
    void runSwitchScript(const char *command);
    void pollRegister(unsigned char regHigh, unsigned char regLow, unsigned char &last,
                      const char *text);

    // All countdowns are in ticks of 10 ms, and 0 when nothing is pending.
    QTimer *mPer10msTimer;            ///< owned
    bool mSwitchLevel = true;         ///< accepted level of the switch: high while pressed
    unsigned int mSwitchDebounce = 0; ///< ticks in a row with another reading
    int mSwitchHoldTicks = 0;         ///< until a press counts as a long one
    bool mIsShowPVM = true;
    int mDeserLock = -1; ///< accepted level, -1 not read yet
    int mDeserLockDebounce = 0;
    bool mAccLevel = false;
    unsigned int mAccDebounce = 0;
    unsigned int mAccHighTicks = 0; ///< counted up while ACC is high
    int mSerLock = -1;              ///< accepted level, -1 not read yet
    unsigned int mSerLockDebounce = 0;
    int mSwitchScriptDelay = 0;    ///< until the script of the current picture runs again
    bool mSerResetPending = false; ///< the serializer was released and its lock is awaited
    int mSerResetWait = 0;         ///< what is left of that wait
    int mOpenBacklightTicks = 0;   ///< until the backlight script runs
    bool mDeserPwdnActive = false; ///< the deserializer is being held in power-down
    int mDeserPwdnTicks = 0;       ///< until it is released
    bool mSerPwdnActive = false;
    int mSerPwdnTicks = 0;
};
